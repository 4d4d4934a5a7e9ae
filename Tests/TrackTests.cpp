// The track core: the edit analysis, the conversions between the movie's
// and the media's time scale, and the reader of the chunk offsets.

#include "Tests/Support/Open.h"

namespace {

using Edits = std::vector<std::array<std::uint32_t, 3>>;
constexpr std::uint32_t kUnit = 0x10000;

TEST(EditAnalysis, ReducesTheEditList)
{
    // A movie time scale of 600. Expected: media time, first sample and its
    // shown duration, edit duration, edit sample count; then 1 or 0 for a
    // simple list at any rate and at unit rate, and for trimmed. The count ends
    // at the media time plus the edit's length, so a head cut does not shorten it.
    const struct {
        const char* name;
        bool sound;
        std::uint32_t mediaScale, tkhdDuration, mediaDuration;
        std::optional<Edits> edits;
        std::vector<std::pair<std::uint32_t, std::uint32_t>> stts;
        std::array<std::uint32_t, 8> expected;
    } cases[] = {
        {"no edit, media scale doubled", 0, 1200, 500, 1000, {}, {{10, 100}}, {0, 0, 0, 1000, 10, 1, 1, 0}},
        {"no edit, durations differ", 0, 600, 900, 1000, {}, {{10, 100}}, {0, 0, 0, 900, 9, 1, 1, 1}},
        {"edit at 0, first entry empty", 0, 600, 1000, 1000, Edits{{1000, 0, kUnit}}, {{0, 50}, {10, 100}},
         {0, 0, 100, 1000, 10, 1, 1, 0}},
        {"edit inside a sample", 0, 600, 400, 1000, Edits{{400, 250, kUnit}}, {{10, 100}}, {250, 2, 50, 400, 7, 1, 1, 1}},
        {"edit on a boundary", 0, 600, 400, 1000, Edits{{400, 200, kUnit}}, {{10, 100}}, {200, 2, 100, 400, 6, 1, 1, 1}},
        {"edit, media at 1200", 0, 1200, 400, 2000, Edits{{400, 250, kUnit}}, {{10, 100}}, {250, 2, 50, 800, 8, 1, 1, 1}},
        {"sound edit", 1, 600, 1000, 48000, Edits{{1000, 1000, kUnit}}, {{48000, 1}}, {1000, 1000, 1, 1000, 2000, 1, 1, 1}},
        {"edit past the end", 0, 600, 100, 1000, Edits{{100, 5050, kUnit}}, {{10, 100}}, {5050, 50, 50, 100, 10, 1, 1, 1}},
        {"last duration 0", 0, 600, 100, 500, Edits{{100, 1000, kUnit}}, {{5, 100}, {3, 0}}, {1000, 8, 0, 100, 8, 1, 1, 1}},
        {"negative duration", 0, 600, 100, 500, Edits{{100, 10, kUnit}}, {{5, 0xFFFFFFF0}}, {10, 0, 0, 100, 5, 1, 1, 1}},
        {"two edits", 0, 1200, 700, 1000, Edits{{100, 0xFFFFFFFF, kUnit}, {600, 0, kUnit}}, {{10, 100}},
         {0, 0, 0, 700, 7, 0, 0, 1}},
        {"half rate", 0, 600, 1000, 1000, Edits{{1000, 0, 0x8000}}, {{10, 100}}, {0, 0, 100, 1000, 10, 1, 0, 1}},
        {"edit over an empty stts", 0, 600, 1000, 1000, Edits{{500, 250, kUnit}}, {}, {0, 0, 0, 1000, 0, 1, 1, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TrackPlan t;
        t.mediaType = c.sound ? "soun" : "vide";
        std::tie(t.mediaTimeScale, t.duration, t.mediaDuration, t.edits, t.stts) =
            std::tie(c.mediaScale, c.tkhdDuration, c.mediaDuration, c.edits, c.stts);
        const OpenedTrack o = OpenTrackOf(t);
        QT::QTTrack& core = o.Core();
        const std::array<std::uint32_t, 8> got = {core.EditMediaTime(), core.EditFirstSample(),
            core.EditFirstSampleDuration(), core.EditDuration(), core.GetEditSampleCount(),
            core.HasSimpleEditList(false), core.HasSimpleEditList(true), core.IsTrackTrimmed()};
        EXPECT_EQ(got, c.expected);
        EXPECT_EQ(core.GetEditSampleCount(), c.expected[4]); // cached or recomputed alike
    }
}

// Products are taken at 64 bits; a time scale of 0 converts to 0, equal
// scales convert nothing.
TEST(TimeScales, ConversionsAt64Bits)
{
    const std::array<std::uint32_t, 5> cases[] = {
        // movie scale, media scale, value, in media time, in movie time
        {600, 90000, 100000, 15000000, 666}, {90000, 90000, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF},
        {0, 600, 100, 0, 0}, {600, 0, 100, 0, 0},
    };
    for (const auto& [movieScale, mediaScale, value, media, movie] : cases) {
        TrackPlan t;
        t.mediaTimeScale = mediaScale;
        const OpenedTrack o = OpenTrackOf(t, movieScale);
        EXPECT_EQ(o.Core().MovieToMediaTime(value), media) << movieScale << " " << mediaScale;
        EXPECT_EQ(o.Core().MediaToMovieTime(value), movie) << movieScale << " " << mediaScale;
    }
}

// Chunk offsets read from the track's record alone: `co64` where the track has
// one, 32-bit entries widened with zeros, a count cut to the table's atom, and
// a contract at the count that names the public header.
TEST(ChunkOffsets, ReadFromTheRecordAlone)
{
    using Change = std::function<void(TrackPlan&)>;
    const std::tuple<const char*, Change, bool, std::vector<std::uint64_t>> cases[] = {
        {"stco", [](TrackPlan& t) { t.stco = {0x10, 0xfffffff0}; }, false, {0x10, 0xfffffff0}},
        {"co64 beside stco", [](TrackPlan& t) { t.co64 = {{0x123456789a, 5}}; t.extraStbl = {Stco({1, 2})}; }, true,
         {0x123456789a, 5}},
        {"a count past the atom", [](TrackPlan& t) {
             t.replaceStbl = {Atom("stco", ByteWriter().U32(0).U32(5).U32(7).U32(8))};
             t.extraStbl = {Atom("free", Bytes(32, 1))};
         }, false, {7, 8}},
    };
    for (const auto& [name, change, wide, entries] : cases) {
        SCOPED_TRACE(name);
        TrackPlan t;
        change(t);
        const OpenedTrack o = OpenTrackOf(t);
        const QT::ChunkOffsetHelper helper(o.Core().Item());
        std::vector<std::uint64_t> read;
        for (std::uint32_t i = 0; i < helper.NumEntries(); ++i) read.push_back(helper.GetEntry(i));
        EXPECT_EQ(std::pair(helper.IsWide(), read), std::pair(wide, entries));
        try {
            helper.GetEntry(helper.NumEntries());
            ADD_FAILURE() << "no contract failure";
        } catch (const vellum::config::Error& e) {
            EXPECT_EQ(std::tuple(e.File(), e.Function(), e.Condition()),
                      std::tuple("Inc/QTTrack.h", "QT::ChunkOffsetHelper::GetEntry", "entryIdx < mNumEntries"));
        }
    }
}

} // namespace
