// Repairing chunk offsets in place: which entries are mended, to what, and
// that nothing else in the file changes. Every check compares whole files.
#include <gtest/gtest.h>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Inc/IQTMovieFixer.h"
#include "Tests/Support/TrackOpener.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kFileSize = 0x10000; // of every built movie below
const std::vector<std::uint64_t> kDamaged = {0x100, 0x05000200, 0x300}, kMended = {0x100, 0x200, 0x300};

struct Repair { Bytes after; bool written; }; // written: at all, even with the bytes it held

// Repairs the file, whose modification time is set a day back first.
Repair Fix(const fs::path& path)
{
    const auto dayAgo = fs::file_time_type::clock::now() - std::chrono::hours(24);
    fs::last_write_time(path, dayAgo);
    EXPECT_EQ(QT::MakeFixer()->FixMovie(ToString16(path.string())), QT::kResultSuccess);
    return {ReadFile(path), fs::last_write_time(path) > dayAgo + std::chrono::hours(1)};
}
Repair Fix(const Bytes& bytes) { return Fix(TempFile(bytes).Path()); }

TrackSpec Track(const char* media, std::vector<std::uint64_t> offsets, bool wide = false, std::uint32_t flags = 1)
{
    TrackSpec t;
    t.mediaType = media;
    t.flags = flags;
    if (wide) t.co64 = offsets;
    else t.stco.assign(offsets.begin(), offsets.end());
    return t;
}

// The movie of the tracks padded to kFileSize. The layout does not depend on
// the values in the tables, so the movie built with the mended values is the
// expected file.
Bytes Sized(std::vector<TrackSpec> tracks)
{
    MovieSpec plan;
    plan.tracks = std::move(tracks);
    return BuildMovieFile(plan, Bytes(kFileSize - BuildMovieFile(plan).size(), 0));
}

