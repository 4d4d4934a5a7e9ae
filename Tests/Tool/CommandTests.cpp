// The atomscan command as a user meets it: summaries, references, repairs,
// and the exit code and message of each kind of failure.
#include <fstream>
#include <map>

#include "Tests/Tool/ToolRunner.h"

using namespace tooltest;

namespace {

// Each movie in turn, past one that does not open: the sample's lines in order (codec, size or sound format,
// frames the edit shows, rate, timecode start, caption format, edit), then rows of other formats and an empty edit.
TEST(Info, SummarizesEachMovieAndGoesOnPastOneThatFails)
{
    const std::string sample = CorpusMovie("broadcast_2997_tc_c608_aac").string();
    MoviePlan empty; // one edit of a second that shows no media: its media time is -1
    empty.tracks[0].edits = {{{600, 0xffffffff, 0x10000}}};
    TempFile emptyEdit(BuildMovieFile(empty));
    const ToolResult r = RunTool({"info", sample, "/nonexistent/clip.mov", CorpusMovie("pcm_s16le_7_1_48k").string(),
                                  CorpusMovie("many_tracks").string(), CorpusMovie("h264_pasp_16x11").string(),
                                  emptyEdit.Path()});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "atomscan: /nonexistent/clip.mov: cannot open the file\n");
    const json lines = DataRows("info-lines.json");
    ASSERT_EQ(lines.size(), 12u);
    std::size_t at = r.out.find(sample);
    for (const json& line : lines) {
        at = r.out.find(line.get<std::string>(), at);
        ASSERT_NE(at, std::string::npos) << line << "\n" << r.out;
    }
}

// `info --json` prints the dump; the dump library writes what the command prints, and gives the open's code.
// With standard input closed a file that is opened can be descriptor 0: it is read all the same.
TEST(Info, JsonIsTheDump)
{
    const std::string a = CorpusMovie("short_1s").string(), b = CorpusMovie("tc_25fps").string();
    EXPECT_EQ(ParseOut(RunTool({"info", "--json", a})), Dump(a));
    EXPECT_EQ(ParseOut(RunTool({"info", "--json", a, b})), json::array({Dump(a), Dump(b)}));
    const int input = ::dup(0);
    ::close(0);
    for (const auto& [path, code] : {std::pair(b, 0u), std::pair(std::string("/nonexistent/clip.mov"), 0xa0800004u)}) {
        std::string document;
        EXPECT_EQ(atomscan_tool::WriteDumpJson(path, {}, document), code);
        EXPECT_EQ(document, RunTool({"dump", path}).out);
    }
    ::dup2(input, 0), ::close(input);
}

// Usage errors exit 2, failures 1, each with one line on standard error; a failed dump still prints its JSON.
// Neither a FIFO, a directory nor a device is read as a movie, and none keeps a command waiting.
TEST(Command, ExitCodesAndMessages)
{
    TempFile text(Bytes(64, 'x'), "notes.txt");
    std::uint64_t dinf = 0;
    TempFile refused(RefusedMovie(dinf));
    // The first "atom", `xxxx`, claims 0x78787878 bytes: the rule the library's open stopped at, after its verdict.
    const std::string junkRule = "an atom runs 2021161016 bytes past the end of the file",
                      fifo = text.Path().parent_path() / "pipe.mov";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    struct Case { std::vector<std::string> args; int exitCode; std::string errEnd, open; }; // `open`: the code in the dump, if one
    std::vector<Case> cases;
    for (const json& c : DataRows("command-errors.json", {{"{gone}", "/nonexistent/clip.mov"}, {"{junk}", text.Path()},
                                                          {"{refused}", refused.Path()}, {"{dinf}", std::to_string(dinf)}}))
        cases.push_back({c[0], c[1], c[2], c.size() < 4 ? "" : c[3]});
    ASSERT_EQ(cases.size(), 28u);
    for (const std::string& path : {fifo, text.Path().parent_path().string(), std::string("/dev/null")})
        for (const std::string command : {"info", "dump", "refs", "fix"})
            cases.push_back(
                {{command, path}, 1, path + ": cannot open the file\n", command == "dump" ? "0xa0800004" : ""});
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        const ToolResult r = RunTool(c.args, 20);
        EXPECT_EQ(r.exitCode, c.exitCode);
        EXPECT_TRUE(r.err.starts_with("atomscan: ") && r.err.ends_with(c.errEnd) && r.err.find('\n') == r.err.size() - 1)
            << r.err;
        const bool notAMovie = c.open == "0xa0800001";
        const json refusal = {{"rule", notAMovie ? junkRule : "the file could not be opened"}, {"track", nullptr},
                              {"atom", notAMovie ? json("xxxx") : json()}, {"offset", notAMovie ? json(0) : json()}};
        const json failedDump = {{"path", c.open.empty() ? "" : c.args[1]}, {"open", c.open}, {"refused", refusal},
                                 {"movie", nullptr}, {"tracks", json::array()}, {"references", nullptr}};
        EXPECT_EQ(r.out.empty() ? json() : ParseOut(r), c.open.empty() ? json() : failedDump);
    }
}

