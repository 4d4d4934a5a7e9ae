// The walk of the movie atom: which layouts make a movie, how many tracks it
// lists, and the user data and child atoms it answers for.
#include <functional>

#include <gtest/gtest.h>

#include "Tests/Support/Open.h"

using namespace testsupport;
using QT::kResultNotAMovie;
using QT::kResultSuccess;

namespace {

// The n-th child of `parent` of the type; the test fails without it.
Atom& Child(Atom& parent, const std::string& type, std::size_t n = 0)
{
    for (Atom& a : parent.children)
        if (a.type == type && n-- == 0) return a;
    throw std::runtime_error("no " + type);
}
Atom& Mdia(Atom& moov, std::size_t track) { return Child(Child(moov, "trak", track), "mdia"); }
Atom& Minf(Atom& moov, std::size_t track) { return Child(Mdia(moov, track), "minf"); }
Atom& Stbl(Atom& moov, std::size_t track) { return Child(Minf(moov, track), "stbl"); }
void Remove(Atom& parent, const std::string& type) { std::erase_if(parent.children, [&](const Atom& a) { return a.type == type; }); }
// An edit list of `count` entries with room for one, in the first track.
void AddEdits(Atom& moov, std::uint32_t count, std::optional<std::uint32_t> size = {})
{
    Atom elst("elst", ByteWriter().U32(0).U32(count).U32(100).U32(0).U32(0x10000));
    elst.size = size;
    Child(moov, "trak").children.insert(Child(moov, "trak").children.begin() + 1, Atom("edts", std::vector<Atom>{elst}));
}

TEST(Walk, LayoutsOfTwoTracks)
{
    const struct { const char* name; std::function<void(Atom&)> edit; QT::ResultCode code; std::uint32_t tracks; } cases[] = {
        {"mvhd behind the tracks", [](Atom& m) { std::rotate(m.children.begin(), m.children.begin() + 1, m.children.end()); }, kResultSuccess, 2},
        {"no mvhd", [](Atom& m) { Remove(m, "mvhd"); }, kResultNotAMovie, 0},
        {"no tkhd", [](Atom& m) { Remove(Child(m, "trak"), "tkhd"); }, kResultNotAMovie, 0},
        {"co64 instead of stco", [](Atom& m) { Child(Stbl(m, 0), "stco") = Co64({0}); }, kResultSuccess, 2},
        {"an incomplete second track", [](Atom& m) { Remove(Stbl(m, 1), "stco"); }, kResultNotAMovie, 0},
        {"hdlr ahead of mdhd", [](Atom& m) { std::swap(Mdia(m, 0).children[0], Mdia(m, 0).children[1]); }, kResultNotAMovie, 0},
        {"atom between mdhd and hdlr", [](Atom& m) { auto& c = Mdia(m, 0).children; c.insert(c.begin() + 1, Atom("free", Bytes(4))); }, kResultNotAMovie, 0},
        {"stbl ahead of dinf", [](Atom& m) { std::swap(Minf(m, 0).children[1], Minf(m, 0).children[2]); }, kResultSuccess, 2},
        {"elst count beyond its atom", [](Atom& m) { AddEdits(m, 4); }, kResultNotAMovie, 0},
        // A size that a product wrapped at 32 bits would let pass.
        {"elst count that overflows 32 bits", [](Atom& m) { AddEdits(m, 0x20000000, 0xFFFFFFF0); }, kResultNotAMovie, 0},
        {"garbage behind the last minf", [](Atom& m) {
             Mdia(m, 1).children.push_back(Atom("junk", Bytes(4, 0xFF)));
             m.children.push_back(Atom("wide"));
             m.children.back().size = 0xFFFFFF00;
         }, kResultSuccess, 2},
        // The step stops at an atom of size 0, before the next trak.
        {"garbage behind an earlier minf hides later tracks", [](Atom& m) {
             Child(m, "trak").children.push_back(Atom("junk", Bytes(4)));
             Child(m, "trak").children.back().size = 0;
         }, kResultSuccess, 1},
        {"a last trak too short to enter", [](Atom& m) { m.children.push_back(Atom("trak")); }, kResultSuccess, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        MovieSpec plan;
        plan.tracks.push_back(TrackSpec{});
        Atom moov = BuildMoov(plan);
        c.edit(moov);
        const OpenResult r = OpenBytes(Concat({Atom("ftyp", ByteWriter().Code("qt  ")), moov}));
        ASSERT_EQ(r.code, c.code);
        if (r.movie) EXPECT_EQ(r.movie->GetTrackCount(), c.tracks);
    }
}

std::string Text(const Pelt::BinaryData& d) { return d.Empty() ? "" : std::string(d.Data(), d.Data() + d.Size()); }

// The parser's step (guard 9) does not see an 8-byte atom that ends its parent.
TEST(UserData, MovieAndTrackEntries)
{
    MovieSpec plan;
    // A `udta` ahead of `mdia` is not the track's.
    plan.tracks[0].beforeMdia.push_back(Atom("udta", std::vector<Atom>{Atom("\xa9nam", Bytes{'x'})}));
    // The movie's `udta` behind the last track is read into that track too. A
    // child of 1 to 7 bytes makes no entry and is stepped over.
    const Bytes head = Concat({Atom("name"), Atom("\xa9""cmt", Bytes{'a', 'b'})});
    const Bytes tail = Concat({Atom("name", Bytes{'n', 'm'}), Atom("last")});
    plan.extraMoov = {Atom("udta", ByteWriter().Raw(head).U32(4).Raw(tail)), Atom("free")};
    OpenResult r = OpenSpec(plan);
    ASSERT_EQ(r.code, kResultSuccess);
    std::vector<std::pair<std::uint32_t, std::string>> entries(r.movie->GetUserDataCount());
    Pelt::BinaryData data, kept;
    for (std::uint32_t i = 0; i < entries.size(); ++i) {
        r.movie->GetUserData(i, data, entries[i].first);
        entries[i].second = Text(data);
    }
    EXPECT_EQ(entries, (decltype(entries){{QT::MakeFourCC("name"), ""}, {QT::MakeFourCC("\xa9""cmt"), "ab"}, {QT::MakeFourCC("name"), "nm"}}));
    // By type an empty entry is passed over; nothing found leaves the data alone.
    ASSERT_TRUE(r.movie->GetUserDataByType(QT::MakeFourCC("name"), kept));
    EXPECT_FALSE(r.movie->GetUserDataByType(QT::MakeFourCC("none"), kept));
    auto track = r.movie->GetIndTrack(0);
    EXPECT_FALSE(track->GetTrackUserDataItem(QT::MakeFourCC("\xa9nam"), data));
    ASSERT_TRUE(track->GetTrackUserDataItem(QT::MakeFourCC("name"), data));
    EXPECT_TRUE(data.Empty()); // for a track, the first of the type even when empty
    ASSERT_EQ(r.movie->GetChildAtom(QT::MakeFourCC("mvhd"), data), kResultSuccess);
    EXPECT_EQ(data.Size(), 100u);
    EXPECT_EQ(r.movie->GetChildAtom(QT::MakeFourCC("free"), data), QT::kResultNotFound);
    r = OpenResult();
    EXPECT_EQ(Text(kept), "nm"); // a copy that outlives the movie
}

} // namespace
