// `atomscan fix`: the repair through the library, what it reports, and the
// dry run that leaves the movie alone.
#include <gtest/gtest.h>

#include "Tests/Support/Corpus.h"
#include "Tests/Tool/ToolRunner.h"

using namespace testsupport;
using namespace tooltest;

namespace {

// A copy of a corpus movie that the test may change.
class MovieCopy {
public:
    explicit MovieCopy(const std::string& name) : mFile(ReadFile(CorpusMovie(name)), name + ".mov") {}
    std::string Path() const { return mFile.Path().string(); }
    Bytes Read() const { return mFile.Read(); }

private:
    TempFile mFile;
};

TEST(Fix, MendsTheDamagedEntryBackToTheGoodFile)
{
    // The damaged movie is the good one with a garbage top byte in entry 3.
    MovieCopy movie("damaged_stco_topbyte_single");
    const ToolResult r = RunTool({"fix", movie.Path()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out,
              "track  table  entry         old   new\n"
              "    0  stco       3  2147492274  8626\n"
              "1 chunk offset changed\n");
    EXPECT_EQ(movie.Read(), ReadFile(CorpusMovie("layout_faststart")));
}

TEST(Fix, DryRunReportsTheSameAndLeavesTheFileAlone)
{
    for (const char* name : {"damaged_stco_topbyte_single", "damaged_stco_topbyte_edges"}) {
        SCOPED_TRACE(name);
        MovieCopy dry(name), real(name);
        const Bytes original = dry.Read();
        const ToolResult preview = RunTool({"fix", "--dry-run", dry.Path()});
        ASSERT_EQ(preview.exitCode, 0) << preview.err;
        EXPECT_EQ(dry.Read(), original);
        const ToolResult done = RunTool({"fix", real.Path()});
        ASSERT_EQ(done.exitCode, 0) << done.err;
        EXPECT_NE(real.Read(), original);
        // The same table of changes, and a last line that tells which it was.
        const std::size_t previewEnd = preview.out.rfind('\n', preview.out.size() - 2);
        const std::size_t doneEnd = done.out.rfind('\n', done.out.size() - 2);
        ASSERT_NE(previewEnd, std::string::npos) << preview.out;
        EXPECT_EQ(preview.out.substr(0, previewEnd), done.out.substr(0, doneEnd));
        EXPECT_NE(preview.out.find("would change; the movie was left as it is\n"), std::string::npos);
    }
}

TEST(Fix, NeighbouringDamageIsJudgedAgainstTheUnmendedNext)
{
    // Entry 10 is judged against entry 11 as stored, so only a second run mends it.
    MovieCopy movie("damaged_stco_topbyte_edges");
    const ToolResult first = RunTool({"fix", movie.Path()});
    ASSERT_EQ(first.exitCode, 0) << first.err;
    EXPECT_EQ(first.out,
              "track  table  entry         old    new\n"
              "    0  stco      11  1073744437   2613\n"
              "    0  stco     500  4278275934  85854\n"
              "2 chunk offsets changed\n");
    const ToolResult second = RunTool({"fix", movie.Path()});
    EXPECT_EQ(second.out,
              "track  table  entry       old   new\n"
              "    0  stco      10  16779737  2521\n"
              "1 chunk offset changed\n");
}

TEST(Fix, SoundMovieChangesNothing)
{
    MovieCopy movie("short_1s");
    const Bytes original = movie.Read();
    const ToolResult r = RunTool({"fix", movie.Path()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "no chunk offset changed\n");
    EXPECT_EQ(movie.Read(), original);
}

TEST(Fix, FailuresAreOneLine)
{
    TempFile text(Bytes(64, 'x'), "notes.txt");
    for (const std::string& path : {std::string("/nonexistent/clip.mov"), text.Path().string()}) {
        for (const char* mode : {"--dry-run", ""}) {
            std::vector<std::string> args = {"fix", path};
            if (*mode) args.push_back(mode);
            const ToolResult r = RunTool(args);
            EXPECT_EQ(r.exitCode, 1) << path;
            EXPECT_EQ(r.out, "");
            EXPECT_EQ(r.err.rfind("atomscan: " + path + ": ", 0), 0u) << r.err;
            EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
        }
    }
}

} // namespace
