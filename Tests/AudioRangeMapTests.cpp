// File ranges of a sound track's frames within its edit, and the tracks whose
// shape is refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <tuple>

#include "Tests/Support/Open.h"
#include "Tests/Support/SoundBuilder.h"

using namespace testsupport;

namespace {

using Change = std::function<void(TrackPlan&)>;
using Range = std::tuple<std::uint64_t, std::uint64_t, std::uint64_t>; // count, output position, offset
using Keyed = std::vector<std::pair<std::uint64_t, Range>>;
using Entries = std::vector<std::array<std::uint32_t, 3>>;

Change Edits(Entries edits) { return [=](TrackPlan& t) { t.edits = edits; }; }
Change Edit(std::uint32_t duration, std::uint32_t mediaTime) { return Edits({{duration, mediaTime, 0x10000}}); }
Change Runs(Entries stsc) { return [=](TrackPlan& t) { t.stsc = stsc; }; }
Change Stts(std::vector<std::pair<std::uint32_t, std::uint32_t>> stts) { return [=](TrackPlan& t) { t.stts = stts; }; }
Change Duration(std::uint32_t d) { return [=](TrackPlan& t) { t.duration = d; }; }
Change Described(Bytes d) { return [=](TrackPlan& t) { t.descriptions = {d}; }; }
Change All(std::vector<Change> changes) { return [=](TrackPlan& t) { for (const Change& c : changes) c(t); }; }
Change Stbl(std::vector<Atom> atoms) { return [=](TrackPlan& t) { t.replaceStbl = atoms; }; }
Atom Hostile(const char* type, ByteWriter entries) { return Atom(type, ByteWriter().U32(0).U32(~0u).Raw(entries)); }

// Stereo 16-bit, 4 bytes a frame, chunks of 1000 frames at 5000 and 9000, with
// `change` made; the movie at `movieTimeScale`. Each case maps both ways into a
// map that holds key 0 already: that key keeps its range (a first range keyed 0
// is seen in the other map), the frames behind it still count, and a refusal
// adds nothing.
TEST(AudioRangeMap, RangesAndRefusals)
{
    struct Case { const char* name; Change change; std::vector<Range> ranges;
                  QT::ResultCode code = 0; std::uint32_t movieTimeScale = 48000; };
    const Range first{1000, 0, 5000}, second{1000, 1000, 9000};
    const QT::ResultCode kShape = QT::kResultAudioShape;
    const Case cases[] = {
        {"no edit", All({}), {first, second}},
        {"inside the second chunk", Edit(300, 1500), {{300, 0, 11000}}},
        {"across the chunk boundary", Edit(1000, 500), {{500, 0, 7000}, {500, 500, 9000}}},
        {"ends on a chunk boundary", Edit(1000, 0), {first}},
        {"starts at a chunk's end", Edit(500, 1000), {{500, 0, 9000}}},
        {"past the last frame", Edit(5000, 1999), {{1, 0, 12996}}},
        {"media time -1", Edit(1000, ~0u), {}},
        {"edit of 15 at 600: 1200 frames", All({Edit(15, 0), Duration(15)}), {first, {200, 1000, 9000}}, 0, 600},
        {"track duration of 5 at 600", Duration(5), {{400, 0, 5000}}, 0, 600},
        {"a first run of no chunk", Runs({{1, 999, 1}, {1, 1000, 1}}), {first, second}},
        {"first chunks that decrease: a run of nearly 2^32", Runs({{2, 1000, 1}, {1, 1000, 1}}), {first, second}},
        {"runs of other sizes, the last past the table", Runs({{1, 1000, 1}, {2, 500, 1}, {5, 7, 1}}),
         {first, {500, 1000, 9000}}},
        {"table counts near 2^32: only what the copy holds",
         Stbl({Hostile("stsc", ByteWriter().U32(1).U32(10).U32(1)), Hostile("stco", ByteWriter().U32(0).U32(10))}),
         {{10, 0, 0}, {10, 10, 10}}},
        // The run that reaches the last sample is finished; the next is not visited.
        {"stop at the end of the run that reaches the samples",
         All({Stts({{1500, 1}}), Runs({{1, 1000, 1}, {3, 1000, 1}}), Duration(5000),
              [](TrackPlan& t) { t.stco = {5000, 9000, 13000}; }}),
         {first, second}},
        // Widened as signed: from 2^31 on the count never stops the walk.
        {"a sample count of 2^31", All({Stts({{0x80000000u, 1}}), Runs({{1, 0x80000000u, 1}, {2, 10, 1}}), Duration(~0u)}),
         {{0x80000000u, 0, 5000}, {10, 0x80000000u, 9000}}},
        // Mono `in24` of sample size 16: 3 bytes a frame.
        {"24 bits from the format, offsets above 32 bits",
         All({Described(SoundDescriptionV1("in24", 1, 16)), Edit(1000, 500),
              [](TrackPlan& t) { t.co64 = std::vector<std::uint64_t>{0x123456789ull, 0x223456789ull}; }}),
         {{500, 0, 0x123456789ull + 1500}, {500, 500, 0x223456789ull}}},
        {"12-bit samples count as one byte",
         All({Described(SoundDescriptionV0("twos", 3, 12, 48000u << 16)), Edit(100, 10)}), {{100, 0, 5000 + 10 * 3}}},
        {"no samples", Stts({{0, 1}}), {}},
        {"no stsc entries", Runs({}), {}},
        {"no chunks", [](TrackPlan& t) { t.stco = {}; }, {}},
        {"two edits and two stts entries: the edits first",
         All({Stts({{1000, 1}, {1000, 2}}), Edits({{1000, 0, 0x10000}, {1000, 1000, 0x10000}})}), {},
         QT::kResultEditListNotSimple},
        {"two stts entries", Stts({{1000, 1}, {1000, 2}}), {}, kShape},
        {"no stts entry", Stts({}), {}, kShape},
        {"0 channels", Described(SoundDescriptionV0("sowt", 0, 16, 48000u << 16)), {}, kShape},
        {"negative channels", Described(SoundDescriptionV0("sowt", 0xfffe, 16, 48000u << 16)), {}, kShape},
        {"2^16 channels in version 2", Described(SoundDescriptionV2("lpcm", 48000, 0x10000, 16, 4, 4)), {}, kShape},
        {"7 bits", Described(SoundDescriptionV0("sowt", 2, 7, 48000u << 16)), {}, kShape},
        {"65 bits", Described(SoundDescriptionV0("sowt", 2, 65, 48000u << 16)), {}, kShape},
        {"no description", Stbl({Stsd({})}), {}, kShape},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        MoviePlan movie;
        movie.timeScale = c.movieTimeScale;
        TrackPlan& t = movie.tracks.front() = SoundTrack({SoundDescriptionV0("sowt", 2, 16, 48000u << 16)});
        t.duration = t.mediaDuration = 2000;
        t.stts = {{2000, 1}};
        t.stsc = {{1, 1000, 1}};
        t.stco = {5000, 9000};
        c.change(t);
        auto track = OpenTrack(movie);
        ASSERT_TRUE(track);
        for (bool byOffset : {false, true}) {
            QT::AudioSampleRangeMap map{{0, {7, 7, 7}}};
            EXPECT_EQ(track->MakeAudioSampleRangeMap(map, byOffset), c.code);
            Keyed expected{{0, {7, 7, 7}}}, got;
            for (const Range& r : c.ranges)
                if (std::uint64_t key = byOffset ? std::get<2>(r) : std::get<1>(r); key != 0) expected.push_back({key, r});
            std::sort(expected.begin(), expected.end());
            for (const auto& [key, r] : map) got.push_back({key, {r.mSampleCount, r.mOutputPosition, r.mOffsetInFile}});
            EXPECT_EQ(got, expected) << (byOffset ? "by offset" : "by position");
        }
    }
}

} // namespace
