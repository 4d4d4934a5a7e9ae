// Builds movie files atom by atom, so each test makes exactly the movie it needs.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
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
    ByteWriter& F64(double v)
    {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &v, sizeof bits);
        return U64(bits);
    }
    ByteWriter& Code(const char* fourcc)
    {
        if (std::strlen(fourcc) != 4) throw std::invalid_argument("four-character code expected");
        return Text(fourcc);
    }
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
    Atom Sized(std::optional<std::uint32_t> s) const { Atom a = *this; a.size = s; return a; } // a copy, size set
    Bytes Serialize() const;
};

// Any atoms in a row.
inline Bytes Concat(const std::vector<Atom>& atoms)
{
    ByteWriter w;
    for (const Atom& a : atoms) w.Raw(a.Serialize());
    return w.Take();
}

inline Bytes Atom::Serialize() const
{
    ByteWriter w;
    const Bytes body = ByteWriter().Raw(payload).Raw(Concat(children));
    if (wide) w.U32(size.value_or(1)).Code(type.c_str()).U64(body.size() + 16);
    else w.U32(size.value_or(static_cast<std::uint32_t>(body.size() + 8))).Code(type.c_str());
    return w.Raw(body).Take();
}

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
inline Atom Stsz(std::uint32_t constantSize, const std::vector<std::uint32_t>& sizes, std::optional<std::uint32_t> count = {})
{
    ByteWriter w;
    w.U32(0).U32(constantSize).U32(count.value_or(static_cast<std::uint32_t>(sizes.size())));
    for (std::uint32_t s : constantSize ? std::vector<std::uint32_t>{} : sizes) w.U32(s);
    return Atom("stsz", w.Take());
}
// `stsd` with the given descriptions (each a whole description, size field included).
inline Atom Stsd(const std::vector<Bytes>& descriptions)
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(descriptions.size()));
    for (const Bytes& d : descriptions) w.Raw(d);
    return Atom("stsd", w.Take());
}
// A description: size, format, 6 reserved bytes, data reference index 1, then `body`.
inline Bytes SampleDescription(const char* format, const Bytes& body)
{
    return ByteWriter().U32(static_cast<std::uint32_t>(16 + body.size())).Code(format).Zeros(6).U16(1).Raw(body);
}
inline Bytes HdlrPayload(const char* subtype) { return ByteWriter().U32(0).Code("mhlr").Code(subtype).Zeros(13); }

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
inline Bytes ImageDescription(const ImageDescriptionPlan& p)
{
    ByteWriter w; // resolutions 72 dpi, one frame
    w.U32(p.size.value_or(static_cast<std::uint32_t>(86 + p.extensions.size()))).Code(p.format.c_str()).Zeros(6).U16(1)
        .U32(0).Code(p.vendor.c_str()).U32(p.temporalQuality).U32(p.spatialQuality).U16(p.width).U16(p.height)
        .U32(0x480000).U32(0x480000).U32(p.dataSize).U16(1);
    Bytes name(32, 0);
    name[0] = p.nameLength.value_or(static_cast<std::uint8_t>(p.name.size()));
    std::copy_n(p.name.begin(), std::min<std::size_t>(p.name.size(), 31), name.begin() + 1);
    return w.Raw(name).U16(p.depth).U16(p.colorTableId).Raw(p.extensions);
}

// Key/value metadata: `keys` (the count may be set apart from them) and `ilst` items.
struct MetadataItem { std::int32_t keyIndex; std::uint32_t dataType; Bytes value; };
inline Atom Keys(const std::vector<std::string>& keys, std::optional<std::int32_t> count = {})
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(count.value_or(static_cast<std::int32_t>(keys.size()))));
    for (const std::string& k : keys) w.U32(static_cast<std::uint32_t>(8 + k.size())).Code("mdta").Text(k);
    return Atom("keys", w.Take());
}
inline Atom Ilst(const std::vector<MetadataItem>& items)
{
    ByteWriter w;
    for (const MetadataItem& i : items) {
        const auto size = static_cast<std::uint32_t>(i.value.size());
        w.U32(24 + size).U32(static_cast<std::uint32_t>(i.keyIndex)).U32(16 + size).Code("data").U32(i.dataType).U32(0)
            .Raw(i.value);
    }
    return Atom("ilst", w.Take());
}

