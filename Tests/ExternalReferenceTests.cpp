// External references of a whole movie: listing them by track and in one map,
// and validation: each file found from here by its stored path, on a volume by
// its label, or near the movie.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "Inc/ExternalReferences.h"
#include "Src/ExternalReferences.h"
#include "Tests/Support/DataReferenceBuilder.h"
#include "Tests/Support/FakeVolumes.h"
#include "Tests/Support/MovieBuilder.h"
#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

void Touch(const std::filesystem::path& path)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << "x";
}

// A track of `mediaType` whose `dref` holds `alis` entries for "/Vol/<name>", each in "Clips".
TrackPlan Track(const char* mediaType, std::vector<const char*> files, bool enabled = true)
{
    TrackPlan t;
    t.mediaType = mediaType;
    t.flags = enabled ? 1 : 0;
    std::vector<Bytes> entries;
    for (const char* f : files) entries.push_back(AliasEntry(Alias(f, {{0, "Clips"}, {19, "/Vol"}, {18, std::string("/") + f}})));
    t.dinf = DataInformation(entries.empty() ? std::vector<Bytes>{ReferenceEntry("alis", 1)} : entries);
    return t;
}

TEST(ExternalReferences, ListingAndGatheringByTrack)
{
    struct Case { const char* name; std::vector<TrackPlan> tracks; QT::TrackReferenceMap video, audio, timecode;
                  std::vector<const char*> gathered; };
    const Case cases[] = {
        {"self-contained tracks", {Track("vide", {}), Track("soun", {})}, {}, {}, {}, {}},
        {"one enabled track of each kind", {Track("vide", {"v"}), Track("soun", {"a"}), Track("tmcd", {"t"})},
         {{0, u"/Vol/v"}}, {{1, u"/Vol/a"}}, {{2, u"/Vol/t"}}, {"v", "a", "t"}},
        {"disabled video and sound are left out, disabled timecode is not",
         {Track("vide", {"v"}, false), Track("soun", {"a"}, false), Track("tmcd", {"t"}, false)}, {}, {},
         {{2, u"/Vol/t"}}, {"t"}},
        {"two files in one track: gathered, listed nowhere", {Track("vide", {"a", "b"})}, {}, {}, {}, {"a", "b"}},
        {"an enabled text track is gathered only", {Track("text", {"s"}), Track("text", {"d"}, false)}, {}, {}, {},
         {"s"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        MoviePlan plan;
        plan.tracks = c.tracks;
        OpenResult opened = OpenPlan(plan);
        ASSERT_EQ(opened.code, QT::kResultSuccess);
        // A listed index replaces what the caller had there; other entries stay.
        QT::TrackReferenceMap video = {{0, u"old"}, {7, u"kept"}}, audio = video, timecode = video;
        QT::GetExternalReferences(opened.movie, video, audio, timecode);
        for (auto [got, want] : {std::pair{&video, c.video}, {&audio, c.audio}, {&timecode, c.timecode}}) {
            want.insert({{0, u"old"}, {7, u"kept"}});
            EXPECT_EQ(*got, want);
        }
        QT::ExternalReferenceMap all;
        EXPECT_TRUE(QT::GetAllExternalReferences(opened.movie, all));
        std::vector<QT::String16> names, want;
        for (const auto& [path, ref] : all) names.push_back(ref.fileName);
        for (const char* f : c.gathered) want.push_back(ToString16(f));
        std::sort(names.begin(), names.end());
        std::sort(want.begin(), want.end());
        EXPECT_EQ(names, want);
    }
}

// A fake volume list that the process's drive table answers from, and the system's list again afterwards.
struct ProcessVolumes {
    explicit ProcessVolumes(std::vector<vellum::filesupport::MountedVolume> volumes) : fake(std::in_place, volumes)
    {
        Rebuild();
    }
    ~ProcessVolumes() { fake.reset(); Rebuild(); }
    static void Rebuild() { if (QT::IsLogicalDriveTableMade()) QT::GetLogicalDriveTable()->RebuildLogicalDriveTable(); }
    std::optional<FakeVolumes> fake;
};

// References by their stored paths. A leading "@" stands for "/" and the root of the volume "Vol": a
// network path that exists here.
QT::ExternalReferenceMap References(const std::vector<std::array<const char*, 3>>& refs, const std::string& root)
{
    QT::ExternalReferenceMap map;
    for (const auto& [file, directory, path] : refs) {
        const QT::String16 full = ToString16(*path == '@' ? "/" + root + (path + 1) : path);
        map.emplace(full, QT::ExtRefData{ToString16(file), ToString16(directory), full});
    }
    return map;
}

TEST(ValidateExternalReferences, RoutesToEachFile)
{
    // `nearMovie` and `onVolume`: a file made there, if any.
    struct Case { const char* name, *movie; std::vector<std::array<const char*, 3>> refs; const char* nearMovie, *onVolume;
                  bool found; };
    const Case cases[] = {
        {"volume gone: found beside the movie", "movie.mov", {{"a.mov", "", "/Gone/c/a.mov"}}, "a.mov", "", true},
        {"the stored directory before the movie's own name", "a.mov", {{"a.mov", "Clips", "/Gone/Clips/a.mov"}},
         "Clips/a.mov", "", true},
        {"the movie itself is no answer", "a.mov", {{"a.mov", "Clips", "/Gone/Clips/a.mov"}}, "", "", false},
        {"the stored path's file part, in the directory", "movie.mov", {{"new.mov", "Clips", "/Gone/Clips/a.mov"}},
         "Clips/a.mov", "", true},
        {"the stored path's file part, beside", "movie.mov", {{"new.mov", "Clips", "/Gone/a.mov"}}, "a.mov", "", true},
        {"relative: below the movie's directory", "movie.mov", {{"a.mov", "", "sub/a.mov"}}, "sub/a.mov", "", true},
        {"relative and missing: not looked for elsewhere", "movie.mov", {{"a.mov", "Clips", "a.mov"}}, "Clips/a.mov", "",
         false},
        {"relative: the movie itself counts", "a.mov", {{"a.mov", "", "a.mov"}}, "", "", true},
        {"the comparison with the movie is exact", "a.mov", {{"A.mov", "", "/Gone/A.mov"}}, "A.mov", "", true},
        {"one component names no volume", "movie.mov", {{"a.mov", "", "/a.mov"}}, "a.mov", "", true},
        {"on the volume: label in any case, dots and doubled separators", "movie.mov",
         {{"b.mov", "", "/VOL/././a///b.mov"}}, "", "a/b.mov", true},
        {"a leading double separator names no volume", "movie.mov", {{"b.mov", "", "//Vol/a/b.mov"}}, "", "a/b.mov", false},
        {"missing on the volume, found beside", "movie.mov", {{"b.mov", "", "/Vol/a/b.mov"}}, "b.mov", "", true},
        {"missing on the volume and beside", "movie.mov", {{"b.mov", "", "/Vol/a/b.mov"}}, "", "b.mov", false},
        {"a network path as stored", "movie.mov", {{"x.mov", "", "@x.mov"}}, "", "x.mov", true},
        {"a network path, found beside", "movie.mov", {{"x.mov", "", "//server/x.mov"}}, "x.mov", "", true},
        {"a network path nowhere", "movie.mov", {{"x.mov", "", "@x.mov"}}, "", "", false},
        {"no stored path: by the file name", "movie.mov", {{"a.mov", "", ""}}, "a.mov", "", true},
        {"nothing stored at all", "movie.mov", {{"", "", ""}}, "", "", false},
        {"every reference must be found", "movie.mov", {{"a.mov", "", "/Gone/a.mov"}, {"b.mov", "", "/Vol/b.mov"}},
         "a.mov", "", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempFile movie(Bytes{0}, c.movie), volume(Bytes{0}, "marker");
        const std::string root = volume.Path().parent_path().string() + "/";
        ProcessVolumes volumes({Volume(u"/media/other/", u"Other"), Volume(ToString16(root).c_str(), u"Vol")});
        if (*c.nearMovie) Touch(movie.Path().parent_path() / c.nearMovie);
        if (*c.onVolume) Touch(root + c.onVolume);
        EXPECT_EQ(QT::ValidateExternalReferences(movie.Path16(), References(c.refs, root)), c.found);
    }
}

} // namespace
