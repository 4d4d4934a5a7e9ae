// The atomscan command as a user meets it: summaries, usage errors, failures,
// and the movie-level parts of the dump on movies built for the purpose.
#include <gtest/gtest.h>

#include <algorithm>

#include "Tests/Support/Corpus.h"
#include "Tests/Tool/ToolRunner.h"

using namespace testsupport;
using namespace tooltest;

namespace {

const std::string kSample = "broadcast_2997_tc_c608_aac";

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::size_t from = 0;
    while (from < text.size()) {
        const std::size_t end = text.find('\n', from);
        lines.push_back(text.substr(from, end == std::string::npos ? std::string::npos : end - from));
        if (end == std::string::npos) break;
        from = end + 1;
    }
    return lines;
}

// The one line of a failure on standard error.
void ExpectOneErrorLine(const ToolResult& r)
{
    const std::vector<std::string> lines = Lines(r.err);
    ASSERT_EQ(lines.size(), 1u) << r.err;
    EXPECT_EQ(lines[0].rfind("atomscan: ", 0), 0u) << r.err;
}

TEST(Info, SummarizesTheSample)
{
    const std::string path = CorpusMovie(kSample).string();
    const ToolResult r = RunTool({"info", path});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const std::vector<std::string> lines = Lines(r.out);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], path);
    auto has = [&](const std::string& line) { return std::find(lines.begin(), lines.end(), line) != lines.end(); };
    EXPECT_TRUE(has("  time scale    1000")) << r.out;
    EXPECT_TRUE(has("  duration      4004 (0:00:04.004)")) << r.out;
    EXPECT_TRUE(has("  tracks        4")) << r.out;
    EXPECT_TRUE(has("  metadata      none")) << r.out;
    // Codec, size or sound format, frames the edit shows, rate, timecode start, caption format.
    EXPECT_TRUE(has("  0  vide  yes      avc1   192x108                118  29.97 fps     "
                    "from 0:00:00.067 for 0:00:04.004, trimmed")) << r.out;
    EXPECT_TRUE(has("  1  soun  yes      mp4a   48000 Hz, 1 ch                            "
                    "from 0:00:00.021 for 0:00:04.000, trimmed")) << r.out;
    EXPECT_TRUE(has("  2  clcp  yes      c608   62 caption records       4                "
                    "several edits over 0:00:03.000")) << r.out;
    EXPECT_TRUE(has("  3  tmcd  no       -      start 00:59:58;00        1  29.97 fps DF  "
                    "from 0:00:00.000 for 0:00:04.004")) << r.out;
    EXPECT_TRUE(has("    \u00a9swr  17 bytes  \"Lavf59.27.100\"")) << r.out;
}

// A row of the track table holds these cells, in this order.
struct RowCase {
    const char* movie;
    std::size_t track;
    std::vector<std::string> cells;
};

class InfoRows : public ::testing::TestWithParam<RowCase> {};

