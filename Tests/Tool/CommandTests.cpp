// The atomscan command as a user meets it: summaries, references, repairs,
// and the exit code and message of each kind of failure.
#include <fstream>

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
    std::size_t at = 0;
    for (const std::string line : {
        sample.c_str(), "  duration      4004 (0:00:04.004)", "  tracks        4",
        "#  type  enabled  codec  format              frames  rate          edit",
        "0  vide  yes      avc1   192x108                118  29.97 fps     from 0:00:00.067 for 0:00:04.004, trimmed",
        "1  soun  yes      mp4a   48000 Hz, 1 ch                            from 0:00:00.021 for 0:00:04.000, trimmed",
        "2  clcp  yes      c608   62 caption records       4                several edits over 0:00:03.000",
        "3  tmcd  no       -      start 00:59:58;00        1  29.97 fps DF  from 0:00:00.000 for 0:00:04.004",
        "    \u00a9swr  17 bytes  \"Lavf59.27.100\"",
        "0  soun  yes      sowt   48000 Hz, 8 ch, 16-bit 16le    9600        from 0:00:00.000 for 0:00:00.200",
        "4  soun  no       in24   48000 Hz, 1 ch, 24-bit 42ni   48000          from 0:00:00.000 for 0:00:01.000",
        "0  vide  yes      avc1   176x144, pixel aspect 16:11       8  25 fps  from 0:00:00.080 for 0:00:00.400",
        "0  vide  yes      data   0x0          0  6 fps  empty for 0:00:01.000"}) {
        at = r.out.find(line, at);
        ASSERT_NE(at, std::string::npos) << line << "\n" << r.out;
    }
}

// `info --json` prints the dump; the dump library writes what the command prints, and gives the open's code.
TEST(Info, JsonIsTheDump)
{
    const std::string a = CorpusMovie("short_1s").string(), b = CorpusMovie("tc_25fps").string();
    EXPECT_EQ(ParseOut(RunTool({"info", "--json", a})), Dump(a));
    EXPECT_EQ(ParseOut(RunTool({"info", "--json", a, b})), json::array({Dump(a), Dump(b)}));
    for (const auto& [path, code] : {std::pair(b, 0u), std::pair(std::string("/nonexistent/clip.mov"), 0xa0800004u)}) {
        std::string document;
        EXPECT_EQ(atomscan_tool::WriteDumpJson(path, {}, document), code);
        EXPECT_EQ(document, RunTool({"dump", path}).out);
    }
}

// Usage errors exit 2, failures 1, each with one line on standard error; a failed dump still prints its JSON.
TEST(Command, ExitCodesAndMessages)
{
    TempFile text(Bytes(64, 'x'), "notes.txt");
    const std::string gone = "/nonexistent/clip.mov", junk = text.Path(), usage = " (see atomscan --help)\n",
                      missing = gone + ": cannot open the file\n", unreadable = junk + ": not a movie that can be read\n";
    const struct { std::vector<std::string> args; int exitCode; std::string errEnd; const char* open = nullptr; }
        kCases[] = {{{}, 2, usage}, {{"frobnicate"}, 2, usage}, {{"dump"}, 2, usage}, {{"dump", "a", "b"}, 2, usage},
                    {{"dump", "--bogus", "a"}, 2, usage}, {{"info"}, 2, usage}, {{"info", "-x", "a"}, 2, usage},
                    {{"refs"}, 2, usage}, {{"refs", "a", "b"}, 2, usage}, {{"fix", "--dry-run"}, 2, usage},
                    {{"fix", "--force", "a"}, 2, usage}, {{"info", gone}, 1, missing}, {{"info", junk}, 1, unreadable},
                    {{"refs", gone}, 1, missing}, {{"refs", junk}, 1, unreadable}, {{"fix", gone}, 1, missing},
                    {{"fix", junk}, 1, unreadable}, {{"fix", "--dry-run", gone}, 1, missing},
                    {{"fix", "--dry-run", junk}, 1, unreadable}, {{"dump", gone}, 1, missing, "0xa0800004"},
                    {{"dump", junk}, 1, unreadable, "0xa0800001"}}; // `open`: the code in the dump
    for (const auto& c : kCases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        const ToolResult r = RunTool(c.args);
        EXPECT_EQ(r.exitCode, c.exitCode);
        EXPECT_TRUE(r.err.starts_with("atomscan: ") && r.err.ends_with(c.errEnd) && r.err.find('\n') == r.err.size() - 1)
            << r.err;
        const json failedDump = {{"path", c.open ? c.args[1] : ""}, {"open", c.open ? c.open : ""}, {"movie", nullptr},
                                 {"tracks", json::array()}, {"references", nullptr}};
        EXPECT_EQ(r.out.empty() ? json() : ParseOut(r), c.open ? failedDump : json());
    }
}

