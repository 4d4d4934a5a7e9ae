// The track core: media types, header fields, matrix, bounds, the edit
// analysis, sample counts and sample descriptions.
#include <gtest/gtest.h>

#include "Src/QTTrack.h"
#include "Src/SampleTableCursors.h"
#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

QT::QTTrack* Core(const Tessel::InterfaceRef<QT::IQTTrack>& t) { return static_cast<QT::QTTrack*>(t.Get()); }

TEST(TrackMediaType, MapsTheHandlerSubtype)
{
    const std::pair<const char*, QT::FourCC> cases[] = {
        {"vide", QT::kVideoMediaType}, {"soun", QT::kAudioMediaType}, {"tmcd", QT::kTimecodeMediaType},
        {"tc64", QT::kTimecodeMediaType}, {"text", QT::kTextMediaType}, {"clcp", QT::kClosedCaptionMediaType},
        {"sbtl", QT::kUnknownMediaType}, {"meta", QT::kUnknownMediaType},
    };
    for (const auto& [subtype, expected] : cases) {
        MovieSpec plan;
        plan.tracks[0].hdlrSubtype = subtype;
        auto track = TrackOf(plan);
        ASSERT_TRUE(track);
        EXPECT_EQ(track->GetTrackMediaType(), expected) << subtype;
    }
}

TEST(TrackHeader, FlagsDimensionsDurations)
{
    MovieSpec plan;
    TrackSpec& t = plan.tracks[0];
    t.flags = 0xE; // bit 0 clear
    t.width = 1920;
    t.height = 1080;
    t.duration = 1234;
    t.mediaTimeScale = 48000;
    auto track = TrackOf(plan);
    ASSERT_TRUE(track);
    EXPECT_FALSE(track->IsTrackEnabled());
    QT::QTRect r{1, 1, 1, 1};
    track->GetTrackDimensions(r);
    EXPECT_EQ(r.left, 0);
    EXPECT_EQ(r.top, 0);
    EXPECT_EQ(r.right, 1920);
    EXPECT_EQ(r.bottom, 1080);
    EXPECT_EQ(track->GetTrackDuration(), 1234u);
    EXPECT_EQ(track->GetMediaTimeScale(), 48000u);
    EXPECT_EQ(track->GetTrackDurationInMediaTimeScale(), 1234u * 48000 / 600);
    EXPECT_EQ(track->GetSampleDescriptionCount(), 1);
}

TEST(TrackMatrix, RightAngles)
{
    struct Case {
        std::vector<std::uint32_t> matrix; // a b u c d v x y w
        bool identity, identity2D, rightAngle;
        std::uint32_t rotation;
    };
    const Case cases[] = {
        {{0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000}, true, true, true, 0},
        {{0, 0xffff0000, 0, 0x10000, 0, 0, 0, 0, 0x40000000}, false, false, true, 1},
        {{0xffff0000, 0, 0, 0, 0xffff0000, 0, 0, 0, 0x40000000}, false, false, true, 2},
        {{0, 0x10000, 0, 0xffff0000, 0, 0, 100, 200, 0x40000000}, false, false, true, 3},
        {{0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x20000000}, false, true, false, 0},
        {{0x20000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000}, false, false, false, 0},
    };
    for (const Case& c : cases) {
        MovieSpec plan;
        plan.tracks[0].matrix = c.matrix;
        auto track = TrackOf(plan);
        ASSERT_TRUE(track);
        EXPECT_EQ(track->IsTrackMatrixIdentity(), c.identity);
        EXPECT_EQ(track->IsTrackMatrixIdentity2D(), c.identity2D);
        EXPECT_EQ(track->IsTrackMatrixRightAngle(), c.rightAngle);
        EXPECT_EQ(track->GetTrackMatrixRotation(), c.rotation);
    }
}

TEST(MovieBounds, UnionOfTracksAndOrigin)
{
    MovieSpec plan;
    plan.tracks[0].width = 1920;
    plan.tracks[0].height = 1080;
    TrackSpec sound;
    sound.mediaType = "soun";
    TrackSpec negative;
    negative.width = -50;
    negative.height = 2000;
    plan.tracks.push_back(sound);
    plan.tracks.push_back(negative);
    OpenResult r = OpenSpec(plan);
    ASSERT_EQ(r.code, QT::kResultSuccess);
    QT::QTRect b;
    r.movie->GetBounds(b);
    EXPECT_EQ(b.left, 0);
    EXPECT_EQ(b.top, 0);
    EXPECT_EQ(b.right, 1920);
    EXPECT_EQ(b.bottom, 2000);

    MovieSpec empty;
    empty.tracks[0].mediaType = "soun";
    r = OpenSpec(empty);
    ASSERT_EQ(r.code, QT::kResultSuccess);
    r.movie->GetBounds(b);
    EXPECT_EQ(b.right, 0);
    EXPECT_EQ(b.bottom, 0);
}

