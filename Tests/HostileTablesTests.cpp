// Tables whose counts no file could back: every table operation ends quickly,
// with bounded memory and the result for invalid tables.
#include <chrono>

#include <gtest/gtest.h>

#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

TEST(HostileTables, ConstantSizeFramesBeyondTheFile)
{
    // One `stts` entry of 2^32-1 frames of constant size in a tiny file: the
    // frame table is refused instead of growing to billions of records.
    MovieSpec plan;
    TrackSpec& t = plan.tracks[0];
    t.stts = {{0xFFFFFFFF, 1}};
    t.stsc = {{1, 0xFFFFFFFF, 1}};
    t.stszConstant = 4;
    t.stszSizes = {4};
    t.stco = {0};
    OpenResult r = OpenSpec(plan);
    ASSERT_EQ(r.code, QT::kResultSuccess);
    auto track = r.movie->GetIndTrack(0);
    const auto start = std::chrono::steady_clock::now();
    std::vector<QT::VideoSampleRecord> table;
    // The stored `stsz` count is 1, so this one fails on the size table.
    EXPECT_EQ(track->MakeFullVideoSampleTable(false, true, table), QT::kResultBadSampleTables);

    // With the `stsz` count raised to match, the file size decides.
    Bytes bytes = BuildMovieFile(plan);
    const Bytes needle = {'s', 't', 's', 'z'};
    auto it = std::search(bytes.begin(), bytes.end(), needle.begin(), needle.end());
    ASSERT_NE(it, bytes.end());
    std::fill(it + 12, it + 16, 0xFF); // sample count
    r = OpenBytes(bytes);
    ASSERT_EQ(r.code, QT::kResultSuccess);
    track = r.movie->GetIndTrack(0);
    table.clear();
    EXPECT_EQ(track->MakeFullVideoSampleTable(false, true, table), QT::kResultBadSampleTables);
    EXPECT_TRUE(table.empty());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

} // namespace

namespace {

TEST(HostileFiles, MovieAtomLargerThanTheFileIsRefusedQuickly)
{
    // Found by fuzzing: a movie atom claiming 80 MB in a file of under 1 KB.
    Bytes bytes = BuildMovieFile(MovieSpec{});
    bytes[20] = 0x05;
    bytes[21] = 0x00;
    bytes[22] = 0x05;
    bytes[23] = 0x1f;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i) EXPECT_EQ(OpenBytes(bytes).code, QT::kResultNotAMovie);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

} // namespace