// Each file a movie refers to, found or missing beside it; a self-contained movie refers to none.
TEST(Refs, TellEachFileFoundOrMissing)
{
    MoviePlan unreadable; // the count claims a second reference that `dref` does not hold
    unreadable.tracks[0].dinf = DataInformation({AliasEntry(Alias("clip.mov"))}, 2);
    const std::string found = "found    ", missing = "missing  ", clip = kClip + "\n", take = kTake + "\n";
    const struct { Bytes movie; std::vector<const char*> beside; const char* command; int exit; std::string out, err; }
        kCases[] = {{ReferenceMovie(), {"clip.mov", "take.wav"}, "refs", 0, found + clip + found + take, ""},
                    {ReferenceMovie(), {"clip.mov"}, "refs", 1, found + clip + missing + take, ""},
                    {ReferenceMovie(), {"take.wav"}, "info", 0, "references\n    " + missing + clip + "    " + found + take, ""},
                    {ReadFile(CorpusMovie("short_1s")), {}, "refs", 0, "", ""},
                    {BuildMovieFile(unreadable), {}, "refs", 1, missing + "clip.mov\n",
                     ": the data references of a track could not all be read\n"}};
    for (const auto& c : kCases) {
        TempFile movie(c.movie);
        for (const char* name : c.beside) std::ofstream(movie.Path().parent_path() / name) << "media";
        const ToolResult r = RunTool({c.command, movie.Path()});
        EXPECT_EQ(r.exitCode, c.exit) << c.out;
        EXPECT_TRUE(c.command == std::string("info") ? r.out.find(c.out) != std::string::npos : r.out == c.out) << r.out;
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
    const std::string head = "track  table  entry         old";
    const struct { Bytes damaged, mended; std::vector<std::string> runs; } kCases[] = {
        {corpus("damaged_stco_topbyte_single"), corpus("layout_faststart"),
         {head + "   new\n    0  stco       3  2147492274  8626\n1 chunk offset changed\n"}},
        // Entry 10 is judged against entry 11 as stored, so only a second run mends it.
        {edges, edgesMended,
         {head + "    new\n    0  stco      11  1073744437   2613\n    0  stco     500  4278275934  85854\n"
                 "2 chunk offsets changed\n",
          "track  table  entry       old   new\n    0  stco      10  16779737  2521\n1 chunk offset changed\n"}},
        {corpus("short_1s"), corpus("short_1s"), {"no chunk offset changed\n"}},
        {StszLast({0x100, 0x05000200, 0x300, 0x400}), StszLast(sound),
         {"track  table  entry       old  new\n    0  stco       1  83886592  512\n1 chunk offset changed\n"}},
        {StszLast({0x100, 0x200, 0x0100000000000300, 0x400}, true), StszLast(sound, true),
         {"track  table  entry                old  new\n    0  co64       2  72057594037928704  768\n"
          "1 chunk offset changed\n"}},
        {StszLast(sound), StszLast(sound), {"no chunk offset changed\n"}}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.runs[0]);
        TempFile movie(c.damaged);
        for (std::string out : c.runs) {
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

} // namespace
