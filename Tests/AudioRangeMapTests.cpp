// File ranges of a sound track's frames within its edit.
#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "Tests/Support/SoundBuilder.h"

using namespace testsupport;

namespace {

using Edit = std::array<std::uint32_t, 3>; // duration, media time, rate
constexpr std::uint32_t kUnitRate = 0x10000;

// (count, output position, offset), keyed as asked.
using Range = std::tuple<std::uint64_t, std::uint64_t, std::uint64_t>;
using Keyed = std::vector<std::pair<std::uint64_t, Range>>;

Keyed Entries(const QT::AudioSampleRangeMap& map)
{
    Keyed out;
    for (const auto& [key, r] : map) out.push_back({key, Range{r.mSampleCount, r.mOutputPosition, r.mOffsetInFile}});
    return out;
}

// Stereo 16-bit: 4 bytes a frame. Chunks of 1000 frames at 5000 and 9000,
// equal movie and media time scales.
TrackSpec TwoChunks(std::optional<std::vector<Edit>> edits = {}, std::uint32_t duration = 2000)
{
    TrackSpec t = SoundTrack(SoundDescriptionV0("sowt", 2, 16, 48000u << 16));
    t.duration = duration;
    t.mediaDuration = 2000;
    t.edits = edits;
    t.stts = {{2000, 1}};
    t.stsc = {{1, 1000, 1}};
    t.stszConstant = 4;
    t.stszSizes = std::vector<std::uint32_t>(2000, 4);
    t.stco = {5000, 9000};
    return t;
}

struct Built {
    QT::ResultCode code;
    Keyed byPosition;
    Keyed byOffset;
};

Built Build(const TrackSpec& plan, std::uint32_t movieTimeScale = 48000)
{
    auto track = OpenTrack(plan, movieTimeScale);
    if (!track) throw std::runtime_error("track did not open");
    QT::AudioSampleRangeMap byPosition, byOffset;
    Built b;
    b.code = track->MakeAudioSampleRangeMap(byPosition, false);
    EXPECT_EQ(track->MakeAudioSampleRangeMap(byOffset, true), b.code);
    b.byPosition = Entries(byPosition);
    b.byOffset = Entries(byOffset);
    return b;
}

// The same ranges under both keys.
void ExpectRanges(const Built& b, const std::vector<Range>& ranges)
{
    EXPECT_EQ(b.code, QT::kResultSuccess);
    Keyed byPosition, byOffset;
    for (const Range& r : ranges) {
        byPosition.push_back({std::get<1>(r), r});
        byOffset.push_back({std::get<2>(r), r});
    }
    std::sort(byOffset.begin(), byOffset.end());
    EXPECT_EQ(b.byPosition, byPosition);
    EXPECT_EQ(b.byOffset, byOffset);
}

TEST(AudioRangeMap, EditsOverTwoChunks)
{
    struct Case {
        const char* name;
        std::optional<std::vector<Edit>> edits;
        std::vector<Range> ranges;
    };
    const Case cases[] = {
        {"no edit", std::nullopt, {{1000, 0, 5000}, {1000, 1000, 9000}}},
        {"edit at media time 0 over all", std::vector<Edit>{{2000, 0, kUnitRate}}, {{1000, 0, 5000}, {1000, 1000, 9000}}},
        {"inside the second chunk", std::vector<Edit>{{300, 1500, kUnitRate}}, {{300, 0, 11000}}},
        {"across the boundary", std::vector<Edit>{{1000, 500, kUnitRate}}, {{500, 0, 7000}, {500, 500, 9000}}},
        {"both ends in one chunk", std::vector<Edit>{{300, 200, kUnitRate}}, {{300, 0, 5800}}},
        {"ends on a chunk boundary", std::vector<Edit>{{1000, 0, kUnitRate}}, {{1000, 0, 5000}}},
        {"starts at a chunk's end", std::vector<Edit>{{500, 1000, kUnitRate}}, {{500, 0, 9000}}},
        {"edit past the last frame", std::vector<Edit>{{5000, 1999, kUnitRate}}, {{1, 0, 12996}}},
        {"media time -1", std::vector<Edit>{{1000, 0xffffffffu, kUnitRate}}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ExpectRanges(Build(TwoChunks(c.edits)), c.ranges);
    }
}

TEST(AudioRangeMap, TableShapes)
{
    struct Case {
        const char* name;
        std::function<void(TrackSpec&)> change;
        std::vector<Range> ranges;
        std::uint32_t movieTimeScale = 48000;
    };
    auto runs = [](std::vector<std::array<std::uint32_t, 3>> stsc) { return [=](TrackSpec& t) { t.stsc = stsc; }; };
    const Case cases[] = {
        // 15 movie units at 600 are 1200 frames at 48000; so is the track
        // duration without an edit.
        {"edit scaled into the media time scale",
         [](TrackSpec& t) {
             t.duration = 15;
             t.edits = std::vector<Edit>{{15, 0, kUnitRate}};
         },
         {{1000, 0, 5000}, {200, 1000, 9000}}, 600},
        {"track duration scaled", [](TrackSpec& t) { t.duration = 5; }, {{400, 0, 5000}}, 600},
        {"a first run of no chunk", runs({{1, 999, 1}, {1, 1000, 1}}), {{1000, 0, 5000}, {1000, 1000, 9000}}},
        {"a run past the chunk table", runs({{1, 1000, 1}, {100, 5, 1}}), {{1000, 0, 5000}, {1000, 1000, 9000}}},
        {"a last run with nothing left", runs({{1, 1000, 1}, {2, 1000, 1}, {5, 1000, 1}}),
         {{1000, 0, 5000}, {1000, 1000, 9000}}},
        // 1500 samples: the first run of two chunks covers them, so the third
        // chunk, in the next run, is not visited though the edit reaches it.
        // The run itself is finished: its second chunk counts in full.
        {"stop at the end of the run that reaches the samples",
         [](TrackSpec& t) {
             t.duration = 5000;
             t.stts = {{1500, 1}};
             t.stsc = {{1, 1000, 1}, {3, 1000, 1}};
             t.stco = {5000, 9000, 13000};
         },
         {{1000, 0, 5000}, {1000, 1000, 9000}}},
        // The count is widened as signed: from 2^31 on it never stops the
        // walk, which then ends with the chunk table.
        {"a sample count of 2^31",
         [](TrackSpec& t) {
             t.duration = 0x90000000u;
             t.stts = {{0x80000000u, 1}};
             t.stsc = {{1, 0x80000000u, 1}, {2, 10, 1}};
         },
         {{0x80000000u, 0, 5000}, {10, 0x80000000u, 9000}}},
        {"offsets above 32 bits",
         [](TrackSpec& t) {
             t.co64 = std::vector<std::uint64_t>{0x123456789ull, 0x223456789ull};
             t.edits = std::vector<Edit>{{1000, 500, kUnitRate}};
         },
         {{500, 0, 0x123456789ull + 2000}, {500, 500, 0x223456789ull}}},
        // Each packet counts as one frame of 4 bytes: a map that says little.
        {"compressed, one stts entry",
         [](TrackSpec& t) {
             t.descriptions = {SoundDescriptionV1("mp4a", 2, 16, 48000u << 16)};
             t.stsc = {{1, 10, 1}};
             t.stts = {{20, 1024}};
         },
         {{10, 0, 5000}, {10, 10, 9000}}},
        {"12-bit samples count as one byte",
         [](TrackSpec& t) {
             t.descriptions = {SoundDescriptionV0("twos", 3, 12, 48000u << 16)};
             t.edits = std::vector<Edit>{{100, 10, kUnitRate}};
         },
         {{100, 0, 5000 + 10 * 3}}},
        {"no samples", [](TrackSpec& t) { t.stts = {{0, 1}}; }, {}},
        {"no stsc entries", runs({}), {}},
        {"no chunks", [](TrackSpec& t) { t.stco = {}; }, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrackSpec t = TwoChunks();
        c.change(t);
        ExpectRanges(Build(t, c.movieTimeScale), c.ranges);
    }
}

TEST(AudioRangeMap, SeveralRuns)
{
    // Chunks of 1000, 500, 500, 250 and 250 frames; mono 24-bit: 3 bytes a frame.
    TrackSpec t = SoundTrack(SoundDescriptionV1("in24", 1, 16, 48000u << 16));
    t.duration = 2500;
    t.stts = {{2500, 1}};
    t.stsc = {{1, 1000, 1}, {2, 500, 1}, {4, 250, 1}};
    t.stszConstant = 3;
    t.stszSizes = std::vector<std::uint32_t>(2500, 3);
    t.stco = {100, 20000, 30000, 40000, 50000};

    ExpectRanges(Build(t), {{1000, 0, 100}, {500, 1000, 20000}, {500, 1500, 30000}, {250, 2000, 40000},
                            {250, 2250, 50000}});
    t.edits = std::vector<Edit>{{700, 1200, kUnitRate}};
    ExpectRanges(Build(t), {{300, 0, 20600}, {400, 300, 30000}});
    t.edits = std::vector<Edit>{{1000, 1500, kUnitRate}};
    ExpectRanges(Build(t), {{500, 0, 30000}, {250, 500, 40000}, {250, 750, 50000}});
}

TEST(AudioRangeMap, KeysAlreadyInTheMapKeepTheirRanges)
{
    auto track = OpenTrack(TwoChunks());
    QT::AudioSampleRangeMap map;
    map[0] = QT::AudioSampleRange{7, 7, 7};
    EXPECT_EQ(track->MakeAudioSampleRangeMap(map, false), QT::kResultSuccess);
    EXPECT_EQ(Entries(map), (Keyed{{0, {7, 7, 7}}, {1000, {1000, 1000, 9000}}}));

    QT::AudioSampleRangeMap byOffset;
    byOffset[9000] = QT::AudioSampleRange{7, 7, 7};
    byOffset[1] = QT::AudioSampleRange{1, 1, 1};
    EXPECT_EQ(track->MakeAudioSampleRangeMap(byOffset, true), QT::kResultSuccess);
    EXPECT_EQ(Entries(byOffset), (Keyed{{1, {1, 1, 1}}, {5000, {1000, 0, 5000}}, {9000, {7, 7, 7}}}));
}

TEST(AudioRangeMap, ChunksAtOneOffsetGiveOneRangeButCountTwice)
{
    TrackSpec t = TwoChunks();
    t.stco = {5000, 5000};
    const Built b = Build(t);
    EXPECT_EQ(b.byOffset, (Keyed{{5000, {1000, 0, 5000}}}));
    EXPECT_EQ(b.byPosition, (Keyed{{0, {1000, 0, 5000}}, {1000, {1000, 1000, 5000}}}));
}

TEST(AudioRangeMap, Refusals)
{
    struct Case {
        const char* name;
        TrackSpec plan;
        QT::ResultCode code;
    };
    auto with = [](auto change) {
        TrackSpec t = TwoChunks();
        change(t);
        return t;
    };
    auto description = [&](Bytes d) { return with([&](TrackSpec& t) { t.descriptions = {d}; }); };
    SoundV2 wideChannels;
    wideChannels.channels = 0x10000; // 0 as a 16-bit count
    const Case cases[] = {
        {"two edits", with([](TrackSpec& t) { t.edits = std::vector<Edit>{{1000, 0, kUnitRate}, {1000, 1000, kUnitRate}}; }),
         QT::kResultEditListNotSimple},
        {"rate 2.0", with([](TrackSpec& t) { t.edits = std::vector<Edit>{{1000, 0, 0x20000}}; }),
         QT::kResultEditListNotSimple},
        {"two edits and two stts entries: the earlier step",
         with([](TrackSpec& t) {
             t.edits = std::vector<Edit>{{1000, 0, kUnitRate}, {1000, 1000, kUnitRate}};
             t.stts = {{1000, 1}, {1000, 2}};
         }),
         QT::kResultEditListNotSimple},
        {"two stts entries", with([](TrackSpec& t) { t.stts = {{1000, 1}, {1000, 2}}; }), QT::kResultAudioShape},
        {"no stts entry", with([](TrackSpec& t) { t.stts = {}; }), QT::kResultAudioShape},
        {"0 channels", description(SoundDescriptionV0("sowt", 0, 16, 48000u << 16)), QT::kResultAudioShape},
        {"negative channels", description(SoundDescriptionV0("sowt", 0xfffe, 16, 48000u << 16)), QT::kResultAudioShape},
        {"2^16 channels in version 2", description(SoundDescriptionV2("lpcm", wideChannels)), QT::kResultAudioShape},
        {"4 bits", description(SoundDescriptionV0("sowt", 2, 4, 48000u << 16)), QT::kResultAudioShape},
        {"72 bits", description(SoundDescriptionV0("sowt", 2, 72, 48000u << 16)), QT::kResultAudioShape},
        {"description beyond stsd", description([] {
             Bytes d = SoundDescriptionV0("sowt", 2, 16, 48000u << 16);
             d[2] = 0x10;
             return d;
         }()),
         QT::kResultAudioShape},
        {"no description at all", with([](TrackSpec& t) { t.replaceStbl = {Stsd({})}; }), QT::kResultAudioShape},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto track = OpenTrack(c.plan);
        ASSERT_TRUE(track);
        QT::AudioSampleRangeMap map;
        map[3] = QT::AudioSampleRange{1, 2, 3};
        EXPECT_EQ(track->MakeAudioSampleRangeMap(map, false), c.code);
        EXPECT_EQ(Entries(map), (Keyed{{3, {1, 2, 3}}}));
    }
}

TEST(AudioRangeMap, HostileCountsStayBounded)
{
    // A run of nearly 2^32 chunks from decreasing first chunks, on 10 chunks.
    TrackSpec t = TwoChunks(std::nullopt, 100);
    t.stts = {{100, 1}};
    t.stsc = {{5, 10, 1}, {1, 10, 1}};
    t.stco = {0, 10, 20, 30, 40, 50, 60, 70, 80, 90};
    std::vector<Range> tenChunks;
    for (std::uint64_t i = 0; i < 10; ++i) tenChunks.push_back({10, 10 * i, 10 * i});
    ExpectRanges(Build(t), tenChunks);

    // `stsc` and `stco` counts near 2^32: the walk reads no further than the
    // copy, whatever the bytes behind the tables say.
    TrackSpec h = t;
    h.replaceStbl = {Atom("stsc", ByteWriter().U32(0).U32(0xffffffffu).U32(1).U32(10).U32(1)),
                     Atom("stco", ByteWriter().U32(0).U32(0xffffffffu).U32(0).U32(10))};
    const Built b = Build(h);
    EXPECT_EQ(b.code, QT::kResultSuccess);
    ASSERT_GE(b.byPosition.size(), 2u);
    EXPECT_EQ(b.byPosition[0], (std::pair<std::uint64_t, Range>{0, {10, 0, 0}}));
    EXPECT_EQ(b.byPosition[1], (std::pair<std::uint64_t, Range>{10, {10, 10, 10}}));
    std::uint64_t total = 0;
    for (const auto& [key, r] : b.byPosition) {
        EXPECT_GT(std::get<0>(r), 0u);
        total += std::get<0>(r);
    }
    EXPECT_LE(total, 100u + 10u); // never more than the edit, finished to its last run
}

} // namespace
