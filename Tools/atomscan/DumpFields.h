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

// An operation's result code and what it wrote.
template <typename T>
struct Coded {
    std::uint32_t code = 0;
    T value{};
};

// {"code", outputs...}: `emitOutputs` writes the outputs' members, only for code 0.
template <typename Compute, typename EmitOutputs>
void CodeField(JsonWriter& w, const char* key, Compute&& compute, EmitOutputs&& emitOutputs)
{
    Guarded(w, key, compute, [&](const auto& r) {
        w.BeginObject(true);
        WriteCode(w, r.code);
        if (r.code == 0) emitOutputs(r.value);
        w.EndObject();
    });
}

// {"code", `listKey`: [...]}: the rows for any code, since a failed table
// keeps what it placed. `make` fills an empty table and gives the code;
// `emitRows` writes the rows, each through Row.
template <typename Table, typename Make, typename EmitRows>
void TableField(JsonWriter& w, const char* key, const char* listKey, Make&& make, EmitRows&& emitRows)
{
    Guarded(
        w, key,
        [&] {
            Coded<Table> r;
            r.code = make(r.value);
            return r;
        },
        [&](const Coded<Table>& r) {
            w.BeginObject();
            WriteCode(w, r.code);
            w.Key(listKey);
            w.BeginArray();
            emitRows(r.value);
            w.EndArray();
            w.EndObject();
        });
}

// One row of a table: its values on one line.
template <typename EmitValues>
void Row(JsonWriter& w, EmitValues&& emitValues)
{
    w.BeginArray(true);
    emitValues();
    w.EndArray();
}

// [width, height], or null.
inline void WriteDimensions(JsonWriter& w, const std::optional<std::pair<float, float>>& size)
{
    if (!size) return w.Null();
    w.BeginArray(true);
    w.Float(size->first);
    w.Float(size->second);
    w.EndArray();
}

// The key with null: a table left out by --no-tables, or a part that does not apply.
inline void NullField(JsonWriter& w, const char* key)
{
    w.Key(key);
    w.Null();
}

} // namespace atomscan_tool