struct EditCase {
    const char* name;
    std::string mediaType;
    std::uint32_t movieScale, mediaScale, tkhdDuration, mediaDuration;
    std::optional<std::vector<std::array<std::uint32_t, 3>>> edits;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> stts;
    // Expected:
    std::uint32_t editMediaTime, firstSample, firstSampleDuration, editDuration, editSampleCount;
    bool simpleAnyRate, simpleUnitRate, trimmed;
};

class EditAnalysis : public ::testing::TestWithParam<EditCase> {};

TEST_P(EditAnalysis, ReducesTheEditList)
{
    const EditCase& c = GetParam();
    MovieSpec plan;
    plan.timeScale = c.movieScale;
    TrackSpec& t = plan.tracks[0];
    t.mediaType = c.mediaType;
    t.mediaTimeScale = c.mediaScale;
    t.duration = c.tkhdDuration;
    t.mediaDuration = c.mediaDuration;
    t.edits = c.edits;
    t.stts = c.stts;
    auto track = TrackOf(plan);
    ASSERT_TRUE(track);
    QT::QTTrack* core = Core(track);
    EXPECT_EQ(core->EditMediaTime(), c.editMediaTime);
    EXPECT_EQ(core->EditFirstSample(), c.firstSample);
    EXPECT_EQ(core->EditFirstSampleDuration(), c.firstSampleDuration);
    EXPECT_EQ(core->EditDuration(), c.editDuration);
    EXPECT_EQ(track->GetEditSampleCount(), c.editSampleCount);
    EXPECT_EQ(track->GetEditSampleCount(), c.editSampleCount); // cached or recomputed alike
    EXPECT_EQ(track->HasSimpleEditList(false), c.simpleAnyRate);
    EXPECT_EQ(track->HasSimpleEditList(true), c.simpleUnitRate);
    EXPECT_EQ(track->IsTrackTrimmed(), c.trimmed);
    EXPECT_EQ(track->GetEditMediaTime(), c.editMediaTime);
}

using Edits = std::vector<std::array<std::uint32_t, 3>>;
constexpr std::uint32_t kUnit = 0x10000;

// The sample counts follow the counting rule as it stands: its end is the
// media time plus the edit's length, so a cut at the head does not shorten it.
const EditCase kEditCases[] = {
    {"no edit", "vide", 600, 600, 1000, 1000, std::nullopt, {{10, 100}}, 0, 0, 0, 1000, 10, true, true, false},
    {"no edit, media scale doubled", "vide", 600, 1200, 500, 1000, std::nullopt, {{10, 100}}, 0, 0, 0, 1000, 10, true, true, false},
    {"no edit, durations differ", "vide", 600, 600, 900, 1000, std::nullopt, {{10, 100}}, 0, 0, 0, 900, 9, true, true, true},
    {"edit at 0, first entry empty", "vide", 600, 600, 1000, 1000, Edits{{1000, 0, kUnit}}, {{0, 50}, {10, 100}},
     0, 0, 100, 1000, 10, true, true, false},
    {"edit inside a sample", "vide", 600, 600, 400, 1000, Edits{{400, 250, kUnit}}, {{10, 100}}, 250, 2, 50, 400, 7, true, true, true},
    {"edit on a boundary", "vide", 600, 600, 400, 1000, Edits{{400, 200, kUnit}}, {{10, 100}}, 200, 2, 100, 400, 6, true, true, true},
    {"edit, media scale doubled", "vide", 600, 1200, 400, 2000, Edits{{400, 250, kUnit}}, {{10, 100}}, 250, 2, 50, 800, 8, true, true, true},
    {"sound edit", "soun", 600, 600, 1000, 48000, Edits{{1000, 1000, kUnit}}, {{48000, 1}}, 1000, 1000, 1, 1000, 2000, true, true, true},
    {"edit past the end", "vide", 600, 600, 100, 1000, Edits{{100, 5050, kUnit}}, {{10, 100}}, 5050, 50, 50, 100, 10, true, true, true},
    {"last duration 0", "vide", 600, 600, 100, 500, Edits{{100, 1000, kUnit}}, {{5, 100}, {3, 0}}, 1000, 8, 0, 100, 8, true, true, true},
    {"negative duration stops", "vide", 600, 600, 100, 500, Edits{{100, 10, kUnit}}, {{5, 0xFFFFFFF0}}, 10, 0, 0, 100, 5, true, true, true},
    {"two edits", "vide", 600, 1200, 700, 1000, Edits{{100, 0xFFFFFFFF, kUnit}, {600, 0, kUnit}}, {{10, 100}},
     0, 0, 0, 700, 7, false, false, true},
    {"half rate", "vide", 600, 600, 1000, 1000, Edits{{1000, 0, 0x8000}}, {{10, 100}}, 0, 0, 100, 1000, 10, true, false, true},
    {"edit over empty stts", "vide", 600, 600, 1000, 1000, Edits{{500, 250, kUnit}}, {}, 0, 0, 0, 1000, 0, true, true, false},
};

