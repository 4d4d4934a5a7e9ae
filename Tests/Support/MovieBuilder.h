// Builds movie files atom by atom, so each test makes exactly the movie it needs.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "Inc/AtomscanTypes.h"

namespace testsupport {

using Bytes = std::vector<std::uint8_t>;

// Big-endian byte writer.
class ByteWriter {
public:
    ByteWriter& U8(std::uint32_t v) { mBytes.push_back(static_cast<std::uint8_t>(v)); return *this; }
    ByteWriter& U16(std::uint32_t v) { return U8(v >> 8).U8(v); }
    ByteWriter& U32(std::uint32_t v) { return U16(v >> 16).U16(v); }
    ByteWriter& U64(std::uint64_t v) { return U32(static_cast<std::uint32_t>(v >> 32)).U32(static_cast<std::uint32_t>(v)); }
    ByteWriter& F64(double v);
    ByteWriter& Code(const char* fourcc); // four characters
    ByteWriter& Raw(const Bytes& b) { mBytes.insert(mBytes.end(), b.begin(), b.end()); return *this; }
    ByteWriter& Text(const std::string& s) { return Raw(Bytes(s.begin(), s.end())); }
    ByteWriter& Zeros(std::size_t n) { return Raw(Bytes(n, 0)); }
    const Bytes& Get() const { return mBytes; }
    Bytes Take() { return std::move(mBytes); }
    operator Bytes() const { return mBytes; }

private:
    Bytes mBytes;
};

// An atom: a type and either a payload or children (payload first, then
// children). `size` overrides the computed size field; `wide` writes the
// 64-bit size form.
struct Atom {
    std::string type;
    Bytes payload;
    std::vector<Atom> children;
    std::optional<std::uint32_t> size;
    bool wide = false;

    Atom(std::string t, Bytes p = {}, std::vector<Atom> c = {})
        : type(std::move(t)), payload(std::move(p)), children(std::move(c)) {}
    Atom(std::string t, std::vector<Atom> c) : type(std::move(t)), children(std::move(c)) {}
    Bytes Serialize() const;
};

// A table atom: version and flags 0, the entry count, then each entry's fields
// (a number, or a pair or array of them), 64-bit ones in 8 bytes, others in 4.
template <class Row> Atom Table(const char* type, const std::vector<Row>& rows)
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(rows.size()));
    const auto put = [&w](auto v) { sizeof v == 8 ? w.U64(v) : w.U32(static_cast<std::uint32_t>(v)); };
    for (const Row& r : rows) {
        if constexpr (std::is_arithmetic_v<Row>) put(r);
        else std::apply([&](auto... v) { (put(v), ...); }, r);
    }
    return Atom(type, w.Take());
}
inline Atom Stco(const std::vector<std::uint32_t>& offsets) { return Table("stco", offsets); }
inline Atom Ctts(const std::vector<std::pair<std::uint32_t, std::int32_t>>& entries) { return Table("ctts", entries); }
// `sdtp` with one flag byte per sample.
inline Atom Sdtp(const Bytes& flags) { return Atom("sdtp", ByteWriter().U32(0).Raw(flags)); }
Atom Stsz(std::uint32_t constantSize, const std::vector<std::uint32_t>& sizes, std::optional<std::uint32_t> count = {});
// `stsd` with the given descriptions (each a whole description, size field included).
Atom Stsd(const std::vector<Bytes>& descriptions);
// A description: size, format, 6 reserved bytes, data reference index 1, then `body`.
Bytes SampleDescription(const char* format, const Bytes& body);
Bytes HdlrPayload(const char* subtype);

// An image description: the fixed part of 86 bytes, then `extensions`.
struct ImageDescriptionPlan {
    std::string format = "avc1";
    std::string vendor = "appl";
    std::uint32_t temporalQuality = 0, spatialQuality = 0;
    std::uint16_t width = 320, height = 240;
    std::uint32_t dataSize = 0;
    std::string name{};                       // written with its length byte
    std::optional<std::uint8_t> nameLength{}; // replaces the length byte
    std::uint16_t depth = 24;
    std::uint16_t colorTableId = 0xffff;
    Bytes extensions{};                       // extension atoms, as bytes
    std::optional<std::uint32_t> size{};      // replaces the size field
};
Bytes ImageDescription(const ImageDescriptionPlan& plan);

// Key/value metadata: `keys` (the count may be set apart from them) and `ilst` items.
struct MetadataItem { std::int32_t keyIndex; std::uint32_t dataType; Bytes value; };
Atom Keys(const std::vector<std::string>& keys, std::optional<std::int32_t> count = {});
Atom Ilst(const std::vector<MetadataItem>& items);

// A track, described by its parts. Tables default to one sample in one chunk.
struct TrackPlan {
    std::string mediaType = "vide";
    std::uint32_t flags = 1; // enabled
    std::uint32_t duration = 100;
    std::int32_t width = 0, height = 0; // whole pixels
    std::uint32_t mediaTimeScale = 600;
    std::uint32_t mediaDuration = 100;
    std::optional<std::vector<std::array<std::uint32_t, 3>>> edits; // duration, media time, rate; with `edts` when set
    std::vector<Bytes> descriptions;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> stts = {{1, 100}}; // count, duration
    std::vector<std::array<std::uint32_t, 3>> stsc = {{1, 1, 1}};           // first chunk, samples per chunk, id
    std::uint32_t stszConstant = 0;
    std::vector<std::uint32_t> stszSizes = {10};
    std::vector<std::uint32_t> stco = {0};
    std::optional<std::vector<std::uint64_t>> co64; // replaces `stco` when set
    std::optional<std::vector<std::uint32_t>> stss;
    std::vector<Atom> extraStbl;            // more children of `stbl` (sdtp, ctts, ...)
    std::vector<Atom> replaceStbl;          // each replaces the built child of `stbl` of its type
    std::optional<Atom> dinf;               // replaces the self-contained `dinf`
    std::optional<std::string> hdlrSubtype; // replaces the subtype taken from mediaType
};
Atom BuildTrak(const TrackPlan& plan);

struct MoviePlan {
    std::uint32_t timeScale = 600;
    std::uint32_t duration = 100;
    std::vector<TrackPlan> tracks = {TrackPlan{}};
    std::vector<Atom> extraMoov; // more children of `moov` behind the tracks (udta, meta, ...)
};
Atom BuildMoov(const MoviePlan& plan);
// `ftyp`, the movie atom, and `mdat` with `mdatPayload` behind it.
Bytes BuildMovieFile(const MoviePlan& plan, const Bytes& mdatPayload = {});
// Any atoms in a row.
Bytes Concat(const std::vector<Atom>& atoms);

// A file in a fresh temporary directory, removed with the object.
class TempFile {
public:
    explicit TempFile(const Bytes& contents, const std::string& name = "movie.mov");
    ~TempFile();
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    const std::filesystem::path& Path() const { return mPath; }
    QT::String16 Path16() const;
    Bytes Read() const;

private:
    std::filesystem::path mDir, mPath;
};

QT::String16 ToString16(const std::string& utf8);
Bytes ReadFile(const std::filesystem::path& path);

// Where the project's test data lives.
std::filesystem::path TestDataDir();

} // namespace testsupport
