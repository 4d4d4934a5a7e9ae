// Repairing chunk offsets in place: which entries are mended, to what, and
// that nothing else in the file changes. Every check compares whole files.
#include <functional>

#include <gtest/gtest.h>

#include "Inc/IQTMovieFixer.h"
#include "Tests/Support/TrackOpener.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kFileSize = 0x10000; // of every built movie below
using Offsets = std::vector<std::uint64_t>;
const Offsets kDamaged = {0x100, 0x05000200, 0x300}, kMended = {0x100, 0x200, 0x300};

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

TrackSpec Track(const char* media, const Offsets& offsets, bool wide = false, std::uint32_t flags = 1)
{
    TrackSpec t;
    t.mediaType = media;
    t.flags = flags;
    t.stco.assign(offsets.begin(), offsets.end());
    if (wide) t.co64 = offsets;
    return t;
}

std::size_t Find(const Bytes& bytes, const char* type) { return std::search(bytes.begin(), bytes.end(), type, type + 4) - bytes.begin(); }

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
    const struct { const char* name; bool wide; Offsets stored, mended; bool written; } cases[] = {
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

// Each file holds the given offsets in the table that counts: mended files
// come out as built with the mended offsets, the others as they went in.
TEST(FixMovie, WhichTableIsMended)
{
    const auto withMvhdAtTheEnd = [](const Offsets& v) {
        const Atom moov("moov", std::vector<Atom>{BuildTrak(Track("vide", v)), Atom("mvhd")});
        return Concat({moov, Atom("mdat", Bytes(kFileSize - moov.Serialize().size() - 8, 0))});
    };
    const auto withCount = [](std::uint32_t count) {
        return [count](const Offsets& v) {
            TrackSpec video = Track("vide", v);
            video.extraStbl.push_back(Atom("free", Bytes(16, 0))); // bytes behind the table, inside the copy
            Bytes file = Sized({video});
            for (int i = 0; i < 4; ++i) file[Find(file, "stco") + 8 + i] = static_cast<std::uint8_t>(count >> (24 - 8 * i));
            return file;
        };
    };
    const std::tuple<const char*, std::function<Bytes(const Offsets&)>, bool> cases[] = {
        {"the first enabled video track", [](const Offsets& v) {
             return Sized({Track("soun", kDamaged), Track("vide", kDamaged, false, 0), Track("vide", v), Track("vide", kDamaged)});
         }, true},
        {"co64, and not stco beside it", [](const Offsets& v) {
             TrackSpec t = Track("vide", v, true);
             t.extraStbl.push_back(Stco({0x100, 0x05000200, 0x300}));
             return Sized({t});
         }, true},
        // The repair object's step (guard 8) sees an 8-byte atom that ends
        // its parent, which the parser's (guard 9) does not.
        {"a movie whose 8-byte mvhd ends it", withMvhdAtTheEnd, true},
        {"no movie", [](const Offsets& v) { Bytes b = Sized({Track("vide", v)}); b[Find(b, "mvhd")] = 'x'; return b; }, false},
        {"a count that runs past the table's atom", withCount(4), false},
        {"a count of 2^30", withCount(0x40000000), false},
        {"a count of 2^32-1", withCount(0xFFFFFFFF), false},
    };
    for (const auto& [name, file, mended] : cases) {
        SCOPED_TRACE(name);
        const Repair r = Fix(file(kDamaged));
        EXPECT_EQ(r.after, file(mended ? kMended : kDamaged));
        EXPECT_EQ(r.written, mended);
    }
    TempFile parsed(withMvhdAtTheEnd(kDamaged));
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    EXPECT_EQ(QT::MakeParser()->OpenMovie(parsed.Path16(), movie), QT::kResultNotAMovie);
    const fs::path gone = TempFile(Bytes{}).Path();
    EXPECT_EQ(QT::MakeFixer()->FixMovie(ToString16(gone.string())), QT::kResultSuccess);
    EXPECT_FALSE(fs::exists(gone)); // a missing file is not made
}

// Offset and count of the first chunk offset table in a corpus movie's bytes.
std::pair<std::size_t, std::uint32_t> FirstTable(const Bytes& file, const char* type)
{
    const std::size_t at = Find(file, type);
    std::uint32_t count = 0;
    for (std::size_t i = at + 8; i < at + 12; ++i) count = count << 8 | file.at(i);
    return {at + 12, count};
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
}

} // namespace
