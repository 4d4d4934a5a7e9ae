// Repairing chunk offsets in place: which entries are mended, to what, and
// that nothing else in the file changes. Every check compares whole files.

#include "Tests/Support/Open.h"

namespace fs = std::filesystem;

namespace {

using Offsets = std::vector<std::uint64_t>;
constexpr std::uint64_t F = 0x10000; // the size of every built movie below
const Offsets kDamaged = {0x100, 0x05000200, 0x300}, kMended = {0x100, 0x200, 0x300};

// The file after the repair, and whether it was written at all: its
// modification time is set a day back first.
std::pair<Bytes, bool> Fix(const Bytes& bytes)
{
    TempFile file(bytes);
    const auto dayAgo = fs::file_time_type::clock::now() - std::chrono::hours(24);
    fs::last_write_time(file.Path(), dayAgo);
    EXPECT_EQ(QT::MakeFixer()->FixMovie(file.Path16()), QT::kResultSuccess);
    return {file.Read(), fs::last_write_time(file.Path()) > dayAgo + std::chrono::hours(1)};
}

TrackPlan Track(const char* media, const Offsets& offsets, bool wide = false, std::uint32_t flags = 1)
{
    return {.mediaType = media, .flags = flags, .stco = std::vector<std::uint32_t>(offsets.begin(), offsets.end()),
            .co64 = wide ? std::optional(offsets) : std::nullopt};
}

// The movie padded to F bytes. Its layout does not depend on the values in the
// tables, so the movie built with the mended values is the expected file.
Bytes Sized(std::vector<TrackPlan> tracks)
{
    const MoviePlan plan{.tracks = std::move(tracks)};
    return BuildMovieFile(plan, Bytes(F - BuildMovieFile(plan).size(), 0));
}

// Builds a file whose table that counts holds the given offsets.
using Build = std::function<Bytes(const Offsets&)>;

// A count that runs past the table's atom marks a broken table, left alone
// even where the bytes behind it lie inside the copy.
Build WithCount(std::uint32_t count)
{
    return [count](const Offsets& v) {
        TrackPlan video = Track("vide", v);
        video.extraStbl.push_back(Atom("free", Bytes(16, 0)));
        Bytes file = Sized({video});
        std::copy_n(ByteWriter().U32(count).Get().begin(), 4, file.begin() + *HeaderAt(file, "stco", 0) + 12);
        return file;
    };
}

// The repair object's step (guard 8) sees an 8-byte atom that ends its
// parent, which the parser's (guard 9) does not: here, the movie header.
Bytes WithMvhdLast(const Offsets& v)
{
    const Atom moov("moov", std::vector<Atom>{BuildTrak(Track("vide", v)), Atom("mvhd")});
    return Concat({moov, Atom("mdat", Bytes(F - moov.Serialize().size() - 8, 0))});
}

TEST(FixMovie, MendsOnlyDamagedEntries)
{
    const std::tuple<const char*, Build, Offsets, Offsets, bool> cases[] = {
        {"the first enabled video track", [](const Offsets& v) {
             return Sized({Track("soun", kDamaged), Track("vide", kDamaged, false, 0), Track("vide", v),
                           Track("vide", kDamaged)});
         }, kDamaged, kMended, true},
        {"co64, and not stco beside it", [](const Offsets& v) {
             TrackPlan t = Track("vide", v, true);
             t.extraStbl.push_back(Stco({0x100, 0x05000200, 0x300}));
             return Sized({t});
         }, kDamaged, kMended, true},
        {"a movie whose 8-byte mvhd ends it", WithMvhdLast, kDamaged, kMended, true},
        {"no movie", [](const Offsets& v) {
             Bytes b = Sized({Track("vide", v)});
             b[*HeaderAt(b, "mvhd", 0) + 4] = 'x';
             return b;
         }, kDamaged, kDamaged, false},
        {"a count that runs past the table's atom", WithCount(4), kDamaged, kDamaged, false},
        {"a count of 2^30", WithCount(0x40000000), kDamaged, kDamaged, false},
        {"a count of 2^32-1", WithCount(0xFFFFFFFF), kDamaged, kDamaged, false},
    };
    for (const auto& [name, build, stored, mended, written] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Fix(build(stored)), std::pair(build(mended), written));
    }
    const nlohmann::json rows = DataRows("mended-offsets.json"); // one video track
    ASSERT_EQ(rows.size(), 11u);
    for (const nlohmann::json& r : rows) {
        SCOPED_TRACE(r[0].get<std::string>());
        const bool wide = r[1];
        const auto video = [wide](const nlohmann::json& v) { return Sized({Track("vide", v.get<Offsets>(), wide)}); };
        EXPECT_EQ(Fix(video(r[2])), std::pair(video(r[3]), r[4].get<bool>()));
    }
    EXPECT_EQ(OpenBytes(WithMvhdLast(kDamaged)).code, QT::kResultNotAMovie);
    const fs::path gone = TempFile(Bytes{}).Path();
    EXPECT_EQ(QT::MakeFixer()->FixMovie(ToString16(gone.string())), QT::kResultSuccess);
    EXPECT_FALSE(fs::exists(gone)); // a missing file is not made
}

// The entries at the place told, before and after the repair.
TEST(FixMovie, TellsWhereTheExaminedTableLies)
{
    const Offsets mine = {0x100, 0x05000200, 0x300, 0x400}, mended = {0x100, 0x200, 0x300, 0x400};
    const std::tuple<const char*, Bytes, bool, std::uint32_t, bool, std::uint32_t> cases[] = {
        {"stco", Sized({Track("vide", mine)}), true, 0, false, 4},
        {"co64 of the first enabled video track",
         Sized({Track("soun", kDamaged), Track("vide", kDamaged, false, 0), Track("vide", mine, true)}), true, 2, true,
         4},
        {"a movie the parser refuses", WithMvhdLast(mine), true, 0, false, 4},
        {"a count past the table's atom", WithCount(4)(kDamaged), true, 0, false, 0},
        {"no video track", Sized({Track("soun", mine)}), false, 0, false, 0},
        {"no movie", Bytes(64, 0), false, 0, false, 0},
    };
    for (const auto& [name, bytes, found, track, wide, count] : cases) {
        SCOPED_TRACE(name);
        TempFile file(bytes);
        QT::internal::RepairTablePlace place;
        place.count = 99;
        EXPECT_EQ(QT::internal::FixMovieAndLocate(file.Path16(), place), QT::kResultSuccess);
        EXPECT_EQ(std::tuple(place.found, place.track, place.wide, place.count), std::tuple(found, track, wide, count));
        if (count == 0) continue;
        const std::uint32_t width = wide ? 8 : 4;
        const auto entries = [&](const Bytes& b) {
            Offsets v(4);
            for (std::uint32_t i = 0; i < 4 * width; ++i) v[i / width] = v[i / width] << 8 | b.at(place.entriesOffset + i);
            return v;
        };
        EXPECT_EQ(entries(bytes), mine);
        EXPECT_EQ(entries(file.Read()), mended);
    }
}

} // namespace
