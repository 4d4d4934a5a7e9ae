// The start timecode that dump and info render from a timecode track's first
// sample: straight counting and drop-frame counting.
#include <gtest/gtest.h>

#include "Tests/Support/MovieBuilder.h"
#include "Tests/Tool/ToolRunner.h"

using namespace testsupport;
using namespace tooltest;

namespace {

struct TimecodeCase {
    const char* name;
    bool dropFrame;
    std::uint32_t timeScale, ticksPerFrame;
    std::uint8_t framesPerSecond;
    std::uint32_t sample; // the frame number as stored
    const char* expected;
};

// A movie whose one timecode track has a 4-byte sample at the head of `mdat`.
Bytes TimecodeMovie(const TimecodeCase& c)
{
    ByteWriter body;
    body.U32(0).U32(c.dropFrame ? 1 : 0).U32(c.timeScale).U32(c.ticksPerFrame).U8(c.framesPerSecond).U8(0);
    TrackSpec track;
    track.mediaType = "tmcd";
    track.flags = 0;
    track.descriptions = {SampleDescription("tmcd", body.Take())};
    track.stszSizes = {4};
    MovieSpec plan;
    plan.tracks = {track};
    const Bytes sample = ByteWriter().U32(c.sample);
    // The sample's place is known once the file's size is: `mdat` comes last.
    const std::size_t size = BuildMovieFile(plan, sample).size();
    plan.tracks[0].stco = {static_cast<std::uint32_t>(size - sample.size())};
    return BuildMovieFile(plan, sample);
}

class StartTimecode : public ::testing::TestWithParam<TimecodeCase> {};

TEST_P(StartTimecode, RenderedFromTheFirstSample)
{
    const TimecodeCase& c = GetParam();
    TempFile movie(TimecodeMovie(c));
    const ToolResult r = RunTool({"dump", movie.Path().string()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const nlohmann::json timecode = ParseOut(r)["tracks"][0]["timecode"];
    EXPECT_EQ(timecode["startFrame"]["value"], static_cast<std::int32_t>(c.sample));
    EXPECT_EQ(timecode["startTimecode"], c.expected);
    const ToolResult info = RunTool({"info", movie.Path().string()});
    EXPECT_NE(info.out.find(std::string("start ") + c.expected), std::string::npos) << info.out;
}

INSTANTIATE_TEST_SUITE_P(
    Counting, StartTimecode,
    ::testing::Values(TimecodeCase{"Hour25", false, 25, 1, 25, 90000, "01:00:00:00"},
                      TimecodeCase{"WrapsAtADay", false, 25, 1, 25, 25 * 86400 + 26, "00:00:01:01"},
                      TimecodeCase{"NegativeWrapsBack", false, 25, 1, 25, 0xffffffff, "23:59:59:24"},
                      TimecodeCase{"Minute30Drop", true, 30000, 1001, 30, 1800, "00:01:00;02"},
                      TimecodeCase{"JustBeforeMinute30Drop", true, 30000, 1001, 30, 1799, "00:00:59;29"},
                      TimecodeCase{"TenthMinute30Drop", true, 30000, 1001, 30, 17982, "00:10:00;00"},
                      TimecodeCase{"Hour30Drop", true, 30000, 1001, 30, 107892, "01:00:00;00"},
                      TimecodeCase{"Minute60Drop", true, 60000, 1001, 60, 3600, "00:01:00;04"},
                      TimecodeCase{"Tenth60Drop", true, 60000, 1001, 60, 35964, "00:10:00;00"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(StartTimecode, NoRateNoTimecode)
{
    TempFile movie(TimecodeMovie({"", false, 25, 1, 0, 100, ""}));
    const nlohmann::json timecode = ParseOut(RunTool({"dump", movie.Path().string()}))["tracks"][0]["timecode"];
    EXPECT_EQ(timecode["startFrame"]["value"], 100);
    EXPECT_TRUE(timecode["startTimecode"].is_null());
}

TEST(StartTimecode, NoSampleNoFrame)
{
    // A chunk offset past the end of the file: the bytes cannot be read.
    ByteWriter body;
    body.U32(0).U32(0).U32(25).U32(1).U8(25).U8(0);
    TrackSpec track;
    track.mediaType = "tmcd";
    track.descriptions = {SampleDescription("tmcd", body.Take())};
    track.stszSizes = {4};
    track.stco = {1u << 30};
    MovieSpec plan;
    plan.tracks = {track};
    TempFile movie(BuildMovieFile(plan));
    const nlohmann::json timecode = ParseOut(RunTool({"dump", movie.Path().string()}))["tracks"][0]["timecode"];
    EXPECT_EQ(timecode["sampleLocation"]["offset"], 1u << 30);
    EXPECT_TRUE(timecode["startFrame"].is_null());
    EXPECT_TRUE(timecode["startTimecode"].is_null());
}

} // namespace
