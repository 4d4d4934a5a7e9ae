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

constexpr QT::ResultCode kOk = QT::kResultSuccess;
constexpr QT::ResultCode kInvalid = QT::kResultBadSampleTables;
const std::string kInvalidTable = "Invalid Quicktime sample table data detected.";

std::vector<Row> Rows(const Table& t)
{
    std::vector<Row> rows;
    for (const auto& r : t) {
        rows.emplace_back(r.mDecodeOffset, r.mEarlierReferenceOffset, r.mLaterReferenceOffset, r.mDependencyFlags);
    }
    return rows;
}

// `flags.size()` samples of one duration, with the given `sdtp` and `ctts`.
TrackSpec Frames(const Bytes& flags, const std::vector<std::pair<std::uint32_t, std::int32_t>>& ctts,
                 std::uint32_t duration = 100)
{
    const auto n = static_cast<std::uint32_t>(flags.size());
    TrackSpec t;
    t.stts = {{n, duration}};
    t.stsc = {{1, n ? n : 1, 1}};
    t.stszSizes = std::vector<std::uint32_t>(n ? n : 1, 1);
    t.extraStbl = {Sdtp(flags), Ctts(ctts)};
    return t;
}

// I, P, B, B in decode order, shown as I, B, B, P.
const Bytes kIPBB = {0x60, 0x40, 0x08, 0x08};
const std::vector<std::pair<std::uint32_t, std::int32_t>> kIPBBOffsets = {{1, 0}, {1, 200}, {2, -100}};
const std::vector<Row> kIPBBRows = {{0, 0, 0, 0x60}, {1, -1, 2, 0x40}, {1, -2, 1, 0x08}, {-2, -3, 0, 0x08}};

class VideoTemporalTable : public testing::Test {
protected:
    void SetUp() override
    {
        vellum::debug::SetTraceSink([this](const std::string& line) { mLines.push_back(line); });
        vellum::debug::SetTraceLevel("Atomscan", 5);
    }
    void TearDown() override
    {
        vellum::debug::ClearTraceLevels();
        vellum::debug::SetTraceSink(nullptr);
    }

    // The lines traced so far, without their thread and category prefix.
    std::vector<std::string> Messages() const
    {
        const std::string prefix =
            "<" + std::to_string(vellum::threads::GetCurrentThreadID()) + "> <Atomscan> <5> ";
        std::vector<std::string> out;
        for (const std::string& line : mLines) {
            EXPECT_EQ(line.rfind(prefix, 0), 0u) << line;
            EXPECT_EQ(line.substr(line.size() - 2), "\r\n") << line;
            out.push_back(line.substr(prefix.size(), line.size() - prefix.size() - 2));
        }
        return out;
    }

    Table Make(const TrackSpec& plan, QT::ResultCode expected, Table table = {})
    {
        auto track = OpenTrack(plan);
        if (!track) return table;
        EXPECT_EQ(track->MakeVideoTemporalReferenceTable(table), expected);
        return table;
    }

    std::vector<std::string> mLines;
};

TEST_F(VideoTemporalTable, DisplayOrderAndReferences)
{
    struct Case {
        const char* what;
        TrackSpec plan;
        std::vector<Row> rows;
    };
    Bytes wrapFlags(201, 0x08);
    wrapFlags[0] = 0x60;
    std::vector<Row> wrapRows;
    for (int d = 0; d < 200; ++d) {
        const int distance = 200 - d > 127 ? 200 - d - 256 : 200 - d; // to the anchor shown at 200
        wrapRows.emplace_back(1, distance, distance, d == 0 ? 0x60 : 0x08);
    }
    wrapRows.emplace_back(56, 0, 0, 0x08); // decode index 0 shown at 200: -200 wraps to 56

    TrackSpec varying = Frames(kIPBB, kIPBBOffsets);
    varying.stts = {{1, 100}, {3, 50}}; // offsets are divided by the first duration only

    const Case cases[] = {
        {"I P B B", Frames(kIPBB, kIPBBOffsets), kIPBBRows},
        {"the same with another first duration", varying, kIPBBRows},
        // Shown at 1, 4, 2, 3: 4 is out of range, places nothing and stores no flags.
        {"a constant shift of one frame", Frames(kIPBB, {{1, 100}, {1, 300}, {2, 0}}),
         {{0, 0, 0, 0x60}, {-1, 0, 0, 0}, {0, -1, -1, 0x08}, {0, -2, -2, 0x08}}},
        {"the first anchor shown later is both anchors", Frames({0x60, 0x08}, {{1, 100}, {1, -100}}),
         {{1, 1, 1, 0x60}, {-1, 0, 0, 0x08}}},
        {"an earlier anchor does not move the anchors", Frames({0x60, 0x60, 0x60, 0x40}, kIPBBOffsets),
         {{0, 0, 0, 0x60}, {1, 0, 0, 0x60}, {1, -2, 0, 0x60}, {-2, 0, 0, 0x40}}},
        {"offsets below one frame divide to 0 for either sign", Frames({0x60, 0x40}, {{1, 99}, {1, -99}}),
         {{0, 0, 0, 0x60}, {0, -1, 0, 0x40}}},
        {"a lone 0x08 on the first sample", Frames({0x08, 0x60}, {{1, 100}, {1, -100}}),
         {{1, 0, 0, 0x08}, {-1, -1, -1, 0x60}}},
        {"200 frames apart wraps to -56", Frames(wrapFlags, {{1, 20000}, {200, -100}}), wrapRows},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(Rows(Make(c.plan, kOk)), c.rows);
    }
    EXPECT_TRUE(mLines.empty());
}

