// `atomscan dump` on what only built movies show (the corpus movies' whole documents are in the corpus
// dump test): metadata of each kind, external references, an empty edit, the start timecode; large
// tables, and --no-tables.
#include <numeric>

#include "Tests/Tool/ToolRunner.h"

using namespace tooltest;

namespace {

// Places in the dumps of built movies, and what they hold (in Data/built-dumps.json).
TEST(Dump, WhatOnlyBuiltMoviesShow)
{
    MoviePlan meta, badRefs, empty, flat; // metadata of each kind, keys out of map order
    meta.extraMoov = {Atom("meta", {Atom("hdlr", HdlrPayload("mdta")),
                                    Keys({"title", "\xff\xfe", "count", "big", "q\"\n", "blob", "ratio", "wide"}),
                                    Ilst({{1, 1, {'H', 'i'}}, {2, 1, {'x'}}, {3, 21, {0xff, 0xfe}}, {4, 22, Bytes(4, 0xff)},
                                          {5, 2, {'o', 'k'}}, {6, 0, {0xde, 0xad}}, {7, 23, {0x7f, 0xc0, 0, 0}},
                                          {8, 24, {0x3f, 0xf8, 0, 0, 0, 0, 0, 0}}})})};
    badRefs.tracks[0].dinf = DataInformation({AliasEntry(Alias("clip.mov"))}, 2); // a second reference not there
    empty.tracks[0].edits = {{{600, 0xffffffff, 0x10000}}}; // shows no media: the library's media time, -1
    flat.tracks[0].matrixW = 0; // the identity in two dimensions only: no right angle, so no rotation
    MoviePlan big{600, 100, {TimecodeTrack(TimecodeDescription(0, 600, 20, 30), "tmcd", 8)}, {}};
    big.tracks[0].stszSizes = {(1u << 20) + 1}; // a time code sample of more than 1 MiB is not read
    std::uint64_t dinf = 0; // where the library's walk stops in the refused movie
    TempFile metadata(BuildMovieFile(meta)), refs(ReferenceMovie()), found(ReferenceMovie()), bad(BuildMovieFile(badRefs)),
        emptyEdit(BuildMovieFile(empty)), refused(RefusedMovie(dinf)), flatMatrix(BuildMovieFile(flat)),
        bigTimecode(BuildMovieFile(big, Bytes((1u << 20) + 1)));
    for (const char* name : {"clip.mov", "take.wav"}) std::ofstream(found.Path().parent_path() / name) << "media";
    const std::map<std::string, std::string> movies = {{"metadata", metadata.Path()}, {"refs", refs.Path()},
        {"found", found.Path()}, {"bad", bad.Path()}, {"emptyEdit", emptyEdit.Path()}, {"refused", refused.Path()},
        {"flat", flatMatrix.Path()}, {"bigTimecode", bigTimecode.Path()}};
    const json expected = json::parse(std::ifstream(TestDataDir() / "built-dumps.json")); // each movie's places
    ASSERT_EQ(expected.size(), movies.size());
    for (const auto& [movie, places] : expected.items())
        for (const auto& [pointer, value] : places.items())
            EXPECT_EQ(Dump(movies.at(movie)).value(json::json_pointer(pointer), json()), value) << movie << pointer;
    EXPECT_EQ(Dump(refused.Path())["refused"]["offset"], dinf);
}

// The start timecode rendered from the 4-byte frame number at `offset`, or else at the head of `mdat`
// (which comes last, so its place is known from the file's size); the cases are in Data/start-timecodes.json.
TEST(StartTimecode, RenderedFromTheFirstSample)
{
    const json cases = DataRows("start-timecodes.json");
    ASSERT_EQ(cases.size(), 10u);
    for (const json& c : cases) {
        SCOPED_TRACE(c.dump());
        const std::uint32_t frame = c[4], offset = c[6];
        MoviePlan plan{600, 100, {TimecodeTrack(TimecodeDescription(c[0], c[1], c[2], c[3]), "tmcd", 0)}, {}};
        const Bytes sample = ByteWriter().U32(frame);
        plan.tracks[0].stco = {offset ? offset : static_cast<std::uint32_t>(BuildMovieFile(plan, sample).size() - 4)};
        TempFile movie(BuildMovieFile(plan, sample));
        const json timecode = Dump(movie.Path())["tracks"][0]["timecode"];
        const json startFrame = offset ? json() : json({{"code", "0x00000000"}, {"value", static_cast<std::int32_t>(frame)}});
        EXPECT_EQ(json({timecode["startFrame"], timecode["startTimecode"]}), json({startFrame, c[5]}));
    }
}

// The tables of many frames go out whole, in bounded time (the test's timeout), and without the
// output held in memory: they cost less memory than their text.
TEST(Dump, LargeTablesStreamOut)
{
    constexpr std::uint32_t kFrames = 200000;
    MoviePlan plan;
    TrackPlan& video = plan.tracks[0];
    video.mediaTimeScale = 25;
    video.duration = plan.duration = (video.mediaDuration = kFrames) * 24; // at the movie's 600
    video.stts = {{kFrames, 1}};
    video.stszSizes.assign(kFrames, 1);
    video.stco.resize(kFrames);
    std::iota(video.stco.begin(), video.stco.end(), 4096u);
    TempFile movie(BuildMovieFile(plan));
    const ToolResult brief = RunTool({"dump", "--no-tables", movie.Path()}), r = RunTool({"dump", movie.Path()});
    ASSERT_EQ(r.exitCode + brief.exitCode, 0) << r.err;
    EXPECT_LT((r.peakKilobytes - brief.peakKilobytes) * 1024, static_cast<long>(r.out.size()));
    std::uint32_t records = 0; // of both tables, each ending in its sync flag
    for (std::size_t at = r.out.find("true]"); at != std::string::npos; at = r.out.find("true]", at + 1)) ++records;
    EXPECT_EQ(records, 2 * kFrames);
    EXPECT_NE(r.out.find("[204095, 1, 1, 199999, true]"), std::string::npos);
}

TEST(Dump, NoTablesKeepsTheKeysAsNull)
{
    const std::string path = CorpusMovie("broadcast_2997_tc_c608_aac");
    json full = Dump(path);
    for (const char* table : {"/0/video/sampleTable", "/0/video/mediaSampleTable", "/1/audio/rangesByPosition",
                              "/1/audio/rangesByOffset", "/2/caption/byTime", "/2/caption/byOffset"})
        full["tracks"].at(json::json_pointer(table)) = nullptr;
    EXPECT_EQ(ParseOut(RunTool({"dump", "--no-tables", path})), full);
}

} // namespace
