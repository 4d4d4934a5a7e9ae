#include "common/Text.h"

#include <cstdio>

namespace atomscan_tool {

QT::String16 ToString16(const std::string& utf8) { return vellum::utility::UTF8to16(utf8, nullptr, nullptr); }

std::string ToUtf8(const QT::String16& text) { return vellum::utility::UTF16to8(text); }

std::string CodeText(std::uint32_t code)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", code);
    return text;
}

std::string FourCCText(QT::FourCC code)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const unsigned char c = static_cast<unsigned char>(code >> shift);
        if (c < 0x20 || c > 0x7e) return CodeText(code);
        text.push_back(static_cast<char>(c));
    }
    return text;
}

std::string FourCCDisplay(QT::FourCC code)
{
    if ((code >> 24) != 0xa9) return FourCCText(code);
    const std::string rest = FourCCText((code & 0x00ffffffu) | 0x20000000u);
    return rest.size() == 4 ? "\u00a9" + rest.substr(1) : CodeText(code);
}

std::string HexText(const std::uint8_t* data, std::size_t size)
{
    static const char kHex[] = "0123456789abcdef";
    std::string text;
    text.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        text.push_back(kHex[data[i] >> 4]);
        text.push_back(kHex[data[i] & 15]);
    }
    return text;
}

bool IsValidUtf8(std::string_view bytes)
{
    std::size_t i = 0;
    while (i < bytes.size()) {
        const unsigned char c = static_cast<unsigned char>(bytes[i]);
        std::size_t length;
        std::uint32_t value;
        if (c < 0x80) {
            ++i;
            continue;
        } else if ((c & 0xe0) == 0xc0) {
            length = 2;
            value = c & 0x1fu;
        } else if ((c & 0xf0) == 0xe0) {
            length = 3;
            value = c & 0x0fu;
        } else if ((c & 0xf8) == 0xf0) {
            length = 4;
            value = c & 0x07u;
        } else {
            return false;
        }
        if (bytes.size() - i < length) return false;
        for (std::size_t k = 1; k < length; ++k) {
            const unsigned char next = static_cast<unsigned char>(bytes[i + k]);
            if ((next & 0xc0) != 0x80) return false;
            value = (value << 6) | (next & 0x3fu);
        }
        static const std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (value < kSmallest[length] || value > 0x10ffff || (value >= 0xd800 && value <= 0xdfff)) return false;
        i += length;
    }
    return true;
}

std::string Bytes8Text(std::string_view bytes)
{
    if (IsValidUtf8(bytes)) return std::string(bytes);
    return "hex:" + HexText(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

std::string ClockText(std::uint64_t units, std::uint32_t scale)
{
    if (scale == 0) return "-";
    std::uint64_t seconds = units / scale;
    std::uint64_t millis = ((units % scale) * 1000 + scale / 2) / scale;
    if (millis == 1000) {
        ++seconds;
        millis = 0;
    }
    char text[48];
    std::snprintf(text, sizeof text, "%llu:%02llu:%02llu.%03llu", static_cast<unsigned long long>(seconds / 3600),
                  static_cast<unsigned long long>(seconds / 60 % 60), static_cast<unsigned long long>(seconds % 60),
                  static_cast<unsigned long long>(millis));
    return text;
}

std::optional<std::string> TimecodeText(std::int64_t frame, std::uint32_t framesPerSecond, bool dropFrame)
{
    if (framesPerSecond == 0) return std::nullopt;
    const std::int64_t fps = framesPerSecond;
    // Drop-frame counting skips fps / 15 numbers a minute (2 at 30, 4 at 60),
    // except every tenth minute; rates that are no multiple of 30 have no such
    // count and are numbered straight, still marked with ';'.
    const std::int64_t drop = (dropFrame && fps % 30 == 0) ? fps / 15 : 0;
    const std::int64_t perMinute = fps * 60 - drop;
    const std::int64_t perTenMinutes = fps * 600 - drop * 9;
    const std::int64_t perDay = perTenMinutes * 144;
    std::int64_t n = frame % perDay;
    if (n < 0) n += perDay;
    if (drop != 0) {
        const std::int64_t tens = n / perTenMinutes;
        const std::int64_t rest = n % perTenMinutes;
        n += drop * 9 * tens;
        if (rest > drop) n += drop * ((rest - drop) / perMinute);
    }
    char text[96];
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld%c%02lld", static_cast<long long>(n / (fps * 3600)),
                  static_cast<long long>(n / (fps * 60) % 60), static_cast<long long>(n / fps % 60),
                  dropFrame ? ';' : ':', static_cast<long long>(n % fps));
    return std::string(text);
}

} // namespace atomscan_tool
