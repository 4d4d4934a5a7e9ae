// External references of a whole movie: listing them by track and in one
// map, and finding each file from here by its stored path or near the movie.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Inc/ExternalReferences.h"
#include "Src/ExternalReferences.h"
#include "Tests/Support/DataReferenceBuilder.h"
#include "Tests/Support/FakeVolumes.h"
#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

QT::String16 U(const std::string& text) { return ToString16(text); }

QT::ExtRefData Ref(const std::string& fileName, const std::string& directoryName, const std::string& fullPath)
{
    return QT::ExtRefData{U(fileName), U(directoryName), U(fullPath)};
}

QT::ExternalReferenceMap MapOf(const std::vector<QT::ExtRefData>& refs)
{
    QT::ExternalReferenceMap map;
    for (const QT::ExtRefData& r : refs) map.emplace(r.fullPath, r);
    return map;
}

// An `alis` entry for `fileName` in `directory`, stored at "/Vol" + `path`.
Bytes External(const std::string& fileName, const std::string& path, const std::string& directory = "Clips")
{
    return AliasEntry(Alias(fileName, {{0, directory}, {19, "/Vol"}, {18, path}}));
}

TrackSpec Track(const char* mediaType, std::vector<Bytes> entries, bool enabled = true)
{
    TrackSpec t;
    t.mediaType = mediaType;
    t.flags = enabled ? 1 : 0;
    t.dinf = DataInformation(entries);
    return t;
}

// ---- Listing ---------------------------------------------------------------

struct ListingCase {
    const char* name;
    std::vector<TrackSpec> tracks;
    QT::TrackReferenceMap video, audio, timecode; // what the listing adds
    std::vector<QT::ExtRefData> references;       // what the gathering adds
    bool gathered = true;
};

TEST(ExternalReferences, ListingAndGatheringByTrack)
{
    const Bytes self = ReferenceEntry("alis", 1);
    const ListingCase cases[] = {
        {"self-contained tracks", {Track("vide", {self}), Track("soun", {self})}, {}, {}, {}, {}},
        {"one enabled track of each kind",
         {Track("vide", {External("v.mov", "/v.mov")}), Track("soun", {External("a.mov", "/a.mov")}),
          Track("tmcd", {External("t.mov", "/t.mov")})},
         {{0, u"/Vol/v.mov"}},
         {{1, u"/Vol/a.mov"}},
         {{2, u"/Vol/t.mov"}},
         {Ref("v.mov", "Clips", "/Vol/v.mov"), Ref("a.mov", "Clips", "/Vol/a.mov"),
          Ref("t.mov", "Clips", "/Vol/t.mov")}},
        {"disabled video is listed by neither, disabled timecode by both",
         {Track("vide", {External("v.mov", "/v.mov")}, false), Track("soun", {External("a.mov", "/a.mov")}, false),
          Track("tmcd", {External("t.mov", "/t.mov")}, false)},
         {},
         {},
         {{2, u"/Vol/t.mov"}},
         {Ref("t.mov", "Clips", "/Vol/t.mov")}},
        {"two files in one track: both gathered, listed nowhere",
         {Track("vide", {External("a.mov", "/a.mov"), External("b.mov", "/b.mov")})},
         {},
         {},
         {},
         {Ref("a.mov", "Clips", "/Vol/a.mov"), Ref("b.mov", "Clips", "/Vol/b.mov")}},
        {"two tracks name one file: the first track's data stays",
         {Track("vide", {External("one.mov", "/same.mov", "First")}),
          Track("soun", {External("two.mov", "/same.mov", "Second")})},
         {{0, u"/Vol/same.mov"}},
         {{1, u"/Vol/same.mov"}},
         {},
         {Ref("one.mov", "First", "/Vol/same.mov")}},
        {"an enabled text track is gathered only",
         {Track("text", {External("s.mov", "/s.mov")}), Track("text", {External("d.mov", "/d.mov")}, false)},
         {},
         {},
         {},
         {Ref("s.mov", "Clips", "/Vol/s.mov")}},
        {"a dref that runs past its end stops the gathering",
         {Track("vide", {External("a.mov", "/a.mov")}),
          [&] {
              TrackSpec t = Track("soun", {});
              t.dinf = DataInformation({External("b.mov", "/b.mov")}, 2);
              return t;
          }(),
          Track("tmcd", {External("t.mov", "/t.mov")})},
         {{0, u"/Vol/a.mov"}},
         {},
         {{2, u"/Vol/t.mov"}},
         {Ref("a.mov", "Clips", "/Vol/a.mov"), Ref("b.mov", "Clips", "/Vol/b.mov")},
         false},
    };

    // What the caller put in the maps stays there.
    const QT::TrackReferenceMap kept = {{7, u"kept"}};
    const QT::ExtRefData keptRef = Ref("k.mov", "", "kept");
    for (const ListingCase& c : cases) {
        SCOPED_TRACE(c.name);
        MovieSpec plan;
        plan.tracks = c.tracks;
        OpenResult opened = OpenSpec(plan);
        ASSERT_EQ(opened.code, QT::kResultSuccess);

        QT::TrackReferenceMap video = kept, audio = kept, timecode = kept;
        QT::GetExternalReferences(opened.movie, video, audio, timecode);
        QT::TrackReferenceMap expectedVideo = c.video, expectedAudio = c.audio, expectedTimecode = c.timecode;
        for (auto* m : {&expectedVideo, &expectedAudio, &expectedTimecode}) m->insert(kept.begin(), kept.end());
        EXPECT_EQ(video, expectedVideo);
        EXPECT_EQ(audio, expectedAudio);
        EXPECT_EQ(timecode, expectedTimecode);

        QT::ExternalReferenceMap references = MapOf({keptRef});
        EXPECT_EQ(QT::GetAllExternalReferences(opened.movie, references), c.gathered);
        std::vector<QT::ExtRefData> expected = c.references;
        expected.push_back(keptRef);
        EXPECT_EQ(references, MapOf(expected));
    }
}

