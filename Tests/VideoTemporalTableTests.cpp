// Display order and frame dependencies from `ctts`, `sdtp` and the first
// `stts` duration, and the trace lines of a table found invalid.
#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "Tests/Support/OpenTrack.h"

using namespace testsupport;

namespace {

using Table = std::vector<QT::VideoTemporalReference>;
// Decode offset, earlier and later reference offsets, dependency flags.
using Row = std::tuple<int, int, int, unsigned>;
using Offsets = std::vector<std::pair<std::uint32_t, std::int32_t>>;

constexpr QT::ResultCode kInvalid = QT::kResultBadSampleTables;
const std::string kInvalidTable = "Invalid Quicktime sample table data detected.";

std::vector<Row> Rows(const Table& t)
{
    std::vector<Row> rows;
    for (const auto& r : t) rows.emplace_back(r.mDecodeOffset, r.mEarlierReferenceOffset, r.mLaterReferenceOffset, r.mDependencyFlags);
    return rows;
}

// `flags.size()` samples of one duration, with the given `sdtp` and `ctts`.
TrackSpec Frames(const Bytes& flags, const Offsets& ctts, std::uint32_t duration = 100)
{
    const auto n = static_cast<std::uint32_t>(flags.size());
    TrackSpec t;
    t.stts = {{n, duration}};
    t.stsc = {{1, n, 1}};
    t.stszSizes = std::vector<std::uint32_t>(n, 1);
    t.extraStbl = {Sdtp(flags), Ctts(ctts)};
    return t;
}

// I, P, B, B in decode order, shown as I, B, B, P.
const Bytes kIPBB = {0x60, 0x40, 0x08, 0x08};
const Offsets kIPBBOffsets = {{1, 0}, {1, 200}, {2, -100}};
const std::vector<Row> kIPBBRows = {{0, 0, 0, 0x60}, {1, -1, 2, 0x40}, {1, -2, 1, 0x08}, {-2, -3, 0, 0x08}};

// Collects the trace lines, without their thread and category prefix.
class VideoTemporalTable : public testing::Test {
protected:
    void SetUp() override
    {
        vellum::debug::SetTraceSink([this](const std::string& line) {
            const std::string prefix = "<" + std::to_string(vellum::threads::GetCurrentThreadID()) + "> <Atomscan> <5> ";
            EXPECT_EQ(line.rfind(prefix, 0), 0u) << line;
            EXPECT_EQ(line.substr(line.size() - 2), "\r\n") << line;
            mMessages.push_back(line.substr(prefix.size(), line.size() - prefix.size() - 2));
        });
        vellum::debug::SetTraceLevel("Atomscan", 5);
    }
    void TearDown() override
    {
        vellum::debug::ClearTraceLevels();
        vellum::debug::SetTraceSink(nullptr);
    }
    std::vector<Row> Make(const TrackSpec& plan, QT::ResultCode expected, Table table = {})
    {
        auto track = OpenTrack(plan);
        if (track) EXPECT_EQ(track->MakeVideoTemporalReferenceTable(table), expected);
        return Rows(table);
    }
    std::vector<std::string> mMessages;
};

TEST_F(VideoTemporalTable, DisplayOrderAndReferences)
{
    // Offsets are divided by the first duration only.
    TrackSpec ipbb = Frames(kIPBB, kIPBBOffsets);
    ipbb.stts = {{1, 100}, {3, 50}};
    const std::tuple<const char*, TrackSpec, std::vector<Row>> cases[] = {
        {"I P B B", ipbb, kIPBBRows},
        // Shown at 1, 4, 2, 3: 4 is out of range, places nothing and stores no flags.
        {"a constant shift of one frame", Frames(kIPBB, {{1, 100}, {1, 300}, {2, 0}}),
         {{0, 0, 0, 0x60}, {-1, 0, 0, 0}, {0, -1, -1, 0x08}, {0, -2, -2, 0x08}}},
        {"the first anchor shown later is both anchors", Frames({0x60, 0x08}, {{1, 100}, {1, -100}}),
         {{1, 1, 1, 0x60}, {-1, 0, 0, 0x08}}},
        {"an earlier anchor does not move the anchors", Frames({0x60, 0x60, 0x60, 0x40}, kIPBBOffsets),
         {{0, 0, 0, 0x60}, {1, 0, 0, 0x60}, {1, -2, 0, 0x60}, {-2, 0, 0, 0x40}}},
        {"offsets below one frame divide to 0 for either sign", Frames({0x60, 0x40}, {{1, 99}, {1, -99}}),
         {{0, 0, 0, 0x60}, {0, -1, 0, 0x40}}},
    };
    for (const auto& [what, plan, rows] : cases) {
        SCOPED_TRACE(what);
        EXPECT_EQ(Make(plan, QT::kResultSuccess), rows);
    }
    // 201 frames, the first shown last: offsets of 200 frames wrap to 8 bits.
    Bytes flags(201, 0x08);
    flags[0] = 0x60;
    const std::vector<Row> wrapped = Make(Frames(flags, {{1, 20000}, {200, -100}}), QT::kResultSuccess);
    ASSERT_EQ(wrapped.size(), 201u);
    EXPECT_EQ(wrapped[0], Row(1, -56, -56, 0x60));
    EXPECT_EQ(wrapped[200], Row(56, 0, 0, 0x08));
    EXPECT_TRUE(mMessages.empty());
}

TEST_F(VideoTemporalTable, TableAlreadyHeld)
{
    // Records beyond the samples go; records within are rewritten, or kept
    // where an invalid table placed nothing.
    const auto held = [](std::size_t n) { return Table(n, QT::VideoTemporalReference{5, 6, 7, 8}); };
    EXPECT_EQ(Make(Frames(kIPBB, kIPBBOffsets), QT::kResultSuccess, held(6)), kIPBBRows);
    EXPECT_EQ(Make(Frames(kIPBB, {}), kInvalid, held(2)), (std::vector<Row>{{5, 6, 7, 8}, {5, 6, 7, 8}, {0, 0, 0, 0}, {0, 0, 0, 0}}));
}

TEST_F(VideoTemporalTable, InvalidTables)
{
    TrackSpec noSdtp = Frames(kIPBB, kIPBBOffsets), noCtts = noSdtp, shortSdtp = noSdtp;
    noSdtp.extraStbl = {Ctts(kIPBBOffsets)};
    noCtts.extraStbl = {Sdtp(kIPBB)};
    shortSdtp.extraStbl = {Sdtp({0x60, 0x40, 0x08}), Ctts(kIPBBOffsets)};
    const std::vector<Row> none(4, Row{0, 0, 0, 0});
    const std::tuple<const char*, TrackSpec, std::vector<Row>, std::vector<std::string>> cases[] = {
        {"no sdtp: the table is left alone", noSdtp, {}, {}},
        {"no ctts", noCtts, {}, {}},
        // Refused before the table grows, so its size stays within what the file holds.
        {"fewer sdtp flags than samples", shortSdtp, {}, {kInvalidTable}},
        {"flags of no known kind", Frames({0x60, 0x20, 0x08, 0x08}, kIPBBOffsets),
         {{0, 0, 0, 0x60}, {0, 0, 0, 0x20}, {0, 0, 0, 0}, {-2, 0, 0, 0}},
         {"Found invalid sdtp atom data at frame 2", kInvalidTable}},
        {"two samples on one display index", Frames(kIPBB, {{2, 0}, {2, -100}}),
         {{0, 0, 0, 0x60}, {1, -1, 0, 0x40}, {1, -2, -1, 0x08}, {0, 0, 0, 0x08}}, {kInvalidTable}},
        {"ctts covering fewer samples than stts", Frames(kIPBB, {{3, 0}}),
         {{0, 0, 0, 0x60}, {0, -1, 0, 0x40}, {0, -2, -1, 0x08}, {0, 0, 0, 0}}, {kInvalidTable}},
        // Flags would be stored outside the table.
        {"ctts counting more samples than stts", Frames(kIPBB, {{1, 0}, {1, 200}, {3, -100}}), kIPBBRows, {kInvalidTable}},
        // Refused before any division.
        {"first duration 0", Frames(kIPBB, kIPBBOffsets, 0), none, {kInvalidTable}},
        {"first duration -1 with the least offset",
         Frames({0x60, 0x40}, {{1, 0}, {1, std::numeric_limits<std::int32_t>::min()}}, 0xffffffffu),
         {{0, 0, 0, 0x60}, {0, 0, 0, 0}}, {kInvalidTable}},
    };
    for (const auto& [what, plan, rows, messages] : cases) {
        SCOPED_TRACE(what);
        mMessages.clear();
        EXPECT_EQ(Make(plan, kInvalid), rows);
        EXPECT_EQ(mMessages, messages);
    }
}

TEST_F(VideoTemporalTable, TraceFollowsTheSettings)
{
    auto track = OpenTrack(Frames(kIPBB, {}));
    ASSERT_TRUE(track);
    Table t;
    // A line at 5, none below it or with the levels cleared, and one again at 5.
    for (int level : {5, 4, 0, 5}) {
        if (level) vellum::debug::SetTraceLevel("Atomscan", level);
        else vellum::debug::ClearTraceLevels();
        EXPECT_EQ(track->MakeVideoTemporalReferenceTable(t), kInvalid);
    }
    EXPECT_EQ(mMessages, std::vector<std::string>(2, kInvalidTable));
}

// The corpus HEVC files mark frames with 0x20 alone (or no 0x40 at all):
// flags of no known kind from the first frame on.
TEST_F(VideoTemporalTable, CorpusHevcFlags)
{
    for (const char* name : {"hevc_hvc1_sdtp.mov", "hevc_hev1.mov"}) {
        SCOPED_TRACE(name);
        mMessages.clear();
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        ASSERT_EQ(QT::MakeParser()->OpenMovie(ToString16((TestDataDir() / "corpus" / name).string()), movie),
                  QT::kResultSuccess);
        auto track = movie->GetIndTrack(0);
        EXPECT_TRUE(track->VideoTrackHasTemporalReferenceData());
        EXPECT_FALSE(track->VideoTrackHasEarlierDisplayKeyFrames());
        Table t;
        EXPECT_EQ(track->MakeVideoTemporalReferenceTable(t), kInvalid);
        ASSERT_EQ(t.size(), 25u);
        EXPECT_EQ(t[2].mDecodeOffset, -2); // the first frame is shown third
        EXPECT_EQ(t[0].mDependencyFlags, 0x20);
        EXPECT_EQ(mMessages, (std::vector<std::string>{"Found invalid sdtp atom data at frame 1", kInvalidTable}));
    }
}

} // namespace