TEST_F(VideoTemporalTable, SecondCallGivesTheSameValues)
{
    auto track = OpenTrack(Frames(kIPBB, kIPBBOffsets));
    ASSERT_TRUE(track);
    Table table;
    ASSERT_EQ(track->MakeVideoTemporalReferenceTable(table), kOk);
    ASSERT_EQ(track->MakeVideoTemporalReferenceTable(table), kOk);
    EXPECT_EQ(Rows(table), kIPBBRows);
    // Records beyond the samples go; records within are rewritten.
    Table longer(6, QT::VideoTemporalReference{9, 9, 9, 9});
    ASSERT_EQ(track->MakeVideoTemporalReferenceTable(longer), kOk);
    EXPECT_EQ(Rows(longer), kIPBBRows);
}

TEST_F(VideoTemporalTable, InvalidTables)
{
    struct Case {
        const char* what;
        TrackSpec plan;
        std::vector<Row> rows;
        std::vector<std::string> messages;
    };
    TrackSpec zeroDuration = Frames(kIPBB, kIPBBOffsets, 0);
    TrackSpec minusOne = Frames({0x60, 0x40}, {{1, 0}, {1, std::numeric_limits<std::int32_t>::min()}}, 0xffffffffu);
    const Case cases[] = {
        {"flags of no known kind", Frames({0x60, 0x20, 0x08, 0x08}, kIPBBOffsets),
         {{0, 0, 0, 0x60}, {0, 0, 0, 0x20}, {0, 0, 0, 0}, {-2, 0, 0, 0}},
         {"Found invalid sdtp atom data at frame 2", kInvalidTable}},
        {"two samples on one display index", Frames(kIPBB, {{2, 0}, {2, -100}}),
         {{0, 0, 0, 0x60}, {1, -1, 0, 0x40}, {1, -2, -1, 0x08}, {0, 0, 0, 0x08}},
         {kInvalidTable}},
        {"ctts without entries", Frames(kIPBB, {}), std::vector<Row>(4, Row{0, 0, 0, 0}), {kInvalidTable}},
        {"ctts covering fewer samples than stts", Frames(kIPBB, {{3, 0}}),
         {{0, 0, 0, 0x60}, {0, -1, 0, 0x40}, {0, -2, -1, 0x08}, {0, 0, 0, 0}}, {kInvalidTable}},
        // Left open by the format; refused before any division.
        {"first duration 0", zeroDuration, std::vector<Row>(4, Row{0, 0, 0, 0}), {kInvalidTable}},
        {"first duration -1 with the least offset", minusOne, {{0, 0, 0, 0x60}, {0, 0, 0, 0}}, {kInvalidTable}},
        // Flags would be stored outside the table.
        {"ctts counting more samples than stts", Frames(kIPBB, {{1, 0}, {1, 200}, {3, -100}}), kIPBBRows,
         {kInvalidTable}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        mLines.clear();
        EXPECT_EQ(Rows(Make(c.plan, kInvalid)), c.rows);
        EXPECT_EQ(Messages(), c.messages);
    }
}

TEST_F(VideoTemporalTable, RecordsAlreadyHeldAreNotCleared)
{
    const Table held(2, QT::VideoTemporalReference{5, 6, 7, 8});
    const Table t = Make(Frames(kIPBB, {}), kInvalid, held);
    EXPECT_EQ(Rows(t), (std::vector<Row>{{5, 6, 7, 8}, {5, 6, 7, 8}, {0, 0, 0, 0}, {0, 0, 0, 0}}));
}

TEST_F(VideoTemporalTable, TablesThatCannotStartLeaveTheTableAlone)
{
    const Table held(3, QT::VideoTemporalReference{5, 6, 7, 8});
    TrackSpec noSdtp = Frames(kIPBB, kIPBBOffsets);
    noSdtp.extraStbl = {Ctts(kIPBBOffsets)};
    TrackSpec noCtts = Frames(kIPBB, kIPBBOffsets);
    noCtts.extraStbl = {Sdtp(kIPBB)};
    for (const TrackSpec& plan : {noSdtp, noCtts}) {
        EXPECT_EQ(Rows(Make(plan, kInvalid, held)), Rows(held));
    }
    EXPECT_TRUE(mLines.empty());
    // An `sdtp` with fewer flags than samples is refused before the table is
    // touched, so its size never exceeds what the file holds.
    TrackSpec shortSdtp = Frames(kIPBB, kIPBBOffsets);
    shortSdtp.extraStbl = {Sdtp({0x60, 0x40, 0x08}), Ctts(kIPBBOffsets)};
    EXPECT_EQ(Rows(Make(shortSdtp, kInvalid, held)), Rows(held));
    EXPECT_EQ(Messages(), std::vector<std::string>{kInvalidTable});
}

TEST_F(VideoTemporalTable, TraceFollowsTheSettings)
{
    auto track = OpenTrack(Frames(kIPBB, {}));
    ASSERT_TRUE(track);
    Table t;
    EXPECT_EQ(track->MakeVideoTemporalReferenceTable(t), kInvalid);
    ASSERT_EQ(mLines.size(), 1u);
    EXPECT_EQ(mLines[0], "<" + std::to_string(vellum::threads::GetCurrentThreadID()) +
                             "> <Atomscan> <5> Invalid Quicktime sample table data detected.\r\n");

    vellum::debug::SetTraceLevel("Atomscan", 4); // below the level of these lines
    EXPECT_EQ(track->MakeVideoTemporalReferenceTable(t), kInvalid);
    vellum::debug::ClearTraceLevels();
    EXPECT_EQ(track->MakeVideoTemporalReferenceTable(t), kInvalid);
    EXPECT_EQ(mLines.size(), 1u);

    vellum::debug::SetTraceLevel("Atomscan", 5);
    EXPECT_EQ(track->MakeVideoTemporalReferenceTable(t), kInvalid);
    EXPECT_EQ(mLines.size(), 2u);
}

TEST_F(VideoTemporalTable, OnlyForVideo)
{
    TrackSpec plan = Frames(kIPBB, kIPBBOffsets);
    plan.mediaType = "soun";
    auto track = OpenTrack(plan);
    ASSERT_TRUE(track);
    Table t;
    try {
        track->MakeVideoTemporalReferenceTable(t);
        ADD_FAILURE() << "no contract failure";
    } catch (const vellum::config::Error& e) {
        EXPECT_EQ(e.Function(), "QT::QTTrack::MakeVideoTemporalReferenceTable");
    }
    EXPECT_TRUE(t.empty());
}

// The corpus HEVC files mark frames with 0x20 alone (or no 0x40 at all):
// flags of no known kind from the first frame on.
TEST_F(VideoTemporalTable, CorpusHevcFlags)
{
    for (const char* name : {"hevc_hvc1_sdtp.mov", "hevc_hev1.mov"}) {
        SCOPED_TRACE(name);
        mLines.clear();
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        ASSERT_EQ(QT::MakeParser()->OpenMovie(ToString16((TestDataDir() / "corpus" / name).string()), movie), kOk);
        auto track = movie->GetIndTrack(0);
        EXPECT_TRUE(track->VideoTrackHasTemporalReferenceData());
        EXPECT_FALSE(track->VideoTrackHasEarlierDisplayKeyFrames());
        Table t;
        EXPECT_EQ(track->MakeVideoTemporalReferenceTable(t), kInvalid);
        ASSERT_EQ(t.size(), 25u);
        // The first frame is shown third (a ctts offset of two frames).
        EXPECT_EQ(t[2].mDecodeOffset, -2);
        EXPECT_EQ(t[0].mDependencyFlags, 0x20);
        EXPECT_EQ(Messages(), (std::vector<std::string>{"Found invalid sdtp atom data at frame 1", kInvalidTable}));
    }
}

} // namespace
