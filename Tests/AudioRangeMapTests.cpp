// File ranges of a sound track's frames within its edit, and the tracks whose
// shape is refused.
#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "Tests/Support/OpenTrack.h"
#include "Tests/Support/SoundBuilder.h"

using namespace testsupport;

namespace {

using Edit = std::array<std::uint32_t, 3>;                             // duration, media time, rate
using Range = std::tuple<std::uint64_t, std::uint64_t, std::uint64_t>; // count, output position, offset
using Keyed = std::vector<std::pair<std::uint64_t, Range>>;

Keyed Entries(const QT::AudioSampleRangeMap& map)
{
    Keyed out;
    for (const auto& [key, r] : map) out.push_back({key, Range{r.mSampleCount, r.mOutputPosition, r.mOffsetInFile}});
    return out;
}

// Stereo 16-bit, 4 bytes a frame: chunks of 1000 frames at 5000 and 9000,
// in a movie at `movieTimeScale`.
Tessel::InterfaceRef<QT::IQTTrack> TwoChunks(const std::function<void(TrackSpec&)>& change, std::uint32_t movieTimeScale = 48000)
{
    TrackSpec t = SoundTrack({SoundDescriptionV0("sowt", 2, 16, 48000u << 16)});
    t.duration = t.mediaDuration = 2000;
    t.stts = {{2000, 1}};
    t.stsc = {{1, 1000, 1}};
    t.stszConstant = 4;
    t.stco = {5000, 9000};
    change(t);
    MovieSpec movie;
    movie.timeScale = movieTimeScale;
    movie.tracks = {t};
    return OpenTrack(movie);
}

TEST(AudioRangeMap, RangesAndRefusals)
{
    auto edit = [](std::uint32_t duration, std::uint32_t mediaTime, std::uint32_t rate = 0x10000) {
        return [=](TrackSpec& t) { t.edits = std::vector<Edit>{{duration, mediaTime, rate}}; };
    };
    auto runs = [](std::vector<std::array<std::uint32_t, 3>> stsc) { return [=](TrackSpec& t) { t.stsc = stsc; }; };
    auto described = [](Bytes d) { return [=](TrackSpec& t) { t.descriptions = {d}; }; };
    const QT::ResultCode kShape = QT::kResultAudioShape;
    struct Case { const char* name; std::function<void(TrackSpec&)> change; std::vector<Range> ranges; QT::ResultCode code = 0; std::uint32_t movieTimeScale = 48000; };
    const Range first{1000, 0, 5000}, second{1000, 1000, 9000};
    const Case cases[] = {
        {"no edit", [](TrackSpec&) {}, {first, second}},
        {"inside the second chunk", edit(300, 1500), {{300, 0, 11000}}},
        {"across the chunk boundary", edit(1000, 500), {{500, 0, 7000}, {500, 500, 9000}}},
        {"both ends in one chunk", edit(300, 200), {{300, 0, 5800}}},
        {"ends on a chunk boundary", edit(1000, 0), {first}},
        {"starts at a chunk's end", edit(500, 1000), {{500, 0, 9000}}},
        {"past the last frame", edit(5000, 1999), {{1, 0, 12996}}},
        {"media time -1", edit(1000, ~0u), {}},
        {"edit of 15 at 600 is 1200 frames", [&](TrackSpec& t) { t.duration = 15; edit(15, 0)(t); }, {first, {200, 1000, 9000}}, 0, 600},
        {"track duration of 5 at 600", [](TrackSpec& t) { t.duration = 5; }, {{400, 0, 5000}}, 0, 600},
        {"a first run of no chunk", runs({{1, 999, 1}, {1, 1000, 1}}), {first, second}},
        {"first chunks that decrease: a run of nearly 2^32", runs({{2, 1000, 1}, {1, 1000, 1}}), {first, second}},
        {"runs of other sizes, the last past the table", runs({{1, 1000, 1}, {2, 500, 1}, {5, 7, 1}}), {first, {500, 1000, 9000}}},
        // The run that reaches the last sample is finished; the next is not visited.
        {"stop at the end of the run that reaches the samples", [](TrackSpec& t) {
             t.duration = 5000; t.stts = {{1500, 1}}; t.stsc = {{1, 1000, 1}, {3, 1000, 1}}; t.stco = {5000, 9000, 13000};
         }, {first, second}},
        // Widened as signed: from 2^31 on the count never stops the walk.
        {"a sample count of 2^31", [](TrackSpec& t) {
             t.duration = 0x90000000u; t.stts = {{0x80000000u, 1}}; t.stsc = {{1, 0x80000000u, 1}, {2, 10, 1}};
         }, {{0x80000000u, 0, 5000}, {10, 0x80000000u, 9000}}},
        // Mono `in24` of sample size 16: 3 bytes a frame.
        {"24 bits from the format, offsets above 32 bits", [&](TrackSpec& t) {
             t.descriptions = {SoundDescriptionV1("in24", 1, 16)}; t.co64 = std::vector<std::uint64_t>{0x123456789ull, 0x223456789ull}; edit(1000, 500)(t);
         }, {{500, 0, 0x123456789ull + 1500}, {500, 500, 0x223456789ull}}},
        {"compressed: a packet is a frame", [](TrackSpec& t) {
             t.descriptions = {SoundDescriptionV1("mp4a", 2, 16)}; t.stsc = {{1, 10, 1}}; t.stts = {{20, 1024}};
         }, {{10, 0, 5000}, {10, 10, 9000}}},
        {"12-bit samples count as one byte", [&](TrackSpec& t) {
             t.descriptions = {SoundDescriptionV0("twos", 3, 12, 48000u << 16)}; edit(100, 10)(t);
         }, {{100, 0, 5000 + 10 * 3}}},
        {"no samples", [](TrackSpec& t) { t.stts = {{0, 1}}; }, {}},
        {"no stsc entries", runs({}), {}},
        {"no chunks", [](TrackSpec& t) { t.stco = {}; }, {}},
        {"two edits and two stts entries: the edits first", [](TrackSpec& t) {
             t.edits = std::vector<Edit>{{1000, 0, 0x10000}, {1000, 1000, 0x10000}}; t.stts = {{1000, 1}, {1000, 2}};
         }, {}, QT::kResultEditListNotSimple},
        {"two stts entries", [](TrackSpec& t) { t.stts = {{1000, 1}, {1000, 2}}; }, {}, kShape},
        {"no stts entry", [](TrackSpec& t) { t.stts = {}; }, {}, kShape},
        {"0 channels", described(SoundDescriptionV0("sowt", 0, 16, 48000u << 16)), {}, kShape},
        {"negative channels", described(SoundDescriptionV0("sowt", 0xfffe, 16, 48000u << 16)), {}, kShape},
        {"2^16 channels in version 2", described(SoundDescriptionV2("lpcm", 48000, 0x10000, 16, 4, 4)), {}, kShape},
        {"7 bits", described(SoundDescriptionV0("sowt", 2, 7, 48000u << 16)), {}, kShape},
        {"65 bits", described(SoundDescriptionV0("sowt", 2, 65, 48000u << 16)), {}, kShape},
        {"no description", [](TrackSpec& t) { t.replaceStbl = {Stsd({})}; }, {}, kShape},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto track = TwoChunks(c.change, c.movieTimeScale);
        ASSERT_TRUE(track);
        // An entry already in the map stays, and a refusal adds none.
        for (bool byOffset : {false, true}) {
            QT::AudioSampleRangeMap map{{~0ull, {1, 2, 3}}};
            EXPECT_EQ(track->MakeAudioSampleRangeMap(map, byOffset), c.code);
            Keyed expected{{~0ull, {1, 2, 3}}};
            for (const Range& r : c.ranges) expected.push_back({byOffset ? std::get<2>(r) : std::get<1>(r), r});
            std::sort(expected.begin(), expected.end());
            EXPECT_EQ(Entries(map), expected) << (byOffset ? "by offset" : "by position");
        }
    }
}

// A key already in the map keeps its range; its frames still count toward the
// output positions behind it.
TEST(AudioRangeMap, KeysAlreadyInTheMapKeepTheirRanges)
{
    auto track = TwoChunks([](TrackSpec&) {});
    ASSERT_TRUE(track);
    QT::AudioSampleRangeMap map{{0, {7, 7, 7}}};
    EXPECT_EQ(track->MakeAudioSampleRangeMap(map, false), QT::kResultSuccess);
    EXPECT_EQ(Entries(map), (Keyed{{0, {7, 7, 7}}, {1000, {1000, 1000, 9000}}}));
}

// `stsc` and `stco` counts near 2^32 on one entry and two: nothing is read
// past the copy, and no more frames than the edit, finished to its last run.
TEST(AudioRangeMap, HostileCountsStayBounded)
{
    auto track = TwoChunks([](TrackSpec& t) {
        t.stts = {{100, 1}};
        t.duration = 100;
        t.replaceStbl = {Atom("stsc", ByteWriter().U32(0).U32(~0u).U32(1).U32(10).U32(1)),
                         Atom("stco", ByteWriter().U32(0).U32(~0u).U32(0).U32(10))};
    });
    QT::AudioSampleRangeMap map;
    ASSERT_EQ(track->MakeAudioSampleRangeMap(map, false), QT::kResultSuccess);
    const Keyed entries = Entries(map);
    ASSERT_GE(entries.size(), 2u);
    EXPECT_EQ(Keyed(entries.begin(), entries.begin() + 2), (Keyed{{0, {10, 0, 0}}, {10, {10, 10, 10}}}));
    std::uint64_t total = 0;
    for (const auto& [key, r] : entries) total += std::get<0>(r);
    EXPECT_LE(total, 110u);
}

} // namespace