INSTANTIATE_TEST_SUITE_P(Track, EditAnalysis, ::testing::ValuesIn(kEditCases), [](const auto& info) {
    std::string n = info.param.name;
    for (char& ch : n)
        if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
    return n;
});

TEST(EditAnalysis, LongMovieIsLinear)
{
    // A media time far past the end of a table of many entries ends at once.
    MovieSpec plan;
    TrackSpec& t = plan.tracks[0];
    t.stts.clear();
    for (std::uint32_t i = 0; i < 20000; ++i) t.stts.push_back({1000, 1 + i % 3});
    t.edits = Edits{{100, 0xFFFFFFF0, kUnit}};
    auto track = TrackOf(plan);
    ASSERT_TRUE(track);
    EXPECT_GE(Core(track)->EditFirstSample(), Core(track)->GetTotalSampleCount());
}

TEST(TimeScales, ZeroNeverDivides)
{
    MovieSpec plan;
    plan.timeScale = 0;
    plan.tracks[0].edits = Edits{{100, 0, kUnit}};
    auto track = TrackOf(plan);
    ASSERT_TRUE(track);
    EXPECT_EQ(Core(track)->MovieToMediaTime(100), 0u);
    EXPECT_EQ(track->GetEditDuration(), 0u);
    MovieSpec spec2;
    spec2.tracks[0].mediaTimeScale = 0;
    auto t2 = TrackOf(spec2);
    ASSERT_TRUE(t2);
    EXPECT_EQ(Core(t2)->MediaToMovieTime(100), 0u);
    EXPECT_EQ(Core(t2)->MovieToMediaTime(100), 0u);
    // Equal scales convert nothing, so no product can overflow.
    MovieSpec spec3;
    spec3.timeScale = 90000;
    spec3.tracks[0].mediaTimeScale = 90000;
    auto t3 = TrackOf(spec3);
    EXPECT_EQ(Core(t3)->MovieToMediaTime(0xFFFFFFFF), 0xFFFFFFFFu);
}

TEST(SampleTables, CountsAndDurations)
{
    MovieSpec plan;
    plan.tracks[0].stts = {{3, 10}, {4, 20}};
    plan.tracks[0].duration = 10000;
    auto track = TrackOf(plan);
    ASSERT_TRUE(track);
    QT::QTTrack* core = Core(track);
    EXPECT_EQ(core->GetTotalSampleCount(), 7u);
    EXPECT_EQ(track->GetEditSampleCount(), 7u);
    std::int32_t d = -5;
    EXPECT_EQ(core->GetSampleDuration(2, d), 10);
    EXPECT_EQ(core->GetSampleDuration(3, d), 20);
    EXPECT_EQ(core->GetSampleDuration(6, d), 20);
    d = 77;
    EXPECT_EQ(core->GetSampleDuration(7, d), 77); // past the table: unchanged
    EXPECT_EQ(core->GetFirstEditMediaTime(), 0u);

    MovieSpec empty;
    empty.tracks[0].stts = {};
    auto t2 = TrackOf(empty);
    d = 5;
    EXPECT_EQ(Core(t2)->GetSampleDuration(0, d), -1);
    EXPECT_EQ(d, 5);
    EXPECT_EQ(Core(t2)->GetTotalSampleCount(), 0u);

    MovieSpec twoEdits;
    twoEdits.tracks[0].edits = Edits{{10, 33, kUnit}, {10, 44, kUnit}};
    EXPECT_EQ(Core(TrackOf(twoEdits))->GetFirstEditMediaTime(), 33u);
}