// A track, described by its parts. Tables default to one sample in one chunk.
struct TrackPlan {
    std::string mediaType = "vide";
    std::uint32_t flags = 1; // enabled
    std::uint32_t duration = 100;
    std::int32_t width = 0, height = 0; // whole pixels
    std::uint32_t matrixW = 0x40000000;  // the matrix's w, 2.30 fixed point
    std::uint32_t mediaTimeScale = 600;
    std::uint32_t mediaDuration = 100;
    std::optional<std::vector<std::array<std::uint32_t, 3>>> edits{}; // duration, media time, rate; with `edts` when set
    std::vector<Bytes> descriptions{};
    std::vector<std::pair<std::uint32_t, std::uint32_t>> stts = {{1, 100}}; // count, duration
    std::vector<std::array<std::uint32_t, 3>> stsc = {{1, 1, 1}};           // first chunk, samples per chunk, id
    std::uint32_t stszConstant = 0;
    std::vector<std::uint32_t> stszSizes = {10};
    std::vector<std::uint32_t> stco = {0};
    std::optional<std::vector<std::uint64_t>> co64{}; // replaces `stco` when set
    std::optional<std::vector<std::uint32_t>> stss{};
    std::vector<Atom> extraStbl{};            // more children of `stbl` (sdtp, ctts, ...)
    std::vector<Atom> replaceStbl{};          // each replaces the built child of `stbl` of its type
    std::optional<Atom> dinf{};               // replaces the self-contained `dinf`
    std::optional<std::string> hdlrSubtype{}; // replaces the subtype taken from mediaType
};
// The identity matrix of `tkhd` and `mvhd` (w of 1 unless given).
inline ByteWriter& Identity(ByteWriter& m, std::uint32_t w = 0x40000000)
{
    return m.U32(0x10000).Zeros(12).U32(0x10000).Zeros(12).U32(w);
}
inline Atom BuildTrak(const TrackPlan& plan)
{
    ByteWriter tkhd; // flags, times, track id 1, duration, layer, group, volume, matrix, width, height
    tkhd.U32(plan.flags).Zeros(8).U32(1).U32(0).U32(plan.duration).Zeros(16);
    Identity(tkhd, plan.matrixW).U32(static_cast<std::uint32_t>(plan.width << 16)).U32(static_cast<std::uint32_t>(plan.height << 16));
    std::vector<Atom> trak{Atom("tkhd", tkhd.Take())};
    if (plan.edits) trak.emplace_back("edts", std::vector<Atom>{Table("elst", *plan.edits)});

    std::vector<Bytes> descriptions = plan.descriptions;
    if (descriptions.empty()) descriptions.push_back(SampleDescription("data", {}));
    std::vector<Atom> stbl{Stsd(descriptions), Table("stts", plan.stts)};
    if (plan.stss) stbl.push_back(Table("stss", *plan.stss));
    stbl.push_back(Table("stsc", plan.stsc));
    stbl.push_back(Stsz(plan.stszConstant, plan.stszSizes));
    stbl.push_back(plan.co64 ? Table("co64", *plan.co64) : Stco(plan.stco));
    stbl.insert(stbl.end(), plan.extraStbl.begin(), plan.extraStbl.end());
    for (const Atom& replacement : plan.replaceStbl)
        for (Atom& child : stbl)
            if (child.type == replacement.type) child = replacement;

    const Atom mediaHeader = plan.mediaType == "vide"   ? Atom("vmhd", ByteWriter().U32(1).Zeros(8))
                             : plan.mediaType == "soun" ? Atom("smhd", Bytes(8))
                                                        : Atom("gmhd");
    const Atom selfContained("dinf", {Atom("dref", ByteWriter().U32(0).U32(1), {Atom("alis", ByteWriter().U32(1))})});
    const Atom mdhd("mdhd", ByteWriter().Zeros(12).U32(plan.mediaTimeScale).U32(plan.mediaDuration).Zeros(4));
    const Atom hdlr("hdlr", HdlrPayload(plan.hdlrSubtype.value_or(plan.mediaType).c_str()));
    trak.emplace_back("mdia", std::vector<Atom>{
                                  mdhd, hdlr, Atom("minf", {mediaHeader, plan.dinf.value_or(selfContained), Atom("stbl", stbl)})});
    return Atom("trak", trak);
}

struct MoviePlan {
    std::uint32_t timeScale = 600;
    std::uint32_t duration = 100;
    std::vector<TrackPlan> tracks = {TrackPlan{}};
    std::vector<Atom> extraMoov{}; // more children of `moov` behind the tracks (udta, meta, ...)
};
inline Atom BuildMoov(const MoviePlan& plan)
{
    ByteWriter mvhd; // times, scale, duration, rate 1, volume 1, matrix, preview, poster, selection, current, next id
    mvhd.Zeros(12).U32(plan.timeScale).U32(plan.duration).U32(0x10000).U16(0x100).Zeros(10);
    std::vector<Atom> moov{Atom("mvhd", Identity(mvhd).Zeros(24).U32(2).Take())};
    for (const TrackPlan& t : plan.tracks) moov.push_back(BuildTrak(t));
    moov.insert(moov.end(), plan.extraMoov.begin(), plan.extraMoov.end());
    return Atom("moov", moov);
}
// `ftyp`, the movie atom, and `mdat` with `mdatPayload` behind it.
inline Bytes BuildMovieFile(const MoviePlan& plan, const Bytes& mdatPayload = {})
{
    return Concat({Atom("ftyp", ByteWriter().Code("qt  ").U32(0x200).Code("qt  ")), BuildMoov(plan),
                   Atom("mdat", mdatPayload)});
}
inline QT::String16 ToString16(const std::string& utf8) { return vellum::utility::UTF8to16(utf8, nullptr, nullptr); }

