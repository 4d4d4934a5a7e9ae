// The track core: the edit analysis, the conversions between the movie's
// and the media's time scale, and the reader of the chunk offsets.

#include "Tests/Support/Open.h"

namespace {

using Edits = std::vector<std::array<std::uint32_t, 3>>;

// The cases are in Data/edit-analysis.json.
TEST(EditAnalysis, ReducesTheEditList)
{
    const nlohmann::json cases = DataRows("edit-analysis.json");
    ASSERT_EQ(cases.size(), 13u);
    for (const nlohmann::json& c : cases) {
        SCOPED_TRACE(c[0].get<std::string>());
        TrackPlan t;
        t.mediaType = c[1] ? "soun" : "vide";
        c[2].get_to(t.mediaTimeScale);
        c[3].get_to(t.duration);
        c[4].get_to(t.mediaDuration);
        if (!c[5].is_null()) t.edits = c[5].get<Edits>();
        c[6].get_to(t.stts);
        const OpenedTrack o = OpenTrackOf(t);
        QT::QTTrack& core = o.Core();
        const std::array<std::uint32_t, 8> got = {core.EditMediaTime(), core.EditFirstSample(),
            core.EditFirstSampleDuration(), core.EditDuration(), core.GetEditSampleCount(),
            core.HasSimpleEditList(false), core.HasSimpleEditList(true), core.IsTrackTrimmed()};
        EXPECT_EQ(got, c[7].get<decltype(got)>());
        EXPECT_EQ(core.GetEditSampleCount(), got[4]); // cached or recomputed alike
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
        const OpenedTrack o = OpenTrackOf(TrackPlan{.mediaTimeScale = mediaScale}, movieScale);
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
