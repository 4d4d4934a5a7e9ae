// External references: where a track's media lives (the `alis` records of
// external files, the payload of a `hndl` reference), listing them for a whole
// movie by track and in one map, and validation: each file found from here by
// its stored path, on a volume by its label, or near the movie.

#include "Tests/Support/Open.h"

namespace {

// A timecode track, as the timecode queries read the reference too.
OpenedTrack TrackWithDinf(const Atom& dinf) { return OpenTrackOf(TrackPlan{.mediaType = "tmcd", .dinf = dinf}); }

Atom One(const Alias& record) { return DataInformation({AliasEntry(record)}); }

// Each reference as "key=file name|directory ", in key order.
std::string Listed(const QT::ExternalReferenceMap& refs)
{
    using vellum::utility::UTF16to8;
    std::string out;
    for (const auto& [key, r] : refs)
        out += UTF16to8(key) + "=" + UTF16to8(r.fileName) + "|" + UTF16to8(r.directoryName) + " ";
    return out;
}

TEST(DataReference, ExternalReferencesOfATrack)
{
    const Bytes a = AliasEntry(Alias("a.mov", {{0, "A"}, {19, "/V"}, {18, "/same.mov"}}));
    const Bytes b = AliasEntry(Alias("b.mov", {{0, "B"}, {19, "/V"}, {18, "/same.mov"}}));
    const Bytes c = AliasEntry(Alias("c.mov")), g = AliasEntry(Alias("g.mov"));
    Alias unclosed("u.mov", {{0, "dir"}}), longName("n.mov"), pathAlone("a.mov", {{18, "/a"}});
    unclosed.closeTags = false;
    longName.fileNameLength = 255; // reaches past `dref`: refused, not cut
    pathAlone.flags = 3;
    Bytes longTag = AliasEntry(Alias("t.mov", {{0, "dir"}}));
    longTag[longTag.size() - 10] = 0x40; // the tag's length: past the end of `dref`
    Bytes shortRecord = AliasEntry(Alias("s.mov"));
    shortRecord.resize(150); // the fixed part of the record does not fit
    shortRecord[3] = 150;
    Bytes claimsMore = c; // its entry size says 0x1000; the next entry begins right behind the record
    claimsMore[2] = 0x10;
    claimsMore.insert(claimsMore.end(), g.begin(), g.end());
    const std::string cOnly = "c.mov=c.mov| ";
    struct Case { const char* name; Atom dinf; bool ok; std::string listed; };
    const Case cases[] = {
        {"mount point and volume path", One(Alias("a.mov", {{0, "Clips"}, {19, "/Vol"}, {18, "/Clips/a.mov"}})), true,
         "/Vol/Clips/a.mov=a.mov|Clips "},
        {"tags in any order, padded, unknown ones skipped, the later one kept",
         One(Alias("b.mov", {{2, "/:x"}, {0, "Dir"}, {0, "Odd"}, {18, "/abc.mov"}, {19, "/V"}})), true,
         "/V/abc.mov=b.mov|Odd "},
        {"a volume path alone; flags 3 is not 1", One(pathAlone), true, "a.mov=a.mov| "},
        {"UTF-8 texts", One(Alias("\xc3\xa9.mov", {{19, "/\xc3\x9c"}, {18, "/x"}})), true, "/\xc3\x9c/x=\xc3\xa9.mov| "},
        {"one path twice: the first stays; url skipped",
         DataInformation({a, ReferenceEntry("url ", 0, ByteWriter().Text("x").U8(0)), b, c}), true,
         "/V/same.mov=a.mov|A " + cOnly},
        {"an entry in this file ends the scan", DataInformation({c, ReferenceEntry("alis", 1), a}), true, cOnly},
        {"the record size leads to the next entry", DataInformation({claimsMore}, 2), true, cOnly + "g.mov=g.mov| "},
        {"tag list without its end", DataInformation({c, AliasEntry(unclosed)}), false, cOnly},
        {"tag length past the end", DataInformation({c, longTag}), false, cOnly},
        {"file name length past the end", DataInformation({c, AliasEntry(longName)}), false, cOnly},
        {"fixed part past the end", DataInformation({c, shortRecord}), false, cOnly},
        {"more entries counted than there are", DataInformation({c}, 2), false, cOnly},
        {"dref larger than dinf", DataInformation({c}, 2, 4000), false, cOnly},
        {"an entry of size 0 under a huge count", DataInformation({ReferenceEntry("url ", 0, {}, 0)}, ~0u), true, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        OpenedTrack t = TrackWithDinf(c.dinf);
        QT::ExternalReferenceMap refs;
        EXPECT_EQ(t.track->GetTrackExternalReferences(refs), c.ok);
        EXPECT_EQ(Listed(refs), c.listed);
        EXPECT_EQ(t.track->GetSingleExternalReferencePath(nullptr), c.ok && refs.size() == 1);
    }
}

TEST(DataReference, TypeSelfContainednessAndHandlePayload)
{
    const QT::FourCC alis = QT::MakeFourCC("alis"), hndl = QT::MakeFourCC("hndl"), none = QT::MakeFourCC("????");
    const Bytes four = ByteWriter().U32(0xfffffffe), eight = ByteWriter().U64(1), here = ReferenceEntry("alis", 1);
    // `payload` empty: refused. `value`: the timecode's, read from a payload of four bytes.
    struct Case { const char* name; Atom dinf; bool self, single; QT::FourCC type; Bytes payload;
                  std::optional<std::uint64_t> value; };
    const Case cases[] = {
        {"alis in this file", DataInformation({here}), true, true, alis, {}, {}},
        {"alis elsewhere", One(Alias("a.mov")), false, true, alis, {}, {}},
        {"url of flags 3", DataInformation({ReferenceEntry("url ", 3)}), false, true, QT::MakeFourCC("url "), {}, {}},
        {"hndl of four bytes, read unsigned", DataInformation({HandleEntry(four)}), true, true, hndl, four, 0xfffffffeu},
        {"hndl of one byte", DataInformation({HandleEntry({9})}), true, true, hndl, {9}, {}},
        {"hndl of eight bytes", DataInformation({HandleEntry(eight)}), true, true, hndl, eight, {}},
        {"hndl counted 0: read, not the reference", DataInformation({HandleEntry(four)}, 0), false, false, none, four, {}},
        {"hndl of 25 bytes", DataInformation({HandleEntry({})}), true, true, hndl, {}, {}},
        {"hndl holding an atom of 8 bytes", DataInformation({HandleEntry(four, 8)}), true, true, hndl, {}, {}},
        {"hndl holding another atom", DataInformation({HandleEntry(four, {}, "junk")}), true, true, hndl, {}, {}},
        {"hndl holding an atom past its end", DataInformation({HandleEntry(four, 13), here}), false, false, none, {}, {}},
        {"hndl past the end of dref", DataInformation({HandleEntry(four, {}, "data", 40)}), true, true, hndl, {}, {}},
        {"a counted entry whose header is missing", DataInformation({}, 1), false, true, none, {}, {}},
        {"a dref too small for its count", DataInformation({}, 1, 12), false, false, none, {}, {}},
        {"a dinf without a dref", Atom("dinf", Bytes{}), false, false, none, {}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        OpenedTrack t = TrackWithDinf(c.dinf);
        EXPECT_EQ(t.track->IsDataReferenceSelfContained(), c.self);
        EXPECT_EQ(t.track->HasSingleDataReference(), c.single);
        EXPECT_EQ(t.track->GetDataReferenceType(), c.type);
        Pelt::BinaryData out(four.data(), 2); // not empty beforehand
        EXPECT_EQ(t.Core().GetHandleDataReferencePayload(out), c.payload.empty() ? -1 : 0);
        EXPECT_EQ(Bytes(out.Data(), out.Data() + out.Size()), c.payload);
        QT::TimecodeInfo info;
        QT::String16 name;
        ASSERT_EQ(t.track->GetTimecodeMediaInfo(info, name), 0);
        EXPECT_EQ(info.mHandleReference, c.type == hndl);
        std::uint64_t value = 5;
        EXPECT_EQ(t.track->GetTimecodeHandleValue(value), c.value ? 0 : -1);
        EXPECT_EQ(value, c.value.value_or(5));
    }
}

void Touch(const std::filesystem::path& path)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << "x";
}

// A track of `mediaType` whose `dref` holds `alis` entries for "/Vol/<name>", each in "Clips".
TrackPlan Track(const char* mediaType, std::vector<const char*> files, bool enabled = true)
{
    std::vector<Bytes> entries;
    for (const char* f : files) entries.push_back(AliasEntry(Alias(f, {{0, "Clips"}, {19, "/Vol"}, {18, std::string("/") + f}})));
    return {.mediaType = mediaType, .flags = enabled ? 1u : 0u,
            .dinf = DataInformation(entries.empty() ? std::vector<Bytes>{ReferenceEntry("alis", 1)} : entries)};
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
        OpenResult opened = OpenBytes(BuildMovieFile(MoviePlan{.tracks = c.tracks}));
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

// References by their stored paths (file name, directory, path). A leading "@" stands for "/" and the root of
// the volume "Vol": a network path that exists here.
QT::ExternalReferenceMap References(const nlohmann::json& refs, const std::string& root)
{
    QT::ExternalReferenceMap map;
    for (const nlohmann::json& r : refs) {
        const std::string path = r[2];
        const QT::String16 full = ToString16(path.starts_with('@') ? "/" + root + path.substr(1) : path);
        map.emplace(full, QT::ExtRefData{ToString16(r[0]), ToString16(r[1]), full});
    }
    return map;
}

// The cases are in Data/reference-routes.json.
TEST(ValidateExternalReferences, RoutesToEachFile)
{
    const nlohmann::json cases = DataRows("reference-routes.json");
    ASSERT_EQ(cases.size(), 20u);
    for (const nlohmann::json& c : cases) {
        SCOPED_TRACE(c[0].get<std::string>());
        TempFile movie(Bytes{0}, c[1]), volume(Bytes{0}, "marker");
        const std::string root = volume.Path().parent_path().string() + "/", nearMovie = c[3], onVolume = c[4];
        FakeVolumes volumes({Volume(u"/media/other/", u"Other"), Volume(ToString16(root).c_str(), u"Vol")});
        if (!nearMovie.empty()) Touch(movie.Path().parent_path() / nearMovie);
        if (!onVolume.empty()) Touch(root + onVolume);
        EXPECT_EQ(QT::ValidateExternalReferences(movie.Path16(), References(c[2], root)), c[5].get<bool>());
    }
}

} // namespace