TEST(ExternalReferences, ListingReplacesThePathOfAnIndex)
{
    MovieSpec plan;
    plan.tracks = {Track("soun", {External("a.mov", "/a.mov")})};
    OpenResult opened = OpenSpec(plan);
    ASSERT_EQ(opened.code, QT::kResultSuccess);
    QT::TrackReferenceMap video, audio = {{0, u"old"}, {1, u"other"}}, timecode;
    QT::GetExternalReferences(opened.movie, video, audio, timecode);
    EXPECT_EQ(audio, (QT::TrackReferenceMap{{0, u"/Vol/a.mov"}, {1, u"other"}}));
    EXPECT_TRUE(video.empty());
    EXPECT_TRUE(timecode.empty());
}

TEST(ExternalReferences, AnEmptyMovieReferenceThrows)
{
    Tessel::InterfaceRef<QT::IQTMovie> none;
    QT::TrackReferenceMap video, audio, timecode;
    QT::ExternalReferenceMap references;
    EXPECT_THROW(QT::GetExternalReferences(none, video, audio, timecode), Tessel::NullInterfaceException);
    EXPECT_THROW(QT::GetAllExternalReferences(none, references), Tessel::NullInterfaceException);
}

// ---- Validation ------------------------------------------------------------

void Touch(const std::filesystem::path& path)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << "x";
}

// A fake volume list that the process's drive table answers from, and the
// system's list again afterwards.
class ProcessVolumes {
public:
    explicit ProcessVolumes(std::vector<vellum::filesupport::MountedVolume> volumes)
        : mFake(std::make_unique<FakeVolumes>(std::move(volumes)))
    {
        if (QT::IsLogicalDriveTableMade()) QT::GetLogicalDriveTable()->RebuildLogicalDriveTable();
    }
    ~ProcessVolumes()
    {
        mFake.reset();
        if (QT::IsLogicalDriveTableMade()) QT::GetLogicalDriveTable()->RebuildLogicalDriveTable();
    }
    ProcessVolumes(const ProcessVolumes&) = delete;
    ProcessVolumes& operator=(const ProcessVolumes&) = delete;
    int Calls() const { return mFake->Calls(); }

private:
    std::unique_ptr<FakeVolumes> mFake;
};

struct ValidationCase {
    const char* name;
    const char* movieName;
    std::vector<QT::ExtRefData> references;
    std::vector<std::string> nearMovie; // files made below the movie's directory
    std::vector<std::string> onVolume;  // files made below the root of the volumes "Vol" and "Offline"
    bool found;
};