TEST_P(InfoRows, ShowTheTrack)
{
    const RowCase& c = GetParam();
    const ToolResult r = RunTool({"info", CorpusMovie(c.movie).string()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::string prefix = "  " + std::to_string(c.track) + "  ";
    const std::vector<std::string> lines = Lines(r.out);
    const auto row =
        std::find_if(lines.begin(), lines.end(), [&](const std::string& l) { return l.rfind(prefix, 0) == 0; });
    ASSERT_NE(row, lines.end()) << r.out;
    std::size_t at = 0;
    for (const std::string& cell : c.cells) {
        const std::size_t found = row->find("  " + cell, at);
        ASSERT_NE(found, std::string::npos) << cell << " in " << *row;
        at = found + cell.size();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Corpus, InfoRows,
    ::testing::Values(RowCase{"pcm_s16le_7_1_48k", 0, {"soun", "yes", "sowt", "48000 Hz, 8 ch, 16-bit 16le", "9600"}},
                      RowCase{"many_tracks", 4, {"soun", "no", "in24", "48000 Hz, 1 ch, 24-bit 42ni", "48000"}},
                      RowCase{"h264_pasp_16x11", 0, {"vide", "avc1", "176x144, pixel aspect 16:11", "8", "25 fps"}},
                      RowCase{"tc_25fps", 1, {"tmcd", "no", "start 01:00:00:00", "1", "25 fps"}},
                      RowCase{"chapters_text", 2, {"text", "no", "-"}},
                      RowCase{"edit_output_ts_offset", 0, {"vide", "avc1", "128x96", "25 fps", "several edits"}}),
    [](const auto& info) { return std::string(info.param.movie); });

TEST(Info, AlignsTheTrackColumns)
{
    const ToolResult r = RunTool({"info", CorpusMovie(kSample).string()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::vector<std::string> lines = Lines(r.out);
    const auto header = std::find_if(lines.begin(), lines.end(), [](const std::string& l) {
        return l.find("#  type") != std::string::npos;
    });
    ASSERT_NE(header, lines.end()) << r.out;
    const std::size_t typeColumn = header->find("type");
    const std::size_t enabledColumn = header->find("enabled");
    const char* types[] = {"vide", "soun", "clcp", "tmcd"};
    for (int i = 0; i < 4; ++i) {
        const std::string& row = *(header + 1 + i);
        EXPECT_EQ(row.substr(typeColumn, 4), types[i]) << row;
        EXPECT_EQ(row.substr(enabledColumn, 3), i == 3 ? "no " : "yes") << row;
    }
}

TEST(Info, GoesOnPastAMovieThatDoesNotOpen)
{
    const std::string good = CorpusMovie("short_1s").string();
    const ToolResult r = RunTool({"info", "/nonexistent/clip.mov", good});
    EXPECT_EQ(r.exitCode, 1);
    ExpectOneErrorLine(r);
    EXPECT_NE(r.err.find("/nonexistent/clip.mov"), std::string::npos);
    EXPECT_NE(r.out.find(good + "\n"), std::string::npos) << r.out;
}

TEST(Info, JsonIsTheDump)
{
    const std::string path = CorpusMovie("short_1s").string();
    const nlohmann::json one = ParseOut(RunTool({"info", "--json", path}));
    const nlohmann::json dump = ParseOut(RunTool({"dump", path}));
    EXPECT_EQ(one, dump);
    const nlohmann::json two = ParseOut(RunTool({"info", "--json", path, path}));
    ASSERT_TRUE(two.is_array());
    ASSERT_EQ(two.size(), 2u);
    EXPECT_EQ(two[1], dump);
}

struct UsageCase {
    const char* name;
    std::vector<std::string> args;
};

class UsageErrors : public ::testing::TestWithParam<UsageCase> {};

TEST_P(UsageErrors, ExitTwoWithOneLine)
{
    const ToolResult r = RunTool(GetParam().args);
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.out, "");
    ExpectOneErrorLine(r);
}

INSTANTIATE_TEST_SUITE_P(Arguments, UsageErrors,
                         ::testing::Values(UsageCase{"NoCommand", {}}, UsageCase{"UnknownCommand", {"frobnicate"}},
                                           UsageCase{"DumpWithoutPath", {"dump"}},
                                           UsageCase{"DumpTwoPaths", {"dump", "a.mov", "b.mov"}},
                                           UsageCase{"DumpUnknownOption", {"dump", "--bogus", "a.mov"}},
                                           UsageCase{"InfoWithoutPath", {"info"}},
                                           UsageCase{"InfoUnknownOption", {"info", "-x", "a.mov"}},
                                           UsageCase{"RefsWithoutPath", {"refs"}},
                                           UsageCase{"RefsTwoPaths", {"refs", "a.mov", "b.mov"}},
                                           UsageCase{"FixWithoutPath", {"fix", "--dry-run"}},
                                           UsageCase{"FixUnknownOption", {"fix", "--force", "a.mov"}}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Help, ForTheToolAndEachCommand)
{
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"--help"}, {"info", "--help"}, {"dump", "--help"}, {"refs", "--help"},
          {"fix", "--help"}}) {
        const ToolResult r = RunTool(args);
        EXPECT_EQ(r.exitCode, 0) << args[0];
        EXPECT_NE(r.out.find("Usage: atomscan"), std::string::npos) << r.out;
        EXPECT_EQ(r.err, "");
    }
}

TEST(Dump, MissingFileGivesTheOpenCodeAndNullMovie)
{
    const ToolResult r = RunTool({"dump", "/nonexistent/clip.mov"});
    EXPECT_EQ(r.exitCode, 1);
    ExpectOneErrorLine(r);
    const nlohmann::json j = ParseOut(r);
    EXPECT_EQ(j["path"], "/nonexistent/clip.mov");
    EXPECT_EQ(j["open"], "0xa0800004");
    EXPECT_TRUE(j["movie"].is_null());
    EXPECT_EQ(j["tracks"], nlohmann::json::array());
    EXPECT_TRUE(j["references"].is_null());
}

TEST(Dump, FileThatIsNoMovie)
{
    TempFile text(Bytes{'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd', '\n'}, "notes.txt");
    const ToolResult r = RunTool({"dump", text.Path().string()});
    EXPECT_EQ(r.exitCode, 1);
    ExpectOneErrorLine(r);
    EXPECT_EQ(ParseOut(r)["open"], "0xa0800001");
    const ToolResult info = RunTool({"info", text.Path().string()});
    EXPECT_EQ(info.exitCode, 1);
    EXPECT_EQ(info.out, "");
    ExpectOneErrorLine(info);
}

TEST(Dump, NoTablesKeepsTheKeysAsNull)
{
    const std::string path = CorpusMovie(kSample).string();
    nlohmann::json full = ParseOut(RunTool({"dump", path}));
    const ToolResult brief = RunTool({"dump", "--no-tables", path});
    ASSERT_EQ(brief.exitCode, 0);
    const struct {
        std::size_t track;
        const char* section;
        std::vector<const char*> tables;
    } kTables[] = {{0, "video", {"sampleTable", "mediaSampleTable", "temporalReferences"}},
                   {1, "audio", {"rangesByPosition", "rangesByOffset"}},
                   {2, "caption", {"byTime", "byOffset"}}};
    for (const auto& t : kTables) {
        for (const char* table : t.tables) {
            nlohmann::json& value = full["tracks"][t.track][t.section][table];
            ASSERT_TRUE(full["tracks"][t.track][t.section].contains(table)) << table;
            value = nullptr;
        }
    }
    EXPECT_EQ(ParseOut(brief), full);
}

// Key/value metadata: the keys come back in map order, each value in the form of its kind.
TEST(Dump, MetadataInMapOrderWithEveryKindOfValue)
{
    auto keys = [](const std::vector<std::string>& names) {
        ByteWriter w;
        w.U32(0).U32(static_cast<std::uint32_t>(names.size()));
        for (const std::string& k : names) w.U32(static_cast<std::uint32_t>(8 + k.size())).Code("mdta").Text(k);
        return Atom("keys", w.Take());
    };
    struct Item {
        std::uint32_t key, type;
        Bytes value;
    };
    auto ilst = [](const std::vector<Item>& items) {
        ByteWriter w;
        for (const Item& i : items) {
            w.U32(static_cast<std::uint32_t>(24 + i.value.size())).U32(i.key);
            w.U32(static_cast<std::uint32_t>(16 + i.value.size())).Code("data").U32(i.type).U32(0).Raw(i.value);
        }
        return Atom("ilst", w.Take());
    };
    const std::vector<std::string> names = {"title", "\xff\xfe", "count", "big", "ratio", "blob", "wide", "q\"\n"};
    MovieSpec plan;
    plan.extraMoov.push_back(Atom("meta", {Atom("hdlr", HdlrPayload("mdta")), keys(names),
                                           ilst({{1, 1, {'H', 'i'}},
                                                 {2, 1, {'x'}},
                                                 {3, 21, {0xff, 0xfe}},
                                                 {4, 22, {0xff, 0xff, 0xff, 0xff}},
                                                 {5, 23, {0x7f, 0xc0, 0, 0}},
                                                 {6, 0, {0xde, 0xad}},
                                                 {7, 24, {0x3f, 0xf8, 0, 0, 0, 0, 0, 0}},
                                                 {8, 2, {'o', 'k'}}})}));
    TempFile movie(BuildMovieFile(plan));
    const ToolResult r = RunTool({"dump", movie.Path().string()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const nlohmann::json metadata = ParseOut(r)["movie"]["metadata"];
    const nlohmann::json expected = nlohmann::json::parse(R"([
        {"key": "big", "dataType": 22, "alternative": 4, "value": 4294967295},
        {"key": "blob", "dataType": 0, "alternative": 0, "value": "dead"},
        {"key": "count", "dataType": 21, "alternative": 3, "value": -2},
        {"key": "q\"\n", "dataType": 2, "alternative": 2, "value": "ok"},
        {"key": "ratio", "dataType": 23, "alternative": 5, "value": "nan"},
        {"key": "title", "dataType": 1, "alternative": 1, "value": "Hi"},
        {"key": "wide", "dataType": 24, "alternative": 6, "value": 1.5},
        {"key": "hex:fffe", "dataType": 1, "alternative": 1, "value": "x"}
    ])");
    EXPECT_EQ(metadata, expected);
}

TEST(Dump, UserDataInOrderAsHex)
{
    MovieSpec plan;
    ByteWriter name;
    name.U16(3).U16(0x55c4).Text("abc");
    plan.extraMoov.push_back(
        Atom("udta", {Atom("\xa9nam", name.Take()), Atom("free", Bytes{}), Atom("AllF", Bytes{1, 2})}));
    TempFile movie(BuildMovieFile(plan));
    const ToolResult r = RunTool({"dump", movie.Path().string()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const nlohmann::json userData = ParseOut(r)["movie"]["userData"];
    ASSERT_TRUE(userData.is_array());
    std::vector<std::pair<std::string, std::string>> items;
    for (const auto& item : userData) items.emplace_back(item["type"], item["data"]);
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"0xa96e616d", "000355c4616263"}, {"free", ""}, {"AllF", "0102"}};
    EXPECT_EQ(items, expected);
}

} // namespace