inline Bytes ReadFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A file in a fresh temporary directory, removed with the object.
class TempFile {
public:
    explicit TempFile(const Bytes& contents, const std::string& name = "movie.mov")
    {
        std::string dir = (std::filesystem::temp_directory_path() / "atomscan-test-XXXXXX").string();
        if (!::mkdtemp(dir.data())) throw std::runtime_error("mkdtemp failed");
        mDir = dir;
        mPath = mDir / name;
        std::ofstream out(mPath, std::ios::binary);
        out.write(reinterpret_cast<const char*>(contents.data()), static_cast<std::streamsize>(contents.size()));
        if (!out) throw std::runtime_error("cannot write " + mPath.string());
    }
    ~TempFile()
    {
        std::error_code ec;
        std::filesystem::remove_all(mDir, ec);
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    const std::filesystem::path& Path() const { return mPath; }
    QT::String16 Path16() const { return ToString16(mPath.string()); }
    Bytes Read() const { return ReadFile(mPath); }

private:
    std::filesystem::path mDir, mPath;
};


// Where the project's test data lives.
inline std::filesystem::path TestDataDir() { return ATOMSCAN_TEST_DATA_DIR; }

// A caption track of `format`: `sizes` spread evenly over `chunks`, 1001 apart at 30000 a second.
inline TrackPlan CaptionTrack(const char* format, std::vector<std::uint32_t> sizes, std::vector<std::uint32_t> chunks)
{
    const auto n = static_cast<std::uint32_t>(sizes.size());
    return {.mediaType = "clcp", .mediaTimeScale = 30000, .descriptions = {SampleDescription(format, {})},
            .stts = {{n, 1001}}, .stsc = {{1, n / static_cast<std::uint32_t>(chunks.size()), 1}}, .stszSizes = sizes,
            .stco = chunks};
}

// A timecode description: flags (1: drop frame), time scale, frame duration, frames a second, then `tail`.
inline Bytes TimecodeDescription(std::uint32_t flags, std::uint32_t scale, std::uint32_t ticks, std::uint8_t frames,
                                 const Bytes& tail = {})
{
    return SampleDescription("tmcd", ByteWriter().U32(0).U32(flags).U32(scale).U32(ticks).U8(frames).U8(0).Raw(tail));
}

// A timecode track of one 4-byte sample at `offset`.
inline TrackPlan TimecodeTrack(const Bytes& description, const char* subtype, std::uint32_t offset)
{
    return {.mediaType = "tmcd", .descriptions = {description}, .stszSizes = {4}, .stco = {offset},
            .hdlrSubtype = subtype};
}

// Sound descriptions, their extension atoms and sound tracks.

// Versions 0 and 1: version, revision, vendor, channels, sample size,
// compression id, packet size and 16.16 rate, then `packetFields` bytes (16 in
// version 1) and `extensions`.
inline Bytes SoundDescriptionV0(const char* format, std::uint16_t channels, std::uint16_t sampleSize,
                                std::uint32_t rate16_16, const std::vector<Atom>& extensions = {},
                                std::uint16_t version = 0, std::size_t packetFields = 0)
{
    return SampleDescription(format, ByteWriter().U16(version).U16(0).U32(0).U16(channels).U16(sampleSize).U32(0)
                                         .U32(rate16_16).Zeros(packetFields).Raw(Concat(extensions)));
}

// Version 1 at 48 kHz unless told otherwise: extensions at 52.
inline Bytes SoundDescriptionV1(const char* format, std::uint16_t channels, std::uint16_t sampleSize,
                                const std::vector<Atom>& extensions = {}, std::uint32_t rate16_16 = 48000u << 16)
{
    return SoundDescriptionV0(format, channels, sampleSize, rate16_16, extensions, 1, 16);
}

// Version 2: the legacy fields at their fixed values (3 channels, 16 bits,
// rate 1.0), the 0x7f000000 marker at 52, and `extensions` at 72. Flags: 1
// float, 2 big-endian, 4 signed integer.
inline Bytes SoundDescriptionV2(const char* format, double rate, std::uint32_t channels, std::uint32_t bits,
                                std::uint32_t flags, std::uint32_t bytesPerPacket = 0,
                                std::uint32_t framesPerPacket = 1, const std::vector<Atom>& extensions = {})
{
    return SampleDescription(format, ByteWriter().U16(2).U16(0).U32(0).U16(3).U16(16).U32(0).U32(0x10000).U32(72)
                                         .F64(rate).U32(channels).U32(0x7f000000).U32(bits).U32(flags)
                                         .U32(bytesPerPacket).U32(framesPerPacket).Raw(Concat(extensions)));
}

inline Atom Wave(std::vector<Atom> children) { return Atom("wave", std::move(children)); }
inline Atom Enda(std::uint16_t word) { return Atom("enda", ByteWriter().U16(word)); }

// `chan`: version/flags, layout tag, bitmap, count, then a 20-byte channel
// description per label.
inline Atom Chan(std::uint32_t tag, std::uint32_t bitmap, const std::vector<std::uint32_t>& labels = {})
{
    ByteWriter w;
    w.U32(0).U32(tag).U32(bitmap).U32(static_cast<std::uint32_t>(labels.size()));
    for (std::uint32_t label : labels) w.U32(label).Zeros(16);
    return Atom("chan", w.Take());
}

inline TrackPlan SoundTrack(std::vector<Bytes> descriptions)
{
    return {.mediaType = "soun", .mediaTimeScale = 48000, .descriptions = std::move(descriptions)};
}

inline std::string FourCCText(QT::FourCC c) { return {char(c >> 24), char(c >> 16), char(c >> 8), char(c)}; }

// `dinf`/`dref` atoms and their entries: `alis` records with a file name and tagged fields, `url ` and
// `hndl` entries.

// One `alis` record: the file name at 50, the tagged fields from 150; the
// rest of the fixed part is zero, as the reader skips it.
struct Alias {
    Alias(std::string name, std::vector<std::pair<std::int16_t, std::string>> tagged = {})
        : fileName(std::move(name)), tags(std::move(tagged)) {}
    std::string fileName;
    std::vector<std::pair<std::int16_t, std::string>> tags; // each tag and its text, in order
    bool closeTags = true;                                  // the closing tag -1
    std::uint8_t flags = 0;                                 // low byte of the entry's flags
    std::optional<std::uint8_t> fileNameLength;             // replaces the true length byte
};

// The whole `dref` entry: size, `alis`, version and flags, the record.
inline Bytes AliasEntry(const Alias& r)
{
    ByteWriter w; // the entry's size and the record's size are set below
    w.U32(0).Code("alis").U32(r.flags).U32(0).U16(0).Zeros(44);
    w.U8(r.fileNameLength.value_or(static_cast<std::uint8_t>(r.fileName.size()))).Text(r.fileName);
    w.Zeros(99 - r.fileName.size()); // the rest of the 63-byte name, then 36 bytes to the tags
    for (const auto& [tag, text] : r.tags) // text of odd length is padded to an even one
        w.U16(static_cast<std::uint16_t>(tag)).U16(static_cast<std::uint32_t>(text.size())).Text(text).Zeros(
            text.size() % 2);
    if (r.closeTags) w.U16(0xffff).U16(0);
    Bytes b = w.Take();
    for (int i = 0; i < 4; ++i) b[i] = static_cast<std::uint8_t>(b.size() >> (24 - 8 * i));
    b[16] = static_cast<std::uint8_t>((b.size() - 12) >> 8);
    b[17] = static_cast<std::uint8_t>(b.size() - 12);
    return b;
}

// An entry of any type with its data as given.
inline Bytes ReferenceEntry(const char* type, std::uint8_t flags, const Bytes& data = {},
                            std::optional<std::uint32_t> size = {})
{
    const std::uint32_t stored = size.value_or(static_cast<std::uint32_t>(12 + data.size()));
    return ByteWriter().U32(stored).Code(type).U32(flags).Raw(data);
}

// A `hndl` entry: 5 unread bytes, then an inner `data` atom holding `payload`.
inline Bytes HandleEntry(const Bytes& payload, std::optional<std::uint32_t> innerSize = {},
                         const char* innerType = "data", std::optional<std::uint32_t> entrySize = {})
{
    const std::uint32_t inner = innerSize.value_or(static_cast<std::uint32_t>(8 + payload.size()));
    return ReferenceEntry("hndl", 0, ByteWriter().Zeros(5).U32(inner).Code(innerType).Raw(payload), entrySize);
}

// `dinf` holding a `dref` with `entries`; the count and the size of `dref` may be set apart from them.
inline Atom DataInformation(const std::vector<Bytes>& entries, std::optional<std::uint32_t> count = {},
                            std::optional<std::uint32_t> drefSize = {})
{
    ByteWriter payload;
    payload.U32(0).U32(count.value_or(static_cast<std::uint32_t>(entries.size())));
    for (const Bytes& e : entries) payload.Raw(e);
    return Atom("dinf", {Atom("dref", payload.Take()).Sized(drefSize)});
}

} // namespace testsupport