// Each file a movie refers to, found or missing beside it; a self-contained movie refers to none.
TEST(Refs, TellEachFileFoundOrMissing)
{
    MoviePlan unreadable; // the count claims a second reference that `dref` does not hold
    unreadable.tracks[0].dinf = DataInformation({AliasEntry(Alias("clip.mov"))}, 2);
    const std::map<std::string, Bytes> movies = {{"reference", ReferenceMovie()}, {"unreadable", BuildMovieFile(unreadable)},
                                                 {"short_1s", ReadFile(CorpusMovie("short_1s"))}};
    const json cases = DataRows("refs.json", {{"{clip}", kClip}, {"{take}", kTake}});
    ASSERT_EQ(cases.size(), 5u);
    for (const json& row : cases) {
        const struct { Bytes movie; std::vector<std::string> beside; std::string command; int exit; std::string out, err; } c
            = {movies.at(row[0]), row[1], row[2], row[3], row[4], row[5]};
        TempFile movie(c.movie);
        for (const std::string& name : c.beside) std::ofstream(movie.Path().parent_path() / name) << "media";
        const ToolResult r = RunTool({c.command, movie.Path()});
        EXPECT_EQ(r.exitCode, c.exit) << c.out;
        EXPECT_TRUE(c.command == "info" ? r.out.find(c.out) != std::string::npos : r.out == c.out) << r.out;
        EXPECT_TRUE(r.err.ends_with(c.err) && r.err.empty() == c.err.empty()) << r.err;
    }
}

// A movie that the parser refuses and the repair reads: its last atom, an 8-byte `stsz`, closes the last `stbl`.
Bytes StszLast(const std::vector<std::uint64_t>& offsets, bool wide = false)
{
    MoviePlan plan;
    plan.tracks[0].stco.assign(offsets.begin(), offsets.end());
    if (wide) plan.tracks[0].co64 = offsets;
    Atom moov = BuildMoov(plan);
    std::vector<Atom>& stbl = moov.children[1].children.back().children.back().children.back().children; // mdia, minf, stbl
    std::erase_if(stbl, [](const Atom& a) { return a.type == "stsz"; });
    stbl.emplace_back("stsz");
    return Concat({moov, Atom("mdat", Bytes(0x500, 0))});
}

