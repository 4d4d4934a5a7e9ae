// The walk of the movie atom: which layouts make a movie, and what it lists.
#include <functional>

#include <gtest/gtest.h>

#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

// The child of `atom` at `path` ("mdia/minf/stbl"); the test fails without it.
Atom& At(Atom& atom, const std::string& path)
{
    Atom* cur = &atom;
    std::size_t start = 0;
    while (start < path.size()) {
        const std::size_t end = path.find('/', start);
        const std::string name = path.substr(start, end == std::string::npos ? std::string::npos : end - start);
        Atom* next = nullptr;
        for (Atom& c : cur->children)
            if (c.type == name) next = &c;
        if (!next) throw std::runtime_error("no atom " + path);
        cur = next;
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return *cur;
}

void Remove(Atom& parent, const std::string& type)
{
    auto& c = parent.children;
    c.erase(std::remove_if(c.begin(), c.end(), [&](const Atom& a) { return a.type == type; }), c.end());
}

Bytes FileWith(Atom moov) { return Concat({Atom("ftyp", ByteWriter().Code("qt  ")), moov}); }

struct WalkCase {
    const char* name;
    std::function<void(Atom& moov)> edit;
    QT::ResultCode code;
    std::uint32_t tracks; // when it opens
};

class WalkLayout : public ::testing::TestWithParam<WalkCase> {};

TEST_P(WalkLayout, OpensAsExpected)
{
    const WalkCase& c = GetParam();
    MovieSpec plan;
    plan.tracks.push_back(TrackSpec{});
    Atom moov = BuildMoov(plan);
    c.edit(moov);
    OpenResult r = OpenBytes(FileWith(moov));
    ASSERT_EQ(r.code, c.code);
    if (c.code == QT::kResultSuccess) {
        EXPECT_EQ(r.movie->GetTrackCount(), c.tracks);
    }
}

Atom& Trak(Atom& moov, std::size_t n)
{
    std::size_t seen = 0;
    for (Atom& a : moov.children)
        if (a.type == "trak" && seen++ == n) return a;
    throw std::runtime_error("no trak");
}

std::vector<WalkCase> WalkCases()
{
    using QT::kResultNotAMovie;
    using QT::kResultSuccess;
    return {
        {"two good tracks", [](Atom&) {}, kResultSuccess, 2},
        {"mvhd behind the tracks", [](Atom& m) { std::rotate(m.children.begin(), m.children.begin() + 1, m.children.end()); },
         kResultSuccess, 2},
        {"no mvhd", [](Atom& m) { Remove(m, "mvhd"); }, kResultNotAMovie, 0},
        {"no trak", [](Atom& m) { Remove(m, "trak"); }, kResultNotAMovie, 0},
        {"no tkhd", [](Atom& m) { Remove(Trak(m, 0), "tkhd"); }, kResultNotAMovie, 0},
        {"co64 instead of stco",
         [](Atom& m) {
             Atom& stbl = At(Trak(m, 0), "mdia/minf/stbl");
             Remove(stbl, "stco");
             stbl.children.push_back(Co64({0}));
         },
         kResultSuccess, 2},
        {"neither stco nor co64", [](Atom& m) { Remove(At(Trak(m, 1), "mdia/minf/stbl"), "stco"); }, kResultNotAMovie, 0},
        {"no stsd", [](Atom& m) { Remove(At(Trak(m, 0), "mdia/minf/stbl"), "stsd"); }, kResultNotAMovie, 0},
        {"no stsz", [](Atom& m) { Remove(At(Trak(m, 0), "mdia/minf/stbl"), "stsz"); }, kResultNotAMovie, 0},
        {"hdlr ahead of mdhd",
         [](Atom& m) {
             Atom& mdia = At(Trak(m, 0), "mdia");
             std::swap(mdia.children[0], mdia.children[1]);
         },
         kResultNotAMovie, 0},
        {"atom between mdhd and hdlr",
         [](Atom& m) {
             Atom& mdia = At(Trak(m, 0), "mdia");
             mdia.children.insert(mdia.children.begin() + 1, Atom("free", Bytes(4, 0)));
         },
         kResultNotAMovie, 0},
        {"minf with one child",
         [](Atom& m) {
             Atom& minf = At(Trak(m, 1), "mdia/minf");
             minf.children.erase(minf.children.begin() + 1, minf.children.end());
         },
         kResultNotAMovie, 0},
        {"stbl ahead of dinf",
         [](Atom& m) {
             Atom& minf = At(Trak(m, 0), "mdia/minf");
             std::swap(minf.children[1], minf.children[2]);
         },
         kResultSuccess, 2},
        {"elst with count 0", [](Atom& m) {
             Atom& t = Trak(m, 0);
             t.children.insert(t.children.begin() + 1, Atom("edts", std::vector<Atom>{Elst({})}));
         },
         kResultSuccess, 2},
        {"elst count beyond its atom",
         [](Atom& m) {
             Atom& t = Trak(m, 0);
             Atom elst("elst", ByteWriter().U32(0).U32(4).U32(100).U32(0).U32(0x10000));
             t.children.insert(t.children.begin() + 1, Atom("edts", std::vector<Atom>{elst}));
         },
         kResultNotAMovie, 0},
        {"elst count that overflows 32 bits",
         [](Atom& m) {
             Atom& t = Trak(m, 0);
             Atom elst("elst", ByteWriter().U32(0).U32(0x20000000).U32(100).U32(0).U32(0x10000));
             elst.size = 0xFFFFFFF0; // a size that would pass a wrapped product
             t.children.insert(t.children.begin() + 1, Atom("edts", std::vector<Atom>{elst}));
         },
         kResultNotAMovie, 0},
        {"garbage behind the last minf", [](Atom& m) {
             At(Trak(m, 1), "mdia").children.push_back(Atom("junk", Bytes(4, 0xFF)));
             Trak(m, 1).children.push_back(Atom("free", Bytes{0, 0, 0, 0}));
             m.children.push_back(Atom("wide"));
             m.children.back().size = 0xFFFFFF00;
         },
         kResultSuccess, 2},
        {"garbage behind an earlier minf hides later tracks", [](Atom& m) {
             Atom bad("junk", Bytes(4, 0));
             bad.size = 0; // the step stops here, before the next trak
             Trak(m, 0).children.push_back(bad);
         },
         kResultSuccess, 1},
        {"a last trak too short to enter", [](Atom& m) {
             m.children.push_back(Atom("trak"));
         },
         kResultSuccess, 2},
        {"a second track that is incomplete", [](Atom& m) {
             Remove(At(Trak(m, 1), "mdia/minf"), "dinf");
         },
         kResultNotAMovie, 0},
    };
}

INSTANTIATE_TEST_SUITE_P(Walk, WalkLayout, ::testing::ValuesIn(WalkCases()), [](const auto& info) {
    std::string n = info.param.name;
    for (char& ch : n)
        if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
    return n;
});

std::string Text(const Pelt::BinaryData& d)
{
    return d.Empty() ? std::string() : std::string(reinterpret_cast<const char*>(d.Data()), d.Size());
}

TEST(UserData, MovieAndTrackEntries)
{
    MovieSpec plan;
    plan.tracks[0].beforeMdia.push_back(Atom("udta", std::vector<Atom>{Atom("\xa9nam", Bytes{'x'})}));
    // A trailing `udta` of the movie behind the last track is read twice:
    // into the last track and into the movie.
    Atom udta("udta", std::vector<Atom>{Atom("name", Bytes{}), Atom("\xa9""cmt", Bytes{'a', 'b'}),
                                         Atom("name", Bytes{'n', 'm'})});
    udta.payload = {};
    Bytes trailer = udta.Serialize();
    trailer.insert(trailer.end(), {0, 0, 0, 0}); // the terminating zero of the format
    trailer[3] = static_cast<std::uint8_t>(trailer.size());
    Atom raw("udta", Bytes(trailer.begin() + 8, trailer.end()));
    plan.extraMoov.push_back(raw);
    OpenResult r = OpenSpec(plan);
    ASSERT_EQ(r.code, QT::kResultSuccess);

    ASSERT_EQ(r.movie->GetUserDataCount(), 3u);
    Pelt::BinaryData data;
    std::uint32_t type = 0;
    r.movie->GetUserData(0, data, type);
    EXPECT_EQ(type, QT::MakeFourCC("name"));
    EXPECT_TRUE(data.Empty());
    r.movie->GetUserData(1, data, type);
    EXPECT_EQ(Text(data), "ab");
    // The empty entry of the type is passed over for the later one.
    ASSERT_TRUE(r.movie->GetUserDataByType(QT::MakeFourCC("name"), data));
    EXPECT_EQ(Text(data), "nm");
    Pelt::BinaryData untouched(reinterpret_cast<const std::uint8_t*>("keep"), 4);
    EXPECT_FALSE(r.movie->GetUserDataByType(QT::MakeFourCC("none"), untouched));
    EXPECT_EQ(Text(untouched), "keep");
    EXPECT_THROW(r.movie->GetUserData(3, data, type), vellum::config::Error);

    auto track = r.movie->GetIndTrack(0);
    // A `udta` ahead of `mdia` is not the track's.
    EXPECT_FALSE(track->GetTrackUserDataItem(QT::MakeFourCC("\xa9nam"), data));
    ASSERT_TRUE(track->GetTrackUserDataItem(QT::MakeFourCC("name"), data));
    EXPECT_TRUE(data.Empty()); // the first of the type, even when empty
}

TEST(UserData, SmallUdtaAndShortChildren)
{
    MovieSpec plan;
    plan.extraMoov.push_back(Atom("udta"));
    OpenResult r = OpenSpec(plan);
    ASSERT_EQ(r.code, QT::kResultSuccess);
    EXPECT_EQ(r.movie->GetUserDataCount(), 0u);

    // A child of exactly 8 bytes that ends the `udta` is not seen by the parser.
    MovieSpec spec2;
    spec2.extraMoov.push_back(Atom("udta", std::vector<Atom>{Atom("aaaa", Bytes{1}), Atom("bbbb")}));
    r = OpenSpec(spec2);
    ASSERT_EQ(r.code, QT::kResultSuccess);
    EXPECT_EQ(r.movie->GetUserDataCount(), 1u);

    // A child with a size of 1 to 7 makes no entry; the step goes on behind it.
    MovieSpec spec3;
    spec3.extraMoov.push_back(Atom("udta", ByteWriter().U32(4).Code("xxxx").U32(13).Code("cccc").U8(7).U8(0).U8(0).U8(0)));
    r = OpenSpec(spec3);
    ASSERT_EQ(r.code, QT::kResultSuccess);
    EXPECT_EQ(r.movie->GetUserDataCount(), 0u);
}

TEST(ChildAtom, FindsDirectChildrenFromTheBytes)
{
    MovieSpec plan;
    plan.extraMoov.push_back(Atom("uuid", Bytes{1, 2, 3}));
    plan.extraMoov.push_back(Atom("free"));
    OpenResult r = OpenSpec(plan);
    ASSERT_EQ(r.code, QT::kResultSuccess);
    Pelt::BinaryData data;
    ASSERT_EQ(r.movie->GetChildAtom(QT::MakeFourCC("mvhd"), data), 0u);
    EXPECT_EQ(data.Size(), 100u);
    ASSERT_EQ(r.movie->GetChildAtom(QT::MakeFourCC("uuid"), data), 0u);
    EXPECT_EQ(data.Size(), 3u);
    EXPECT_EQ(data.Data()[2], 3);
    // An 8-byte atom at the very end is not seen.
    EXPECT_EQ(r.movie->GetChildAtom(QT::MakeFourCC("free"), data), QT::kResultNotFound);
    EXPECT_EQ(r.movie->GetChildAtom(QT::MakeFourCC("abcd"), data), QT::kResultNotFound);
    EXPECT_EQ(data.Size(), 3u);
    EXPECT_EQ(r.movie->GetMovieAtomSize(), BuildMoov(plan).Serialize().size());
}

TEST(BinaryData, NullAndOwnership)
{
    Pelt::BinaryData fromNull(nullptr, 100);
    EXPECT_TRUE(fromNull.Empty());
    const std::uint8_t byte = 1;
    EXPECT_THROW(Pelt::BinaryData(&byte, 0), vellum::config::Error);
    Pelt::BinaryData kept;
    {
        MovieSpec plan;
        plan.extraMoov.push_back(Atom("udta", std::vector<Atom>{Atom("abcd", Bytes{9, 8})}));
        OpenResult r = OpenSpec(plan);
        ASSERT_EQ(r.code, QT::kResultSuccess);
        ASSERT_TRUE(r.movie->GetUserDataByType(QT::MakeFourCC("abcd"), kept));
    }
    ASSERT_EQ(kept.Size(), 2u); // outlives the movie and its store
    EXPECT_EQ(kept.Data()[1], 8);
}

TEST(Contract, ReportsConditionAndFunction)
{
    OpenResult r = OpenSpec(MovieSpec{});
    ASSERT_EQ(r.code, QT::kResultSuccess);
    try {
        r.movie->GetIndTrack(1);
        FAIL() << "no contract failure";
    } catch (const vellum::config::Error& e) {
        EXPECT_EQ(e.Condition(), "inWhichTrack < GetTrackCount()");
        EXPECT_EQ(e.Function(), "QT::QTMovie::GetIndTrack");
        EXPECT_EQ(e.File(), "Src/QTMovie.cpp");
        EXPECT_STREQ(e.what(), "$$$/vellum/utility/Error/Contract/InputContractViolation=An input contract violation has occurred!");
    }
}

} // namespace
