#include "dump/JsonWriter.h"

#include <charconv>
#include <cmath>
#include <type_traits>

namespace atomscan_tool {

namespace {
constexpr std::size_t kFlushAt = 1 << 16;
}

JsonWriter::JsonWriter(std::FILE* out) : mOut(out), mText(mBuffer) { mBuffer.reserve(kFlushAt + 1024); }

JsonWriter::JsonWriter(std::string& out) : mText(out) {}

JsonWriter::~JsonWriter() { Flush(); }

void JsonWriter::Put(std::string_view text)
{
    mText.append(text);
    if (mBuffer.size() >= kFlushAt) Flush();
}

void JsonWriter::Put(char c)
{
    mText.push_back(c);
    if (mBuffer.size() >= kFlushAt) Flush();
}

void JsonWriter::Flush()
{
    if (mOut == nullptr) return;
    if (!mBuffer.empty()) std::fwrite(mBuffer.data(), 1, mBuffer.size(), mOut);
    mBuffer.clear();
    std::fflush(mOut);
}

void JsonWriter::NewLine()
{
    Put('\n');
    for (std::size_t i = 0; i < mLevels.size(); ++i) Put("  ");
}

// Separates this value from the one before it; a member's value follows its key.
void JsonWriter::BeforeValue()
{
    if (mAfterKey) {
        mAfterKey = false;
        return;
    }
    if (mLevels.empty()) return;
    Level& level = mLevels.back();
    if (!level.empty) Put(level.inlineItems ? ", " : ",");
    if (!level.inlineItems) NewLine();
    level.empty = false;
}

void JsonWriter::Key(std::string_view key)
{
    BeforeValue();
    Quoted(key);
    Put(": ");
    mAfterKey = true;
}

void JsonWriter::Open(char bracket, bool isObject, bool inlineItems)
{
    BeforeValue();
    Put(bracket);
    mLevels.push_back({isObject, inlineItems, true});
}

void JsonWriter::Close(char bracket)
{
    const Level level = mLevels.back();
    mLevels.pop_back();
    if (!level.empty && !level.inlineItems) NewLine();
    Put(bracket);
}

void JsonWriter::BeginObject(bool inlineItems) { Open('{', true, inlineItems); }
void JsonWriter::EndObject() { Close('}'); }
void JsonWriter::BeginArray(bool inlineItems) { Open('[', false, inlineItems); }
void JsonWriter::EndArray() { Close(']'); }

void JsonWriter::Null()
{
    BeforeValue();
    Put("null");
}

void JsonWriter::Bool(bool value)
{
    BeforeValue();
    Put(value ? "true" : "false");
}

// Shortest text that reads back as the same number.
template <typename T>
void JsonWriter::WriteNumber(T value)
{
    if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(value)) return String("nan");
        if (std::isinf(value)) return String(value > 0 ? "inf" : "-inf");
    }
    BeforeValue();
    char text[32];
    const auto result = std::to_chars(text, text + sizeof text, value);
    Put(std::string_view(text, static_cast<std::size_t>(result.ptr - text)));
}

void JsonWriter::Int(std::int64_t value) { WriteNumber(value); }
void JsonWriter::UInt(std::uint64_t value) { WriteNumber(value); }
void JsonWriter::Double(double value) { WriteNumber(value); }
void JsonWriter::Float(float value) { WriteNumber(value); }

void JsonWriter::String(std::string_view utf8)
{
    BeforeValue();
    Quoted(utf8);
}

void JsonWriter::Quoted(std::string_view utf8)
{
    static const char kHex[] = "0123456789abcdef";
    Put('"');
    std::size_t plainFrom = 0;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(utf8[i]);
        if (c >= 0x20 && c != '"' && c != '\\') continue;
        Put(utf8.substr(plainFrom, i - plainFrom));
        plainFrom = i + 1;
        switch (c) {
        case '"': Put("\\\""); break;
        case '\\': Put("\\\\"); break;
        case '\n': Put("\\n"); break;
        case '\r': Put("\\r"); break;
        case '\t': Put("\\t"); break;
        case '\b': Put("\\b"); break;
        case '\f': Put("\\f"); break;
        default: {
            const char escape[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15]};
            Put(std::string_view(escape, sizeof escape));
        }
        }
    }
    Put(utf8.substr(plainFrom));
    Put('"');
}

void JsonWriter::Finish()
{
    Put('\n');
    Flush();
}

} // namespace atomscan_tool
