// Caption tracks: where each `c608`/`c708` data run lies and when it
// applies, on built tracks (the corpus caption movies are in the corpus dump test).

#include "Tests/Support/Open.h"

namespace {

const QT::String16 kNoFile = u"/nonexistent-directory/none.mov";

QT::CaptionSampleRecord Pair(std::uint64_t time, std::uint64_t offset) { return {time, offset, 2, false, 0, 0}; }

// The track in a movie whose `mdat`, holding `mdat`, comes first.
OpenedTrack OpenCaptions(const TrackPlan& track, const Bytes& mdat = {})
{
    return OpenTrackOf(BuildMovieFileMediaFirst(MoviePlan{600, 100, {track}, {}}, mdat));
}

QT::CaptionSampleMap Table(const OpenedTrack& t, bool byOffset, const QT::String16* path = nullptr)
{
    QT::CaptionSampleMap table;
    EXPECT_EQ(t.track->MakeCaptionSampleTable(path ? *path : t.file->Path16(), table, byOffset), QT::kResultSuccess);
    return table;
}

// A `cdat` sample: its 8-byte header, then `pairs` byte pairs.
Bytes CdatSample(std::uint32_t pairs) { return ByteWriter().U32(8 + 2 * pairs).Code("cdat").Zeros(2 * pairs); }

TEST(Caption, DataRunsOfBuiltTracks)
{
    const std::uint32_t b = kMdatPayloadStart;
    Bytes probedOnce = CdatSample(1); // the second chunk, 16 bytes on, has no `cdat`
    probedOnce.resize(32, 0x55);
    TrackPlan fixed = CaptionTrack("c608", {20, 20}, {1000});
    fixed.stszConstant = 20;
    struct Case { const char* name; TrackPlan plan; Bytes mdat; bool realFile; std::vector<QT::CaptionSampleRecord> runs; };
    const Case cases[] = {
        {"c608 of a constant 20 bytes: two runs, the file not read", fixed, {}, false,
         {{0, 1008, 2, true, 1018, 2}, {1001, 1028, 2, true, 1038, 2}}},
        {"20 bytes in a table of sizes: pairs behind 8 bytes when the file can't tell", CaptionTrack("c608", {20}, {b}), {},
         false, {Pair(0, b + 8), Pair(1001, b + 10), Pair(2002, b + 12), Pair(3003, b + 14), Pair(4004, b + 16),
                 Pair(5005, b + 18)}},
        {"no cdat: no bytes skipped, the odd byte left out", CaptionTrack("c608", {3, 2}, {b}),
         {0x14, 0x20, 0x14, 0x2c, 0x80}, true, {Pair(0, b), Pair(1001, b + 3)}},
        {"a sample shorter than its header", CaptionTrack("c608", {4}, {b}), CdatSample(1), true, {}},
        {"the file is looked at once", CaptionTrack("c608", {10, 10}, {b, b + 16}), probedOnce, true,
         {Pair(0, b + 8), Pair(1001, b + 24)}},
        {"a chunk behind the end of the file: 8 bytes skipped", CaptionTrack("c608", {12}, {1000000}), {}, true,
         {Pair(0, 1000008), Pair(1001, 1000010)}},
        {"c708: one run behind the header, none in 8 bytes", CaptionTrack("c708", {8, 9, 20}, {100}), {}, false,
         {{1001, 116, 1, false, 0, 0}, {2002, 125, 12, false, 0, 0}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        QT::CaptionSampleMap expected;
        for (const QT::CaptionSampleRecord& r : c.runs) expected.emplace(r.mOffset, r);
        EXPECT_EQ(Table(OpenCaptions(c.plan, c.mdat), true, c.realFile ? nullptr : &kNoFile), expected);
    }
}

TEST(Caption, ASizeFromABrokenTableGivesNoMorePairsThanTheFileHolds)
{
    OpenedTrack t = OpenCaptions(CaptionTrack("c608", {0x7ffffff0}, {kMdatPayloadStart}), CdatSample(4));
    const QT::CaptionSampleMap table = Table(t, true);
    EXPECT_EQ(table.size(), t.file->Read().size() / 2);
    EXPECT_EQ(table.begin()->second, Pair(0, kMdatPayloadStart + 8));
}

TEST(Caption, FrameDuration)
{
    struct Case { std::vector<std::uint32_t> durations; std::uint32_t timeScale; std::int32_t expected; };
    // With no common divisor above 1 and no duration of 1: a frame of 1.001/30 s.
    const Case cases[] = {{{2000, 3000}, 30000, 1000}, {{1000, 1}, 30000, 1}, {{0xfffff830, 3000}, 30000, 1000},
                          {{1000, 1001}, 25, 1}, {{0, 0}, 600, 20}, {{0x80000000, 0x80000000}, 30000, 1001}};
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.durations) + " at " + std::to_string(c.timeScale));
        TrackPlan plan = CaptionTrack("c608", {12}, {100});
        plan.mediaTimeScale = c.timeScale;
        plan.stts.clear();
        for (std::uint32_t d : c.durations) plan.stts.push_back({1, d});
        EXPECT_EQ(OpenCaptions(plan).track->GetCaptionFrameDuration(), c.expected);
    }
}

TEST(Caption, TablesThatCannotBeUsedAndEditsThatChooseSamples)
{
    // Three c708 samples, one a chunk, 1001 apart; the movie's 600 units a second are 50 of the media's.
    using Plan = TrackPlan&;
    const QT::ResultCode bad = QT::kResultCaptionTables, ok = QT::kResultSuccess;
    struct Case { const char* name; std::function<void(TrackPlan&)> change; QT::ResultCode result; std::size_t added; };
    const Case cases[] = {
        {"stts without entries", [](Plan s) { s.stts = {}; }, bad, 0},
        {"a negative constant size", [](Plan s) { s.stszConstant = 0x80000000u; }, bad, 0},
        {"a sample past the table of sizes", [](Plan s) { s.stszSizes = {12}; }, bad, 1},
        {"a negative count of sizes", [](Plan s) { s.extraStbl = {Stsz(0, {}, 0x80000000u)}; }, bad, 0},
        {"more samples than the chunks hold", [](Plan s) { s.stco = {100, 200}; }, ok, 2},
        {"fewer samples than the chunks hold", [](Plan s) { s.stts = {{1, 1001}}; }, ok, 1},
        {"stsc without entries", [](Plan s) { s.stsc = {}; }, ok, 0},
        {"another format", [](Plan s) { s.descriptions = {SampleDescription("tx3g", {})}; }, ok, 0},
        {"counts of 0 or below hold no samples", [](Plan s) { s.stts = {{1, 9}, {~0u, 9}, {0, 9}, {1, 9}}; }, ok, 2},
        {"a sample that starts at the edit's end is inside",
         [](Plan s) { s.stts = {{3, 1000}}; s.edits = {{{40, 0, 0x10000}}}; }, ok, 3},
        {"samples before the edit's first add nothing", [](Plan s) { s.edits = {{{40, 1001, 0x10000}}}; }, ok, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrackPlan plan = CaptionTrack("c708", {12, 12, 12}, {100, 200, 300});
        c.change(plan);
        QT::CaptionSampleMap table = {{1, Pair(1, 1)}}; // the host's record stays
        EXPECT_EQ(OpenCaptions(plan).track->MakeCaptionSampleTable(kNoFile, table, true), c.result);
        EXPECT_EQ(table.size(), 1 + c.added);
        EXPECT_EQ(table.at(1), Pair(1, 1));
    }
}

} // namespace