TEST(ValidateExternalReferences, RoutesToEachFile)
{
    const ValidationCase cases[] = {
        // The stored volume is gone: the file is found beside the movie.
        {"moved beside the movie", "movie.mov", {Ref("a.mov", "", "/Gone/clips/a.mov")}, {"a.mov"}, {}, true},
        {"moved and lost", "movie.mov", {Ref("a.mov", "", "/Gone/clips/a.mov")}, {"elsewhere/a.mov"}, {}, false},
        {"under the stored directory", "movie.mov", {Ref("a.mov", "Clips", "/Gone/Clips/a.mov")}, {"Clips/a.mov"},
         {}, true},
        // Beside the movie the name would be the movie itself, which doesn't count.
        {"the directory route comes before the sibling", "a.mov", {Ref("a.mov", "Clips", "/Gone/Clips/a.mov")},
         {"Clips/a.mov"}, {}, true},
        {"stage 2 ends at the movie itself", "a.mov", {Ref("a.mov", "Clips", "/Gone/Clips/a.mov")}, {}, {}, false},
        {"by the file part of the stored path", "movie.mov", {Ref("renamed.mov", "Clips", "/Gone/Clips/a.mov")},
         {"Clips/a.mov"}, {}, true},
        {"by the file part of the stored path, beside", "movie.mov", {Ref("renamed.mov", "Clips", "/Gone/a.mov")},
         {"a.mov"}, {}, true},
        // A relative stored path is looked for beside the movie only.
        {"relative, beside the movie", "movie.mov", {Ref("a.mov", "Clips", "a.mov")}, {"a.mov"}, {}, true},
        {"relative, only in the named directory", "movie.mov", {Ref("a.mov", "Clips", "a.mov")}, {"Clips/a.mov"},
         {}, false},
        {"relative, with directories", "movie.mov", {Ref("a.mov", "", "sub/a.mov")}, {"sub/a.mov"}, {}, true},
        {"relative path is the movie itself", "a.mov", {Ref("a.mov", "", "a.mov")}, {}, {}, true},
        // The comparison with the movie's path is exact.
        {"differs from the movie in case", "a.mov", {Ref("A.mov", "", "/Gone/A.mov")}, {"A.mov"}, {}, true},
        {"differs from the movie in its separators", "a.mov", {Ref("a.mov", ".", "/Gone/a.mov")}, {}, {}, true},
        // One component names no volume.
        {"no volume, found beside", "movie.mov", {Ref("a.mov", "", "/a.mov")}, {"a.mov"}, {}, true},
        {"no volume, not beside", "movie.mov", {Ref("a.mov", "", "/a.mov")}, {}, {"a.mov"}, false},
        // Volume paths: the label, then the rest below the volume's root.
        {"on the volume", "movie.mov", {Ref("b.mov", "", "/Vol/a/b.mov")}, {}, {"a/b.mov"}, true},
        {"on the volume, label in another case", "movie.mov", {Ref("b.mov", "", "/VOL/a/b.mov")}, {}, {"a/b.mov"},
         true},
        {"dot and double separators", "movie.mov", {Ref("b.mov", "", "/Vol/./a//b.mov")}, {}, {"a/b.mov"}, true},
        {"repeated dots and separators", "movie.mov", {Ref("b.mov", "", "/Vol/././a///b.mov")}, {}, {"a/b.mov"},
         true},
        // A leading "//" makes it a network path, which asks no volume.
        {"a leading double separator", "movie.mov", {Ref("b.mov", "", "//Vol/a/b.mov")}, {}, {"a/b.mov"}, false},
        {"missing on the volume, found beside", "movie.mov", {Ref("b.mov", "", "/Vol/a/b.mov")}, {"b.mov"}, {},
         true},
        {"missing on the volume and beside", "movie.mov", {Ref("b.mov", "", "/Vol/a/b.mov")}, {}, {"b.mov"}, false},
        {"a volume that isn't ready", "movie.mov", {Ref("b.mov", "", "/Offline/a/b.mov")}, {}, {"a/b.mov"}, false},
        {"a volume that isn't ready, found beside", "movie.mov", {Ref("b.mov", "", "/Offline/a/b.mov")}, {"b.mov"},
         {"a/b.mov"}, true},
        // A network path is tried as it is, then near the movie.
        {"network path not reachable", "movie.mov", {Ref("x.mov", "", "//server/share/x.mov")}, {}, {}, false},
        {"network path, found beside", "movie.mov", {Ref("x.mov", "", "//server/share/x.mov")}, {"x.mov"}, {},
         true},
        // Every reference must be found; the first miss decides.
        {"all found", "movie.mov", {Ref("a.mov", "", "/Gone/a.mov"), Ref("b.mov", "", "/Vol/b.mov")}, {"a.mov"},
         {"b.mov"}, true},
        {"one missing", "movie.mov", {Ref("a.mov", "", "/Gone/a.mov"), Ref("b.mov", "", "/Vol/b.mov")}, {"a.mov"},
         {}, false},
    };
    for (const ValidationCase& c : cases) {
        SCOPED_TRACE(c.name);
        TempFile movie(Bytes{0}, c.movieName);
        TempFile volume(Bytes{0}, "marker");
        const QT::String16 root = U(volume.Path().parent_path().string() + "/");
        ProcessVolumes volumes({Volume(u"/media/other/", u"Other"), Volume(root.c_str(), u"Vol"),
                                Volume(root.c_str(), u"Offline", 0)});
        for (const std::string& f : c.nearMovie) Touch(movie.Path().parent_path() / f);
        for (const std::string& f : c.onVolume) Touch(volume.Path().parent_path() / f);
        EXPECT_EQ(QT::ValidateExternalReferences(movie.Path16(), MapOf(c.references)), c.found);
    }
}