TEST(FixMovie, MendsOnlyDamagedEntries)
{
    constexpr std::uint64_t F = kFileSize;
    const struct { const char* name; bool wide; std::vector<std::uint64_t> stored, mended; bool written; } cases[] = {
        {"equal to the file size is sound", false, {F, 0x200, 0x300}, {F, 0x200, 0x300}, false},
        {"the last entry is left alone", false, {0x100, 0x200, 0x7F000300}, {0x100, 0x200, 0x7F000300}, false},
        {"one entry", false, {0xFF000000}, {0xFF000000}, false},
        {"no entry", false, {}, {}, false},
        {"top byte cleared", false, kDamaged, kMended, true},
        {"two bytes cleared", false, {0x100, 0x12345678, 0x6000}, {0x100, 0x5678, 0x6000}, true},
        {"not above the next: written back as it is", false, {0x100, 0x20000, 0x30000}, {0x100, 0x20000, 0x30000}, true},
        {"judged by the stored next", false, {0x100, 0x01000200, 0x02000300, 0x400}, {0x100, 0x01000200, 0x300, 0x400}, true},
        {"no mask low enough: the low byte", false, {0x500, 0x7F123456, 0x10}, {0x500, 0x56, 0x10}, true},
        {"64-bit, top byte", true, {0x100, 0xAB00000000000200, 0x300}, kMended, true},
        {"64-bit, upper half", true, {0x100, 0x0000000100000200, 0x300}, kMended, true},
        {"64-bit, the low byte", true, {0x500, 0xFFFFFFFFFFFFFF56, 0x10}, {0x500, 0x56, 0x10}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Repair r = Fix(Sized({Track("vide", c.stored, c.wide)}));
        EXPECT_EQ(r.after, Sized({Track("vide", c.mended, c.wide)}));
        EXPECT_EQ(r.written, c.written);
    }
}

TEST(FixMovie, OnlyTheTableOfTheFirstEnabledVideoTrack)
{
    auto tracks = [](const std::vector<std::uint64_t>& chosen) {
        return Sized({Track("soun", kDamaged), Track("vide", kDamaged, false, 0), Track("vide", chosen), Track("vide", kDamaged)});
    };
    EXPECT_EQ(Fix(tracks(kDamaged)).after, tracks(kMended));
    // With both tables, `co64` is mended and `stco` beside it is not.
    auto both = [](const std::vector<std::uint64_t>& wide) {
        TrackSpec t = Track("vide", wide, true);
        t.extraStbl.push_back(Stco({0x100, 0x05000200, 0x300}));
        return Sized({t});
    };
    EXPECT_EQ(Fix(both({0x100, 0x0A00000000000200, 0x300})).after, both(kMended));
}

// The repair object's step (guard 8) sees an 8-byte atom that ends its parent,
// which the parser's (guard 9) does not: here, the movie header.
TEST(FixMovie, SeesAnEightByteMovieHeaderAtTheEnd)
{
    auto file = [](const std::vector<std::uint64_t>& v) {
        const Atom moov("moov", std::vector<Atom>{BuildTrak(Track("vide", v)), Atom("mvhd")});
        return Concat({moov, Atom("mdat", Bytes(kFileSize - moov.Serialize().size() - 8, 0))});
    };
    TempFile parsed(file(kDamaged));
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    EXPECT_EQ(QT::MakeParser()->OpenMovie(parsed.Path16(), movie), QT::kResultNotAMovie);
    EXPECT_EQ(Fix(parsed.Path()).after, file(kMended));
}

// Files left untouched: no enabled video track, no movie, a table whose count
// runs past its atom (also where the bytes behind it lie inside the copy).
TEST(FixMovie, NothingWrittenWhereNothingCanBeMended)
{
    TrackSpec video = Track("vide", kDamaged);
    video.extraStbl.push_back(Atom("free", Bytes(16, 0)));
    const Bytes good = Sized({video});
    auto at = [&](const char* type) { return std::search(good.begin(), good.end(), type, type + 4) - good.begin(); };
    std::vector<Bytes> files = {Sized({Track("soun", kDamaged)}), Sized({Track("vide", kDamaged, false, 0)}), good,
                                Bytes{0, 0, 0, 7, 'f', 'r'}};
    files[2][at("mvhd")] = 'x';
    for (std::uint32_t count : {4u, 0x40000000u, 0xFFFFFFFFu}) {
        files.push_back(good);
        for (int i = 0; i < 4; ++i) files.back()[at("stco") + 8 + i] = static_cast<std::uint8_t>(count >> (24 - 8 * i));
    }
    for (const Bytes& bytes : files) {
        const Repair r = Fix(bytes);
        EXPECT_EQ(r.after, bytes);
        EXPECT_FALSE(r.written);
    }
    const fs::path gone = TempFile(Bytes{}).Path();
    EXPECT_EQ(QT::MakeFixer()->FixMovie(ToString16(gone.string())), QT::kResultSuccess);
    EXPECT_FALSE(fs::exists(gone));
}

// Offset and count of the first chunk offset table in a corpus movie's bytes.
std::pair<std::size_t, std::uint32_t> FirstTable(const Bytes& file, const char* type)
{
    const std::size_t at = std::search(file.begin(), file.end(), type, type + 4) - file.begin();
    return {at + 12, (std::uint32_t{file.at(at + 10)} << 8) | file.at(at + 11)};
}

TEST(FixMovieCorpus, FaultyWriterDamageIsUndoneExactly)
{
    for (const auto& [name, type] : {std::pair{"h264_bframes_aac", "stco"}, {"co64_faststart", "co64"}, {"layout_faststart", "stco"}}) {
        SCOPED_TRACE(name);
        const Bytes original = ReadFile(CorpusPath(name));
        const auto [offset, count] = FirstTable(original, type);
        const std::size_t width = type[0] == 'c' ? 8 : 4;
        ASSERT_GT(count, 4u);
        // Garbage in a high-order byte of every third entry but the last.
        Bytes damaged = original;
        for (std::uint32_t i = 1; i + 1 < count; i += 3) damaged[offset + i * width + (width == 8 && i % 2 ? 3 : 0)] = 0x80 | i;
        EXPECT_EQ(Fix(damaged).after, original);
    }
    // Entry 10 is judged by the stored value of entry 11, which is damaged and
    // larger, so it stays; entry 1291 is the last and stays too.
    const Bytes damaged = ReadFile(CorpusPath("damaged_stco_topbyte_edges")), original = ReadFile(CorpusPath("long_60s_lowres"));
    const std::size_t table = FirstTable(original, "stco").first;
    Bytes expected = damaged;
    for (std::size_t at : {table + 4 * 11, table + 4 * 500}) std::copy_n(original.begin() + at, 4, expected.begin() + at);
    EXPECT_EQ(Fix(damaged).after, expected);
}

} // namespace
