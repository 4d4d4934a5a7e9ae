// Building blocks of the dump: each field is worked out before anything of it
// is written, so an operation that throws turns into {"error": what()} and
// the document stays whole.
#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "API/Inc/PeltBinaryData.h"
#include "Inc/AtomscanTypes.h"
#include "common/Text.h"
#include "dump/DumpJson.h"
#include "dump/JsonWriter.h"
#include "vellum/vellum.h"

namespace atomscan_tool {

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

// A bool, or an integer with its sign.
template <std::integral T>
void WriteValue(JsonWriter& w, T v)
{
    if constexpr (std::is_same_v<T, bool>) w.Bool(v);
    else if constexpr (std::is_signed_v<T>) w.Int(v);
    else w.UInt(v);
}
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

// {"code", names[0]: outputs[0], ...}: `ask` fills the outputs and gives the
// code; the outputs are shown only for code 0.
template <std::size_t N, typename Ask>
void CodedUIntsField(JsonWriter& w, const char* key, const std::array<const char*, N>& names, Ask&& ask)
{
    CodeField(
        w, key,
        [&] {
            Coded<std::array<std::uint32_t, N>> r;
            r.code = ask(r.value);
            return r;
        },
        [&](const std::array<std::uint32_t, N>& values) {
            for (std::size_t i = 0; i < N; ++i) {
                w.Key(names[i]);
                w.UInt(values[i]);
            }
        });
}

// The key with null: a table left out by --no-tables, or a part that does not apply.
inline void NullField(JsonWriter& w, const char* key)
{
    w.Key(key);
    w.Null();
}

// A per-sample table as {"code", `listKey`: [[columns], ...]}, or null when
// `shown` is false. The records show for any code, since a failed table keeps
// what it placed. `make` fills an empty table and gives the code; `columns`
// gives the values of one element of it as a tuple, one line a record.
template <typename Table, typename Make, typename Columns>
void TableField(JsonWriter& w, bool shown, const char* key, const char* listKey, Make&& make, Columns&& columns)
{
    if (!shown) return NullField(w, key);
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
            for (const auto& record : r.value) {
                w.BeginArray(true);
                std::apply([&](const auto&... values) { (WriteValue(w, values), ...); }, columns(record));
                w.EndArray();
            }
            w.EndArray();
            w.EndObject();
        });
}

// [width, height] from `ask(width, height)`, or null when it gives false.
template <typename Ask>
void DimensionsField(JsonWriter& w, const char* key, Ask&& ask)
{
    Guarded(
        w, key,
        [&] {
            std::pair<float, float> size;
            return ask(size.first, size.second) ? std::optional(size) : std::nullopt;
        },
        [&](const std::optional<std::pair<float, float>>& size) {
            if (!size) return w.Null();
            w.BeginArray(true);
            w.Float(size->first);
            w.Float(size->second);
            w.EndArray();
        });
}

} // namespace atomscan_tool
