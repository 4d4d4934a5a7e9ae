// A JSON writer, indented by two spaces a level. To a stream, values go out as
// they come, through a buffer, so a table of a million records costs no more
// memory than its largest record; to a string, the string holds the document.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace atomscan_tool {

class JsonWriter {
public:
    explicit JsonWriter(std::FILE* out);
    // Appends to `out`.
    explicit JsonWriter(std::string& out);
    ~JsonWriter();
    JsonWriter(const JsonWriter&) = delete;
    JsonWriter& operator=(const JsonWriter&) = delete;

    // `inlineItems`: the members stay on one line (for short records).
    void BeginObject(bool inlineItems = false);
    void EndObject();
    void BeginArray(bool inlineItems = false);
    void EndArray();
    // The key of the next member of the current object.
    void Key(std::string_view key);

    void Null();
    void Bool(bool value);
    void Int(std::int64_t value);
    void UInt(std::uint64_t value);
    // NaN and infinities become the strings "nan", "inf" and "-inf".
    void Double(double value);
    void Float(float value);
    // `utf8` must be valid UTF-8; quotes, backslashes and control characters are escaped.
    void String(std::string_view utf8);

    // Ends the document with a newline and hands the buffer to the stream.
    void Finish();

private:
    struct Level {
        bool isObject;
        bool inlineItems;
        bool empty;
    };

    template <typename T>
    void WriteNumber(T value);
    void Open(char bracket, bool isObject, bool inlineItems);
    void Close(char bracket);
    void BeforeValue();
    void Quoted(std::string_view utf8);
    void NewLine();
    void Flush();
    void Put(std::string_view text);
    void Put(char c);

    std::FILE* mOut = nullptr;
    std::string mBuffer; // what the stream has not yet been given
    std::string& mText;  // `mBuffer`, or the string written to
    std::vector<Level> mLevels;
    bool mAfterKey = false;
};

} // namespace atomscan_tool
