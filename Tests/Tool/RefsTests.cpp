// `atomscan refs` and the references of the dump, on reference movies built
// for the purpose: their media files beside them, or gone.
#include <gtest/gtest.h>

#include <fstream>

#include "Tests/Support/Corpus.h"
#include "Tests/Support/DataReferenceBuilder.h"
#include "Tests/Tool/ToolRunner.h"

using namespace testsupport;
using namespace tooltest;

namespace {

// The stored paths name a volume that is not mounted here; the files are
// looked for beside the movie.
const std::string kClipPath = "/Volumes/Nowhere/clips/clip.mov";
const std::string kSoundPath = "/Volumes/Nowhere/sound/take.wav";

TrackSpec ReferenceTrack(const char* mediaType, const std::string& fileName, const std::string& inVolume)
{
    TrackSpec track;
    track.mediaType = mediaType;
    track.dinf = DataInformation({AliasEntry(Alias(fileName, {{19, "/Volumes/Nowhere"}, {18, inVolume}}))});
    return track;
}

// A reference movie with a video and a sound track, each naming one file.
class ReferenceMovie {
public:
    ReferenceMovie()
    {
        MovieSpec plan;
        plan.tracks = {ReferenceTrack("vide", "clip.mov", "/clips/clip.mov"),
                       ReferenceTrack("soun", "take.wav", "/sound/take.wav")};
        mMovie = std::make_unique<TempFile>(BuildMovieFile(plan), "edit.mov");
    }
    std::string Path() const { return mMovie->Path().string(); }
    // Puts a file of that name beside the movie.
    void Provide(const std::string& fileName) const
    {
        std::ofstream(mMovie->Path().parent_path() / fileName) << "media";
    }

private:
    std::unique_ptr<TempFile> mMovie;
};

TEST(Refs, AllFoundBesideTheMovie)
{
    ReferenceMovie movie;
    movie.Provide("clip.mov");
    movie.Provide("take.wav");
    const ToolResult r = RunTool({"refs", movie.Path()});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "found    " + kClipPath + "\nfound    " + kSoundPath + "\n");
}

TEST(Refs, OneMissing)
{
    ReferenceMovie movie;
    movie.Provide("clip.mov");
    const ToolResult r = RunTool({"refs", movie.Path()});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "found    " + kClipPath + "\nmissing  " + kSoundPath + "\n");
}

TEST(Refs, SelfContainedMoviePrintsNothing)
{
    const ToolResult r = RunTool({"refs", CorpusMovie("short_1s").string()});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
}

TEST(Refs, UnreadableReferencesFail)
{
    // The count claims a second entry that the `dref` atom does not hold.
    MovieSpec plan;
    plan.tracks = {TrackSpec{}};
    plan.tracks[0].dinf = DataInformation({AliasEntry(Alias("clip.mov"))}, 2);
    TempFile movie(BuildMovieFile(plan));
    const ToolResult r = RunTool({"refs", movie.Path().string()});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "atomscan: " + movie.Path().string() + ": the data references of a track could not all be read\n");
    const nlohmann::json dump = ParseOut(RunTool({"dump", movie.Path().string()}));
    EXPECT_EQ(dump["references"]["all"]["result"], false);
    EXPECT_EQ(dump["tracks"][0]["externalReferences"]["result"], false);
}

TEST(Refs, MovieThatDoesNotOpen)
{
    const ToolResult r = RunTool({"refs", "/nonexistent/edit.mov"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "atomscan: /nonexistent/edit.mov: cannot open the file\n");
}

TEST(Refs, DumpListsThemByTrackAndValidatesThem)
{
    ReferenceMovie movie;
    movie.Provide("clip.mov");
    const nlohmann::json missing = ParseOut(RunTool({"dump", "--no-tables", movie.Path()}));
    const nlohmann::json& references = missing["references"];
    EXPECT_EQ(references["video"], nlohmann::json({{"0", kClipPath}}));
    EXPECT_EQ(references["audio"], nlohmann::json({{"1", kSoundPath}}));
    EXPECT_EQ(references["timecode"], nlohmann::json::object());
    EXPECT_EQ(references["all"]["result"], true);
    ASSERT_EQ(references["all"]["refs"].size(), 2u);
    EXPECT_EQ(references["all"]["refs"][1],
              nlohmann::json({{"fullPath", kSoundPath}, {"fileName", "take.wav"}, {"directoryName", ""}}));
    EXPECT_EQ(references["valid"], false);

    const nlohmann::json& track = missing["tracks"][0];
    EXPECT_EQ(track["dataReference"], nlohmann::json::parse(R"({"selfContained": false, "single": true,
        "type": "alis", "singleExternalPath": ")" + kClipPath + "\"}"));
    EXPECT_EQ(track["externalReferences"]["refs"][0]["fullPath"], kClipPath);

    movie.Provide("take.wav");
    EXPECT_EQ(ParseOut(RunTool({"dump", "--no-tables", movie.Path()}))["references"]["valid"], true);
}

TEST(Refs, InfoTellsFoundAndMissing)
{
    ReferenceMovie movie;
    movie.Provide("take.wav");
    const ToolResult r = RunTool({"info", movie.Path()});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("  references\n    missing  " + kClipPath + "\n    found    " + kSoundPath + "\n"),
              std::string::npos)
        << r.out;
}

} // namespace
