// The tables of a movie with many frames stream out whole, one line a record.
#include <gtest/gtest.h>

#include <sstream>

#include "Tests/Support/MovieBuilder.h"
#include "Tests/Tool/ToolRunner.h"

using namespace testsupport;
using namespace tooltest;

namespace {

constexpr std::uint32_t kFrames = 200000;

// The record lines of the table under `key`, taken from the text (parsing the
// whole document would cost more than making it).
std::vector<std::string> RecordLines(const std::string& out, const std::string& key)
{
    std::vector<std::string> lines;
    const std::size_t table = out.find("\"" + key + "\": {");
    const std::size_t records = out.find("\"records\": [\n", table);
    if (table == std::string::npos || records == std::string::npos) return lines;
    std::istringstream in(out.substr(records + 13));
    std::string line;
    while (std::getline(in, line) && line.find_first_not_of(' ') != line.find(']')) {
        line.erase(0, line.find_first_not_of(' '));
        if (!line.empty() && line.back() == ',') line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

TEST(LargeMovie, TablesStreamOutOneRecordALine)
{
    TrackSpec video;
    video.width = 64;
    video.height = 48;
    video.mediaTimeScale = 25;
    video.mediaDuration = kFrames;
    video.duration = kFrames * 24; // movie time scale 600
    video.stts = {{kFrames, 1}};
    video.stsc = {{1, 1, 1}};
    video.stszSizes.assign(kFrames, 1);
    video.stco.resize(kFrames);
    for (std::uint32_t i = 0; i < kFrames; ++i) video.stco[i] = 4096 + i;
    video.stss = std::vector<std::uint32_t>{1, kFrames};
    MovieSpec plan;
    plan.duration = video.duration;
    plan.tracks = {video};
    TempFile movie(BuildMovieFile(plan));

    const ToolResult r = RunTool({"dump", movie.Path().string()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    for (const char* key : {"sampleTable", "mediaSampleTable"}) {
        SCOPED_TRACE(key);
        const std::vector<std::string> lines = RecordLines(r.out, key);
        ASSERT_EQ(lines.size(), kFrames);
        EXPECT_EQ(lines[0], "[4096, 1, 1, 0, true]");
        EXPECT_EQ(lines[kFrames / 2], "[104096, 1, 1, 100000, false]");
        EXPECT_EQ(lines[kFrames - 1], "[204095, 1, 1, 199999, true]");
    }

    const ToolResult brief = RunTool({"dump", "--no-tables", movie.Path().string()});
    ASSERT_EQ(brief.exitCode, 0);
    const nlohmann::json video0 = ParseOut(brief)["tracks"][0]["video"];
    EXPECT_TRUE(video0["sampleTable"].is_null());
    EXPECT_TRUE(video0["mediaSampleTable"].is_null());
}

} // namespace