TEST(SampleTables, HostileCountsAreBoundedByTheCopy)
{
    MovieSpec plan;
    plan.tracks[0].stts = {{10, 100}};
    plan.tracks[0].extraStbl.push_back(Atom("free"));
    Atom moov = BuildMoov(plan);
    Bytes bytes = Concat({moov});
    // Raise the `stts` entry count to 2^32-1: only the entries inside the copy count.
    const Bytes needle = {'s', 't', 't', 's'};
    auto it = std::search(bytes.begin(), bytes.end(), needle.begin(), needle.end());
    ASSERT_NE(it, bytes.end());
    std::fill(it + 8, it + 12, 0xFF);
    OpenResult r = OpenBytes(bytes);
    ASSERT_EQ(r.code, QT::kResultSuccess);
    auto track = r.movie->GetIndTrack(0);
    EXPECT_GE(Core(track)->GetTotalSampleCount(), 10u);
    EXPECT_GT(track->GetEditSampleCount(), 0u);
}

TEST(ChunkOffsets, WidthAndBounds)
{
    MovieSpec plan;
    plan.tracks[0].stco = {0xfffffff0, 7};
    auto track = TrackOf(plan);
    ASSERT_TRUE(track);
    const QT::AtomReader reader = Core(track)->Reader();
    QT::ChunkOffsetHelper stco(Core(track)->Item(), reader);
    EXPECT_FALSE(stco.IsWide());
    ASSERT_EQ(stco.NumEntries(), 2u);
    EXPECT_EQ(stco.GetEntry(0), 0x00000000fffffff0ull);
    EXPECT_EQ(stco.GetEntry(1), 7u);
    EXPECT_THROW(stco.GetEntry(2), vellum::config::Error);

    // With both tables the 64-bit one is read.
    MovieSpec both;
    both.tracks[0].extraStbl.push_back(Co64({0x123456789aull}));
    auto t2 = TrackOf(both);
    ASSERT_TRUE(t2);
    const QT::AtomReader r2 = Core(t2)->Reader();
    QT::ChunkOffsetHelper co64(Core(t2)->Item(), r2);
    EXPECT_TRUE(co64.IsWide());
    ASSERT_EQ(co64.NumEntries(), 1u);
    EXPECT_EQ(co64.GetEntry(0), 0x123456789aull);
}

TEST(SampleDescriptions, NthDescription)
{
    MovieSpec plan;
    plan.tracks[0].descriptions = {SampleDescription("aaaa", Bytes(4)), SampleDescription("bbbb", Bytes(8)),
                                   SampleDescription("cccc", {})};
    auto track = TrackOf(plan);
    ASSERT_TRUE(track);
    QT::QTTrack* core = Core(track);
    const QT::AtomReader reader = core->Reader();
    const QT::AtomPtr stsd = core->Item().mStsd;
    const char* formats[] = {"aaaa", "bbbb", "cccc"};
    for (int i = 0; i < 3; ++i) {
        QT::AtomPtr d = core->GetNthSampleDescriptionPtr(stsd, i);
        ASSERT_TRUE(d);
        EXPECT_EQ(reader.U32Or(d.Field(4)), QT::MakeFourCC(*reinterpret_cast<const char(*)[5]>(formats[i])));
    }
    EXPECT_FALSE(core->GetNthSampleDescriptionPtr(stsd, -1));
    EXPECT_THROW(core->GetNthSampleDescriptionPtr(stsd, 3), vellum::config::Error);
}

TEST(SampleDescriptions, SizesThatLeaveTheAtomGiveNull)
{
    for (std::uint32_t badSize : {0u, 7u, 0x7FFFFFFFu, 0xFFFFFFF0u}) {
        Bytes first = SampleDescription("aaaa", Bytes(4));
        first[0] = static_cast<std::uint8_t>(badSize >> 24);
        first[1] = static_cast<std::uint8_t>(badSize >> 16);
        first[2] = static_cast<std::uint8_t>(badSize >> 8);
        first[3] = static_cast<std::uint8_t>(badSize);
        MovieSpec plan;
        plan.tracks[0].descriptions = {first, SampleDescription("bbbb", {})};
        auto track = TrackOf(plan);
        ASSERT_TRUE(track);
        QT::QTTrack* core = Core(track);
        EXPECT_FALSE(core->GetNthSampleDescriptionPtr(core->Item().mStsd, 1)) << badSize;
        EXPECT_FALSE(core->GetNthSampleDescriptionPtr(core->Item().mStsd, 0)) << badSize;
    }
}

} // namespace