// Each run in turn, its dry run first; then the movie is its mended form. Nothing mends the last entry of a
// table (it has no next entry to be judged by), and the parser's refusal does not keep the repair from its work.
TEST(Fix, MendsOnlyTheDamagedChunkOffsets)
{
    const auto corpus = [](const char* name) { return ReadFile(CorpusMovie(name)); };
    const Bytes edges = corpus("damaged_stco_topbyte_edges");
    Bytes edgesMended = corpus("long_60s_lowres");
    std::copy_n(edges.begin() + 261359, 4, edgesMended.begin() + 261359); // the last entry
    const std::vector<std::uint64_t> sound = {0x100, 0x200, 0x300, 0x400};
    TempFile refused(StszLast(sound));
    EXPECT_EQ(Dump(refused.Path())["open"], "0xa0800001");
    const json runs = DataRows("fix-runs.json"); // what each run prints, for each movie in turn
    const struct { Bytes damaged, mended; } kCases[] = {
        {corpus("damaged_stco_topbyte_single"), corpus("layout_faststart")},
        {edges, edgesMended}, // entry 10 is judged against entry 11 as stored, so only a second run mends it
        {corpus("short_1s"), corpus("short_1s")},
        {StszLast({0x100, 0x05000200, 0x300, 0x400}), StszLast(sound)},
        {StszLast({0x100, 0x200, 0x0100000000000300, 0x400}, true), StszLast(sound, true)},
        {StszLast(sound), StszLast(sound)}};
    ASSERT_EQ(runs.size(), std::size(kCases));
    for (std::size_t i = 0; i < std::size(kCases); ++i) {
        const auto& c = kCases[i];
        SCOPED_TRACE(runs[i][0]);
        TempFile movie(c.damaged);
        for (std::string out : runs[i]) {
            const Bytes before = movie.Read();
            const ToolResult dry = RunTool({"fix", "--dry-run", movie.Path()});
            EXPECT_EQ(movie.Read(), before);
            const ToolResult done = RunTool({"fix", movie.Path()});
            EXPECT_EQ(json({done.exitCode, done.out, done.err}), json({0, out, ""}));
            out.replace(out.rfind("changed"), 8, "would change; the movie was left as it is\n");
            EXPECT_EQ(json({dry.exitCode, dry.out, dry.err}), json({0, out, ""}));
        }
        EXPECT_EQ(movie.Read(), c.mended);
    }
}


// --output and --backup: the movie keeps its bytes and time unless it is the output, a new file appears whole
// or not at all, and no temporary file is left beside it, whatever failed.
TEST(Fix, OutputAndBackupNeverLoseAFile)
{
    const Bytes damaged = ReadFile(CorpusMovie("damaged_stco_topbyte_single")),
                mended = ReadFile(CorpusMovie("layout_faststart")), old = {'o', 'l', 'd'};
    namespace fs = std::filesystem;
    struct Case { std::vector<std::string> args; std::string existing; int exitCode; std::map<std::string, Bytes> files;
                  std::string errEnd; };
    const std::map<std::string, Bytes> contents = {{"damaged", damaged}, {"mended", mended}, {"old", old}, {"", {}}};
    std::vector<Case> kCases;
    for (const json& c : DataRows("fix-output.json")) {
        kCases.push_back({c[0], c[1], c[2], {}, c[4]});
        for (const auto& [name, content] : c[3].items()) kCases.back().files[name] = contents.at(content);
    }
    ASSERT_EQ(kCases.size(), 6u);
    for (const auto& c : kCases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        TempFile movie(damaged);
        const fs::path dir = movie.Path().parent_path();
        if (c.existing.ends_with('/')) fs::create_directory(dir / c.existing);
        else if (!c.existing.empty()) std::ofstream(dir / c.existing) << "old";
        const auto time = fs::last_write_time(movie.Path());
        std::vector<std::string> args = {"fix"};
        for (const std::string& a : c.args) args.push_back(a.ends_with(".mov") && a[0] != '/' ? (dir / a).string() : a);
        args.push_back(movie.Path());
        const ToolResult r = RunTool(args);
        EXPECT_EQ(r.exitCode, c.exitCode) << r.err;
        EXPECT_TRUE(r.err.ends_with(c.errEnd) && r.err.empty() == c.errEnd.empty()) << r.err;
        std::map<std::string, Bytes> files;
        std::string names;
        for (const auto& entry : fs::directory_iterator(dir)) {
            files[entry.path().filename()] = entry.is_directory() ? Bytes() : ReadFile(entry.path());
            names += entry.path().filename().string() + " ";
        }
        EXPECT_TRUE(files == c.files) << names;
        EXPECT_TRUE(c.files.at("movie.mov") != damaged || fs::last_write_time(movie.Path()) == time);
    }
}

} // namespace
