// Display order and frame dependencies from `ctts`, `sdtp` and the first
// `stts` duration, and the trace lines of a table found invalid.
#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

using Table = std::vector<QT::VideoTemporalReference>;
// Decode offset, earlier and later reference offsets, dependency flags.
using Row = std::tuple<int, int, int, unsigned>;
using Rows = std::vector<Row>;
using Offsets = std::vector<std::pair<std::uint32_t, std::int32_t>>;
using Lines = std::vector<std::string>;

constexpr QT::ResultCode kInvalid = QT::kResultBadSampleTables;
const std::string kInvalidTable = "Invalid Quicktime sample table data detected.";

// `flags.size()` samples of one duration, with the given `sdtp` and `ctts`.
TrackPlan Frames(const Bytes& flags, const Offsets& ctts, std::uint32_t duration = 100)
{
    const auto n = static_cast<std::uint32_t>(flags.size());
    TrackPlan t;
    t.stts = {{n, duration}};
    t.stsc = {{1, n, 1}};
    t.stszSizes = std::vector<std::uint32_t>(n, 1);
    t.extraStbl = {Sdtp(flags), Ctts(ctts)};
    return t;
}

// I, P, B, B in decode order, shown as I, B, B, P.
const Bytes kIPBB = {0x60, 0x40, 0x08, 0x08};
const Offsets kIPBBOffsets = {{1, 0}, {1, 200}, {2, -100}};
const Rows kIPBBRows = {{0, 0, 0, 0x60}, {1, -1, 2, 0x40}, {1, -2, 1, 0x08}, {-2, -3, 0, 0x08}};

// Keeps the messages traced, checking the thread, category and level in front and the line end.
class VideoTemporalTable : public testing::Test {
protected:
    void SetUp() override
    {
        vellum::debug::SetTraceSink([this](const std::string& line) {
            std::string prefix = "<"; // built step by step: g++ 12 -O3 misreads "<" + std::string
            prefix += std::to_string(vellum::threads::GetCurrentThreadID());
            prefix += "> <Atomscan> <5> ";
            EXPECT_EQ(line.substr(0, prefix.size()) + line.substr(line.size() - 2), prefix + "\r\n") << line;
            mMessages.push_back(line.substr(prefix.size(), line.size() - prefix.size() - 2));
        });
        vellum::debug::SetTraceLevel("Atomscan", 5);
    }
    void TearDown() override { vellum::debug::ClearTraceLevels(); vellum::debug::SetTraceSink(nullptr); }
    Rows Make(const TrackPlan& plan, QT::ResultCode expected)
    {
        auto track = OpenTrack(plan);
        Table table;
        EXPECT_EQ(track ? track->MakeVideoTemporalReferenceTable(table) : QT::kResultNotFound, expected);
        Rows rows;
        for (const auto& r : table)
            rows.emplace_back(r.mDecodeOffset, r.mEarlierReferenceOffset, r.mLaterReferenceOffset, r.mDependencyFlags);
        return rows;
    }
    Lines mMessages;
};

TEST_F(VideoTemporalTable, DisplayOrderAndReferences)
{
    TrackPlan ipbb = Frames(kIPBB, kIPBBOffsets);
    ipbb.stts = {{1, 100}, {3, 50}}; // offsets are divided by the first duration only
    EXPECT_EQ(Make(ipbb, QT::kResultSuccess), kIPBBRows);
    // An anchor without references (0x40 and 0x20 together) is a key frame that may be shown before others.
    EXPECT_TRUE(OpenTrack(ipbb)->VideoTrackHasEarlierDisplayKeyFrames());
    EXPECT_FALSE(OpenTrack(Frames({0x40, 0x20, 0x08, 0x08}, kIPBBOffsets))->VideoTrackHasEarlierDisplayKeyFrames());
    EXPECT_EQ(mMessages, Lines{});
}

TEST_F(VideoTemporalTable, InvalidTables)
{
    TrackPlan noSdtp = Frames(kIPBB, kIPBBOffsets), noCtts = noSdtp, shortSdtp = noSdtp;
    noSdtp.extraStbl = {Ctts(kIPBBOffsets)};
    noCtts.extraStbl = {Sdtp(kIPBB)};
    shortSdtp.extraStbl = {Sdtp({0x60, 0x40, 0x08}), Ctts(kIPBBOffsets)};
    // The records the table ends with, and the lines traced.
    const std::tuple<const char*, TrackPlan, std::size_t, Lines> cases[] = {
        {"no sdtp: the table is left alone", noSdtp, 0, {}},
        {"no ctts", noCtts, 0, {}},
        // Refused before the table grows, so its size stays within what the file holds.
        {"fewer sdtp flags than samples", shortSdtp, 0, {kInvalidTable}},
        {"flags of no known kind", Frames({0x60, 0x20, 0x08, 0x08}, kIPBBOffsets), 4,
         {"Found invalid sdtp atom data at frame 2", kInvalidTable}},
        {"two samples on one display index", Frames(kIPBB, {{2, 0}, {2, -100}}), 4, {kInvalidTable}},
        {"ctts covering fewer samples than stts", Frames(kIPBB, {{3, 0}}), 4, {kInvalidTable}},
        // Flags would be stored outside the table.
        {"ctts counting more samples than stts", Frames(kIPBB, {{1, 0}, {1, 200}, {3, -100}}), 4, {kInvalidTable}},
        // Refused before any division.
        {"first duration 0", Frames(kIPBB, kIPBBOffsets, 0), 4, {kInvalidTable}},
        {"first duration -1 with the least offset",
         Frames({0x60, 0x40}, {{1, 0}, {1, std::numeric_limits<std::int32_t>::min()}}, 0xffffffffu), 2,
         {kInvalidTable}},
    };
    for (const auto& [what, plan, records, messages] : cases) {
        SCOPED_TRACE(what);
        mMessages.clear();
        EXPECT_EQ(Make(plan, kInvalid).size(), records);
        EXPECT_EQ(mMessages, messages);
    }
}

} // namespace
