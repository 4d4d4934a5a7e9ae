#include "InfoTrack.h"

#include <cstdio>
#include <string_view>

#include "Text.h"

namespace atomscan_tool {

std::string FormatNumber(double value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.2f", value);
    std::string s = text;
    if (s.find('.') != std::string::npos) {
        s.erase(s.find_last_not_of('0') + 1);
        if (s.back() == '.') s.pop_back();
    }
    return s;
}

std::string BytesPreview(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    bool printable = size > 0 && IsValidUtf8(bytes);
    for (const char c : bytes)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) printable = false;
    if (printable) return "\"" + std::string(bytes) + "\"";
    constexpr std::size_t kShown = 16;
    return HexText(data, size < kShown ? size : kShown) + (size > kShown ? "..." : "");
}

std::string UserDataPreview(std::uint32_t type, const Pelt::BinaryData& data)
{
    const std::uint8_t* p = data.Data();
    const std::size_t size = data.Size();
    if ((type >> 24) == 0xa9 && size >= 4) {
        const std::size_t length = (std::size_t{p[0]} << 8) | p[1];
        if (length == size - 4) return BytesPreview(p + 4, length);
    }
    return BytesPreview(p, size);
}

namespace {

std::string EditText(QT::IQTTrack& track, std::uint32_t movieTimeScale)
{
    const std::string length = ClockText(track.GetEditDuration(), movieTimeScale);
    if (!track.HasSimpleEditList(false)) return "several edits, " + length;
    std::string text = "from " + ClockText(track.GetEditMediaTime(), track.GetMediaTimeScale()) + " for " + length;
    if (!track.HasSimpleEditList(true)) text += ", rate not 1";
    if (track.IsTrackTrimmed()) text += ", trimmed";
    return text;
}

// Samples a second over the edit.
std::string EditRate(QT::IQTTrack& track, std::uint32_t movieTimeScale)
{
    const std::uint32_t length = track.GetEditDuration();
    if (length == 0 || movieTimeScale == 0) return "";
    return FormatNumber(double(track.GetEditSampleCount()) * movieTimeScale / length) + " fps";
}

} // namespace

TrackSummary SummarizeTrack(QT::IQTTrack& track, std::uint32_t movieTimeScale)
{
    TrackSummary s;
    const QT::FourCC mediaType = track.GetTrackMediaType();
    s.type = FourCCText(mediaType);
    s.enabled = track.IsTrackEnabled() ? "yes" : "no";
    s.codec = "-";
    s.samples = std::to_string(track.GetEditSampleCount());
    s.edit = EditText(track, movieTimeScale);
    if (mediaType == QT::kVideoMediaType) {
        QT::QTRect rect;
        track.GetTrackDimensions(rect);
        s.format = std::to_string(rect.right - rect.left) + "x" + std::to_string(rect.bottom - rect.top);
        s.rate = EditRate(track, movieTimeScale);
    }
    return s;
}

} // namespace atomscan_tool