TEST(ValidateExternalReferences, NetworkPathFoundAsStored)
{
    // "//" followed by an absolute path is an existing file here.
    TempFile movie(Bytes{0});
    TempFile target(Bytes{0}, "x.mov");
    const QT::ExtRefData ref = Ref("x.mov", "", "/" + target.Path().string());
    EXPECT_TRUE(QT::ValidateExternalReferences(movie.Path16(), MapOf({ref})));
    std::filesystem::remove(target.Path());
    EXPECT_FALSE(QT::ValidateExternalReferences(movie.Path16(), MapOf({ref})));
}

TEST(ValidateExternalReferences, DriveTableIsMadeOnlyForAVolumeLookup)
{
    TempFile movie(Bytes{0});
    Touch(movie.Path().parent_path() / "x.mov");
    {
        ProcessVolumes volumes({});
        const bool madeBefore = QT::IsLogicalDriveTableMade();
        const int callsBefore = volumes.Calls();
        EXPECT_TRUE(QT::ValidateExternalReferences(movie.Path16(), {}));
        // Relative, network and one-component paths ask no volume.
        EXPECT_TRUE(QT::ValidateExternalReferences(
            movie.Path16(), MapOf({Ref("x.mov", "", "x.mov"), Ref("x.mov", "", "//server/x.mov"),
                                   Ref("x.mov", "", "/x.mov"), Ref("x.mov", "", "")})));
        EXPECT_EQ(QT::IsLogicalDriveTableMade(), madeBefore);
        EXPECT_EQ(volumes.Calls(), callsBefore);

        EXPECT_TRUE(QT::ValidateExternalReferences(movie.Path16(), MapOf({Ref("x.mov", "", "/Vol/x.mov")})));
        EXPECT_TRUE(QT::IsLogicalDriveTableMade());
        // Made now, it lists the volumes once; made before, a lookup lists nothing.
        EXPECT_EQ(volumes.Calls(), callsBefore + (madeBefore ? 0 : 1));
    }
}

TEST(ValidateExternalReferences, ReferenceMovieEndToEnd)
{
    TempFile volume(Bytes{0}, "marker");
    const QT::String16 root = U(volume.Path().parent_path().string() + "/");
    ProcessVolumes volumes({Volume(root.c_str(), u"Media Disk")});

    MovieSpec plan;
    plan.tracks = {Track("vide", {AliasEntry(Alias("v.mov", {{19, "/Media Disk"}, {18, "/clips/v.mov"}}))}),
                   Track("soun", {AliasEntry(Alias("a.mov", {{0, "Audio"}, {19, "/Gone"}, {18, "/Audio/a.mov"}}))})};
    TempFile movie(BuildMovieFile(plan), "ref.mov");
    Tessel::InterfaceRef<QT::IQTMovie> opened;
    ASSERT_EQ(QT::MakeParser()->OpenMovie(movie.Path16(), opened), QT::kResultSuccess);
    QT::ExternalReferenceMap references;
    ASSERT_TRUE(QT::GetAllExternalReferences(opened, references));
    ASSERT_EQ(references.size(), 2u);

    EXPECT_FALSE(QT::ValidateExternalReferences(movie.Path16(), references));
    Touch(volume.Path().parent_path() / "clips/v.mov");
    EXPECT_FALSE(QT::ValidateExternalReferences(movie.Path16(), references));
    Touch(movie.Path().parent_path() / "Audio/a.mov");
    EXPECT_TRUE(QT::ValidateExternalReferences(movie.Path16(), references));
    std::filesystem::remove(volume.Path().parent_path() / "clips/v.mov");
    EXPECT_FALSE(QT::ValidateExternalReferences(movie.Path16(), references));
}

} // namespace
