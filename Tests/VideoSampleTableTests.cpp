// The frame table of a video track over built sample tables: placement in
// chunks, sync samples, durations, edits, the limit and the sort.
#include <gtest/gtest.h>

#include <numeric>

#include "Tests/Support/OpenTrack.h"

using namespace testsupport;

namespace {

using Table = std::vector<QT::VideoSampleRecord>;

constexpr QT::ResultCode kOk = QT::kResultSuccess;

// Ten samples of duration 100 and sizes 10, 11, ..., two per chunk.
TrackSpec TenSamples()
{
    TrackSpec t;
    t.duration = 1000;
    t.mediaDuration = 1000;
    t.stts = {{10, 100}};
    t.stsc = {{1, 2, 1}};
    t.stszSizes = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    t.stco = {1000, 2000, 3000, 4000, 5000};
    return t;
}

// One field of every record.
template <typename T>
std::vector<T> Column(const Table& table, T QT::VideoSampleRecord::*field)
{
    std::vector<T> v;
    for (const auto& r : table) v.push_back(r.*field);
    return v;
}
auto Offsets(const Table& t) { return Column(t, &QT::VideoSampleRecord::mOffset); }
auto Durations(const Table& t) { return Column(t, &QT::VideoSampleRecord::mDuration); }
auto Times(const Table& t) { return Column(t, &QT::VideoSampleRecord::mTime); }
auto Sizes(const Table& t) { return Column(t, &QT::VideoSampleRecord::mSize); }
std::vector<bool> Keys(const Table& t) { return Column(t, &QT::VideoSampleRecord::mIsKeyFrame); }

Table Build(const TrackSpec& plan, QT::ResultCode expected = kOk, bool ignoreEdits = false)
{
    auto track = OpenTrack(plan);
    Table table;
    if (!track) return table;
    EXPECT_EQ(track->MakeFullVideoSampleTable(false, ignoreEdits, table), expected);
    return table;
}

TEST(VideoSampleTable, RecordsOfEveryFrame)
{
    const Table t = Build(TenSamples());
    ASSERT_EQ(t.size(), 10u);
    EXPECT_EQ(Offsets(t), (std::vector<std::uint64_t>{1000, 1010, 2000, 2012, 3000, 3014, 4000, 4016, 5000, 5018}));
    EXPECT_EQ(Sizes(t), (std::vector<std::uint32_t>{10, 11, 12, 13, 14, 15, 16, 17, 18, 19}));
    EXPECT_EQ(Durations(t), std::vector<std::uint32_t>(10, 100));
    EXPECT_EQ(Times(t), (std::vector<std::uint32_t>{0, 100, 200, 300, 400, 500, 600, 700, 800, 900}));
    EXPECT_EQ(Keys(t), std::vector<bool>(10, true)); // no stss: every frame is a sync sample
}

TEST(VideoSampleTable, SyncSamples)
{
    struct Case {
        const char* what;
        std::vector<std::uint32_t> stss;
        std::vector<int> keys; // sample indices flagged
    };
    const Case cases[] = {
        {"in order", {1, 4, 10}, {0, 3, 9}},
        {"no entries: the first sample only", {}, {0}},
        {"out of order: nothing after the step back", {1, 5, 3, 7}, {0, 4}},
        {"entry 0 is never reached", {0, 2}, {}},
        {"past the samples", {2, 40}, {1}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TrackSpec plan = TenSamples();
        plan.stss = c.stss;
        const Table t = Build(plan);
        ASSERT_EQ(t.size(), 10u);
        std::vector<bool> expected(10, false);
        for (int k : c.keys) expected[k] = true;
        EXPECT_EQ(Keys(t), expected);
    }
}

TEST(VideoSampleTable, ChunkPlacement)
{
    struct Case {
        const char* what;
        std::vector<std::array<std::uint32_t, 3>> stsc;
        std::uint32_t constant;
        std::vector<std::uint32_t> stco;
        std::vector<std::uint64_t> offsets;
    };
    const Case cases[] = {
        {"runs of 3 then 2", {{1, 3, 1}, {3, 2, 1}}, 0, {100, 200, 300, 400},
         {100, 110, 121, 200, 213, 227, 300, 316, 400, 418}},
        {"three runs", {{1, 4, 1}, {2, 3, 1}, {3, 1, 1}}, 0, {100, 200, 300, 400, 500},
         {100, 110, 121, 133, 200, 214, 229, 300, 400, 500}},
        {"constant size, one chunk per sample: direct, samples per chunk not read", {{1, 7, 1}}, 8,
         {10, 20, 30, 40, 50, 60, 70, 80, 90, 95}, {10, 20, 30, 40, 50, 60, 70, 80, 90, 95}},
        {"constant size in fewer chunks: sizes add", {{1, 5, 1}}, 8, {100, 200},
         {100, 108, 116, 124, 132, 200, 208, 216, 224, 232}},
        {"own sizes, one sample per chunk: each sample at its chunk", {{1, 1, 1}}, 0,
         {10, 20, 30, 40, 50, 60, 70, 80, 90, 95}, {10, 20, 30, 40, 50, 60, 70, 80, 90, 95}},
        {"own sizes, one per chunk, chunks to spare", {{1, 1, 1}}, 0,
         {10, 20, 30, 40, 50, 60, 70, 80, 90, 95, 99}, {10, 20, 30, 40, 50, 60, 70, 80, 90, 95}},
        {"own sizes, one per chunk from chunk 2", {{2, 1, 1}}, 0,
         {5, 10, 20, 30, 40, 50, 60, 70, 80, 90, 95}, {10, 20, 30, 40, 50, 60, 70, 80, 90, 95}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TrackSpec plan = TenSamples();
        plan.stsc = c.stsc;
        plan.stszConstant = c.constant;
        plan.stco = c.stco;
        const Table t = Build(plan);
        EXPECT_EQ(Offsets(t), c.offsets);
        if (c.constant != 0) {
            EXPECT_EQ(Sizes(t), std::vector<std::uint32_t>(10, c.constant));
        }
    }
}

TEST(VideoSampleTable, LargeChunkOffsetsAndBothTableWidths)
{
    TrackSpec narrow = TenSamples();
    narrow.stco = {0xfffffff0u, 2000, 3000, 4000, 5000};
    TrackSpec wide = TenSamples();
    wide.co64 = std::vector<std::uint64_t>{0xfffffff0u, 2000, 3000, 4000, 5000};
    const Table a = Build(narrow);
    const Table b = Build(wide);
    ASSERT_EQ(a.size(), 10u);
    EXPECT_EQ(a[1].mOffset, 0xfffffff0ull + 10); // 64-bit: no wrap
    EXPECT_EQ(Offsets(a), Offsets(b));
    EXPECT_EQ(Sizes(a), Sizes(b));

    wide.co64 = std::vector<std::uint64_t>{0x1234567890ull, 2000, 3000, 4000, 5000};
    EXPECT_EQ(Build(wide)[1].mOffset, 0x1234567890ull + 10);
}

TEST(VideoSampleTable, SizesAheadInAChunkAreSummedIn32Bits)
{
    TrackSpec plan;
    plan.stts = {{3, 100}};
    plan.duration = plan.mediaDuration = 300;
    plan.stsc = {{1, 3, 1}};
    plan.stszSizes = {0xffffff00u, 0x200, 5};
    plan.stco = {0x100};
    const Table t = Build(plan);
    EXPECT_EQ(Offsets(t), (std::vector<std::uint64_t>{0x100, 0x100 + 0xffffff00ull, 0x100 + 0x100}));
}

TEST(VideoSampleTable, ManySamplesInOneChunk)
{
    TrackSpec plan;
    constexpr std::uint32_t kCount = 5000;
    plan.stts = {{kCount, 1}};
    plan.duration = plan.mediaDuration = kCount;
    plan.stsc = {{1, kCount, 1}};
    plan.stszSizes.resize(kCount);
    for (std::uint32_t i = 0; i < kCount; ++i) plan.stszSizes[i] = i % 97 + 1;
    plan.stco = {64};
    const Table t = Build(plan);
    ASSERT_EQ(t.size(), kCount);
    std::uint64_t expected = 64;
    for (std::uint32_t i = 0; i < kCount; ++i) {
        ASSERT_EQ(t[i].mOffset, expected) << i;
        expected += plan.stszSizes[i];
    }
}

TEST(VideoSampleTable, DurationsFollowStts)
{
    TrackSpec plan = TenSamples();
    plan.stts = {{3, 10}, {5, 20}, {2, 30}};
    plan.duration = plan.mediaDuration = 190;
    EXPECT_EQ(Durations(Build(plan)), (std::vector<std::uint32_t>{10, 10, 10, 20, 20, 20, 20, 20, 30, 30}));
    // A sample past its entry moves on by one entry only, so an empty entry
    // lends its duration to the sample that meets it.
    plan.stts = {{4, 10}, {0, 99}, {6, 20}};
    plan.duration = plan.mediaDuration = 300;
    EXPECT_EQ(Durations(Build(plan)), (std::vector<std::uint32_t>{10, 10, 10, 10, 99, 20, 20, 20, 20, 20}));
}

TEST(VideoSampleTable, RefusedTables)
{
    struct Case {
        const char* what;
        TrackSpec plan;
        QT::ResultCode result;
        std::size_t recordsAdded;
    };
    TrackSpec noSamples = TenSamples();
    noSamples.stts = {};
    TrackSpec shortStsz = TenSamples();
    shortStsz.stszSizes.pop_back();
    TrackSpec shortConstant = TenSamples();
    shortConstant.stszConstant = 8;
    shortConstant.stszSizes.resize(9);
    TrackSpec noStsc = TenSamples();
    noStsc.stsc = {};
    TrackSpec runsEndEarly = TenSamples();
    runsEndEarly.stco = {1000, 2000, 3000}; // room for 6 samples
    TrackSpec emptyRun = TenSamples();
    emptyRun.stsc = {{1, 2, 1}, {2, 0, 1}, {3, 2, 1}};
    TrackSpec pastChunks = TenSamples();
    pastChunks.stsc = {{1, 1, 1}, {9, 1, 1}}; // the first run claims 8 chunks of 5
    TrackSpec firstChunkZero = TenSamples();
    firstChunkZero.stsc = {{0, 2, 1}};
    TrackSpec onePerChunkTooFewChunks = TenSamples();
    onePerChunkTooFewChunks.stsc = {{1, 1, 1}};
    onePerChunkTooFewChunks.stco = {10, 20, 30, 40, 50, 60, 70, 80, 90};
    TrackSpec lastRunPastChunks = TenSamples();
    lastRunPastChunks.stsc = {{1, 0, 1}, {7, 2, 1}};
    const Case cases[] = {
        {"no samples", noSamples, QT::kResultBadSampleTables, 0},
        {"stsz shorter than the samples", shortStsz, QT::kResultBadSampleTables, 0},
        {"constant size with a short count", shortConstant, QT::kResultBadSampleTables, 0},
        {"stsc without entries", noStsc, QT::kResultNotFound, 0},
        {"runs end before the samples", runsEndEarly, QT::kResultNotFound, 6},
        // The sample after the first run is placed with the old samples per
        // chunk; the one after it meets two empty runs.
        {"an empty run between two others", emptyRun, QT::kResultNotFound, 3},
        {"a run that leads past the chunk table", pastChunks, QT::kResultNotFound, 5},
        {"first chunk 0", firstChunkZero, QT::kResultNotFound, 0},
        {"last run starts past the chunk table", lastRunPastChunks, QT::kResultNotFound, 0},
        {"one sample per chunk, a chunk short", onePerChunkTooFewChunks, QT::kResultNotFound, 9},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto track = OpenTrack(c.plan);
        ASSERT_TRUE(track);
        Table table(2); // earlier content stays
        table[0].mTime = 7;
        EXPECT_EQ(track->MakeFullVideoSampleTable(true, false, table), c.result);
        EXPECT_EQ(table.size(), 2 + c.recordsAdded);
        EXPECT_EQ(table[0].mTime, 7u); // not sorted on failure
    }
}

TEST(VideoSampleTable, Edits)
{
    struct Case {
        const char* what;
        std::optional<std::vector<std::array<std::uint32_t, 3>>> edits;
        std::uint32_t trackDuration;
        std::vector<std::uint64_t> offsets;
        std::vector<std::uint32_t> durations;
        std::vector<std::uint32_t> times;
    };
    const Case cases[] = {
        {"no edit list", std::nullopt, 1000,
         {1000, 1010, 2000, 2012, 3000, 3014, 4000, 4016, 5000, 5018},
         std::vector<std::uint32_t>(10, 100),
         {0, 100, 200, 300, 400, 500, 600, 700, 800, 900}},
        {"no edit list, track shorter than its media", std::nullopt, 550,
         {1000, 1010, 2000, 2012, 3000, 3014},
         {100, 100, 100, 100, 100, 50},
         {0, 100, 200, 300, 400, 500}},
        {"media time inside a sample", std::vector<std::array<std::uint32_t, 3>>{{300, 250, 0x10000}}, 300,
         {2000, 2012, 3000, 3014},
         {50, 100, 100, 100},
         {0, 50, 150, 250}},
        {"media time on a sample boundary", std::vector<std::array<std::uint32_t, 3>>{{200, 300, 0x10000}}, 200,
         {2012, 3000},
         {100, 100},
         {0, 100}},
        {"end inside a sample", std::vector<std::array<std::uint32_t, 3>>{{320, 0, 0x10000}}, 320,
         {1000, 1010, 2000, 2012},
         {100, 100, 100, 20},
         {0, 100, 200, 300}},
        {"wholly inside one sample", std::vector<std::array<std::uint32_t, 3>>{{30, 120, 0x10000}}, 30,
         {1010},
         {80},
         {0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TrackSpec plan = TenSamples();
        plan.edits = c.edits;
        plan.duration = c.trackDuration;
        const Table t = Build(plan);
        EXPECT_EQ(Offsets(t), c.offsets);
        EXPECT_EQ(Durations(t), c.durations);
        EXPECT_EQ(Times(t), c.times);
        // Ignoring the edit lists every sample with its stored duration.
        const Table all = Build(plan, kOk, true);
        EXPECT_EQ(all.size(), 10u);
        EXPECT_EQ(Durations(all), std::vector<std::uint32_t>(10, 100));
    }
}

TEST(VideoSampleTable, EditInTheMovieTimeScale)
{
    // Media at twice the movie's time scale: the edit's 150 movie units are
    // 300 media units.
    TrackSpec plan = TenSamples();
    plan.mediaTimeScale = 1200;
    plan.edits = std::vector<std::array<std::uint32_t, 3>>{{150, 250, 0x10000}};
    const Table t = Build(plan);
    EXPECT_EQ(Durations(t), (std::vector<std::uint32_t>{50, 100, 100, 100}));
    EXPECT_EQ(Offsets(t).front(), 2000u);
}

TEST(VideoSampleTable, EditListsThatCannotBeApplied)
{
    const std::vector<std::array<std::uint32_t, 3>> lists[] = {
        {{500, 0xffffffffu, 0x10000}, {1000, 0, 0x10000}}, // an empty edit, then the media
        {{1000, 0, 0x20000}},                              // rate 2.0
    };
    for (const auto& edits : lists) {
        TrackSpec plan = TenSamples();
        plan.edits = edits;
        auto track = OpenTrack(plan);
        ASSERT_TRUE(track);
        Table table(1);
        EXPECT_EQ(track->MakeFullVideoSampleTable(true, false, table), QT::kResultEditListNotSimple);
        EXPECT_EQ(table.size(), 1u);
        ASSERT_EQ(track->MakeFullVideoSampleTable(false, true, table), kOk);
        EXPECT_EQ(table.size(), 11u);
    }
}

TEST(VideoSampleTable, LimitCountsRecordsNotSamples)
{
    TrackSpec plan = TenSamples();
    plan.edits = std::vector<std::array<std::uint32_t, 3>>{{700, 300, 0x10000}};
    auto track = OpenTrack(plan);
    ASSERT_TRUE(track);
    Table t;
    ASSERT_EQ(track->MakeVideoSampleTable(false, false, 5, t), kOk);
    EXPECT_EQ(Sizes(t), (std::vector<std::uint32_t>{13, 14, 15, 16, 17}));
    EXPECT_EQ(Times(t), (std::vector<std::uint32_t>{0, 100, 200, 300, 400}));

    Table none;
    ASSERT_EQ(track->MakeVideoSampleTable(false, true, 0, none), kOk);
    EXPECT_TRUE(none.empty());
}

TEST(VideoSampleTable, SortOrders)
{
    auto track = OpenTrack(TenSamples());
    ASSERT_TRUE(track);
    auto earlier = [] {
        Table t(3);
        t[0].mTime = 950;
        t[1].mTime = 50;
        t[2].mTime = 0xffffffffu;
        return t;
    };
    // Kept in decode order behind what the table held.
    Table unsorted = earlier();
    ASSERT_EQ(track->MakeVideoSampleTable(false, true, 3, unsorted), kOk);
    EXPECT_EQ(Times(unsorted), (std::vector<std::uint32_t>{950, 50, 0xffffffffu, 0, 100, 200}));
    // Sorted as a whole, by unsigned time.
    Table sorted = earlier();
    ASSERT_EQ(track->MakeVideoSampleTable(true, true, 3, sorted), kOk);
    EXPECT_EQ(Times(sorted), (std::vector<std::uint32_t>{0, 50, 100, 200, 950, 0xffffffffu}));
    // A limit of 0 adds nothing, and still sorts.
    Table onlySorted = earlier();
    ASSERT_EQ(track->MakeVideoSampleTable(true, true, 0, onlySorted), kOk);
    EXPECT_EQ(Times(onlySorted), (std::vector<std::uint32_t>{50, 950, 0xffffffffu}));
}

TEST(VideoSampleTable, OnlyForVideo)
{
    TrackSpec plan = TenSamples();
    plan.mediaType = "soun";
    auto track = OpenTrack(plan);
    ASSERT_TRUE(track);
    Table t;
    try {
        track->MakeFullVideoSampleTable(false, false, t);
        ADD_FAILURE() << "no contract failure";
    } catch (const vellum::config::Error& e) {
        EXPECT_EQ(e.Function(), "QT::QTTrack::MakeVideoSampleTable");
    }
    EXPECT_TRUE(t.empty());
}

} // namespace
