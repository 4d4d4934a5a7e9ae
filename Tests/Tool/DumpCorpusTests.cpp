// `atomscan dump` on every real movie of the test data, against what an
// independent parser read from the same files.
#include <gtest/gtest.h>

#include "Tests/Support/Corpus.h"
#include "Tests/Tool/ToolRunner.h"

using namespace testsupport;
using namespace tooltest;

namespace {

std::string ExpectedMediaType(const nlohmann::json& stream)
{
    const std::string type = stream.value("codec_type", "");
    const std::string tag = stream.value("codec_tag_string", "");
    if (type == "video") return "vide";
    if (type == "audio") return "soun";
    if (type == "subtitle") return "clcp";
    if (tag == "tmcd" || tag == "text") return tag;
    return "unkn";
}

class DumpCorpus : public ::testing::TestWithParam<std::string> {};

TEST_P(DumpCorpus, MatchesTheIndependentParser)
{
    const std::string name = GetParam();
    const std::string path = CorpusMovie(name).string();
    const ToolResult r = RunTool({"dump", path});
    const nlohmann::json dump = ParseOut(r);
    ASSERT_TRUE(dump.is_object());
    EXPECT_EQ(dump["path"], path);
    if (name == "damaged_truncated_in_moov") {
        // The file ends inside its movie atom.
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(dump["open"], "0xa0800001");
        EXPECT_TRUE(dump["movie"].is_null());
        return;
    }
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(dump["open"], "0x00000000");

    const nlohmann::json probe = Probe(name);
    const nlohmann::json& streams = probe.at("streams");
    const nlohmann::json& tracks = dump.at("tracks");
    ASSERT_EQ(tracks.size(), streams.size());
    EXPECT_EQ(dump["movie"]["trackCount"], streams.size());
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        SCOPED_TRACE("track " + std::to_string(i));
        const nlohmann::json& track = tracks[i];
        const nlohmann::json& stream = streams[i];
        EXPECT_EQ(track["index"], i);
        EXPECT_EQ(track["mediaType"], ExpectedMediaType(stream));
        EXPECT_EQ("1/" + std::to_string(track["mediaTimeScale"].get<std::uint32_t>()), stream["time_base"]);
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, DumpCorpus, ::testing::ValuesIn(CorpusNames()),
                         [](const auto& info) { return info.param; });

} // namespace
