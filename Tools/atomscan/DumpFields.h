// Building blocks of the dump: each field is worked out before anything of it
// is written, so an operation that throws turns into {"error": what()} and
// the document stays whole.
#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "API/Inc/PeltBinaryData.h"
#include "Inc/AtomscanTypes.h"
#include "JsonWriter.h"
#include "Text.h"
#include "vellum/vellum.h"

namespace atomscan_tool {

struct DumpOptions {
    bool tables = true; // false: per-sample tables are null
};

// What the sections need besides the movie.
struct DumpContext {
    DumpOptions options;
    std::string absolutePath;     // the movie's path made absolute, UTF-8
    QT::String16 absolutePath16;  // the same as the library takes it
};

inline void WriteError(JsonWriter& w, const std::string& what)
{
    w.BeginObject(true);
    w.Key("error");
    w.String(Bytes8Text(what));
    w.EndObject();
}

// Runs `compute`; then, under `key` (none for an array item), `emit` with its
// value, or the error that it threw.
template <typename Compute, typename Emit>
void Guarded(JsonWriter& w, const char* key, Compute&& compute, Emit&& emit)
{
    std::optional<std::invoke_result_t<Compute&>> value;
    std::string error;
    try {
        value.emplace(compute());
    } catch (const vellum::config::Error& e) {
        error = e.what();
    } catch (const std::exception& e) {
        error = e.what();
    }
    if (key != nullptr) w.Key(key);
    if (value) emit(*value);
    else WriteError(w, error);
}

inline void WriteValue(JsonWriter& w, bool v) { w.Bool(v); }
inline void WriteValue(JsonWriter& w, std::int32_t v) { w.Int(v); }
inline void WriteValue(JsonWriter& w, std::int64_t v) { w.Int(v); }
inline void WriteValue(JsonWriter& w, std::uint32_t v) { w.UInt(v); }
inline void WriteValue(JsonWriter& w, std::uint64_t v) { w.UInt(v); }
inline void WriteValue(JsonWriter& w, const QT::QTRect& r)
{
    w.BeginArray(true);
    w.Int(r.left);
    w.Int(r.top);
    w.Int(r.right);
    w.Int(r.bottom);
    w.EndArray();
}

// A field whose value is written as it is.
template <typename Compute>
void Field(JsonWriter& w, const char* key, Compute&& compute)
{
    Guarded(w, key, compute, [&](const auto& v) { WriteValue(w, v); });
}

// A field that holds a four-character code.
template <typename Compute>
void FourCCField(JsonWriter& w, const char* key, Compute&& compute)
{
    Guarded(w, key, compute, [&](QT::FourCC v) { w.String(FourCCText(v)); });
}

inline void WriteCode(JsonWriter& w, std::uint32_t code)
{
    w.Key("code");
    w.String(CodeText(code));
}

inline void WriteHex(JsonWriter& w, const Pelt::BinaryData& data) { w.String(HexText(data.Data(), data.Size())); }

inline void WriteString16(JsonWriter& w, const QT::String16& text) { w.String(ToUtf8(text)); }

} // namespace atomscan_tool
