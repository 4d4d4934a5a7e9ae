// `atomscan dump`: its documented shape, its values against what an independent
// parser read from the real movies, and what only built movies show.
#include <fstream>
#include <numeric>
#include <regex>
#include <set>

#include "Tests/Tool/ToolRunner.h"

using namespace tooltest;

namespace {

// The documented shape. A leaf names the kinds its value may be (s string, n number, b bool,
// ns numbers, cc four-character code); `[x]` is a list of x, a longer array a fixed record;
// `*` is any key; a key ending in `?` may be absent. An object or array may be null.
// (No movie here has a timecode `hndl` reference, so `handleValue` shows its code alone.)
const json kFormat = json::parse(R"({"path": "s", "open": "code", "movie": {"timeScale": "n", "duration": "n",
  "posterTime": "n", "movieAtomSize": "n", "trackCount": "n", "bounds": "ns", "userData": [{"type": "cc", "data": "hex"}],
  "metadata": [{"key": "s", "dataType": "n", "alternative": "n", "value": "s|n"}]}, "references": {"video": {"*": "s"},
  "audio": {"*": "s"}, "timecode": {"*": "s"}, "valid": "b", "all": {"result": "b", "refs": [{"fullPath": "s",
  "fileName": "s", "directoryName": "s"}]}}, "tracks": [{"index": "n", "mediaType": "cc", "enabled": "b",
  "dimensions": "ns", "duration": "n", "mediaTimeScale": "n", "editDuration": "n", "editMediaTime": "n",
  "durationInMediaTimeScale": "n", "simpleEditList": {"anyRate": "b", "unitRate": "b"}, "trimmed": "b",
  "editSampleCount": "n", "sampleDescriptionCount": "n", "allSampleDescriptionsEquivalent": "b",
  "matrix": {"identity": "b", "identity2D": "b", "rightAngle": "b", "rotation": "n"}, "productionAperture": "ns|null",
  "encodedPixels": "ns|null", "dataReference": {"selfContained": "b", "single": "b", "type": "cc",
  "singleExternalPath": "s|null"}, "externalReferences": {"result": "b", "refs": [{"fullPath": "s", "fileName": "s",
  "directoryName": "s"}]}, "video?": {"descriptions": [{"compression": "cc", "vendor": "cc", "width": "n",
  "height": "n", "depth": "n", "codecName": {"code": "code", "value?": "s"}, "quality": {"code": "code",
  "temporal?": "n", "spatial?": "n"}, "cleanAperture": {"code": "code", "values?": "ns"}, "pixelAspect": {"code":
  "code", "horizontal?": "n", "vertical?": "n"}, "fieldInfo": {"code": "code", "count?": "n", "ordering?": "n"},
  "colorInfo": {"code": "code", "primaries?": "n", "transfer?": "n", "matrix?": "n"}, "imageDescription": {"code":
  "code", "data?": "hex"}, "platformImageDescription": {"code": "code", "data?": "hex"}}], "cleanApertureDimensions":
  "ns|null", "allImageDescriptionsEquivalent": {"exactSize": "b", "ignoringSize": "b"}, "containsDeltaFrames": "b",
  "hasTemporalReferenceData": "b", "hasEarlierDisplayKeyFrames": "b", "sampleTable": {"code": "code", "records":
  [["n", "n", "n", "n", "b"]]}, "mediaSampleTable": {"code": "code", "records": [["n", "n", "n", "n", "b"]]},
  "temporalReferences": {"code": "code", "records": [["n", "n", "n", "n"]]}}, "audio?": {"descriptions":
  [{"sampleRate": "n", "numChannels": "n", "bitsPerSample": "n", "packedBitsPerSample": "n", "dataFormat": "cc",
  "rawDataFormat": "cc", "uncompressed": "b", "channelMap": {"result": "b", "layoutNotUnderstood": "b",
  "map": "ns|null"}}], "rangesByPosition": {"code": "code", "ranges": [["n", "n", "n", "n"]]},
  "rangesByOffset": {"code": "code", "ranges": [["n", "n", "n", "n"]]}}, "timecode?": {"info": {"code": "code",
  "dropFrame?": "b", "timeScale?": "n", "ticksPerFrame?": "n", "numberOfFrames?": "n", "handleReference?": "b",
  "name?": "s"}, "handleValue": {"code": "code"}, "sampleLocation": {"code": "code", "offset?": "n", "size?": "n"},
  "startFrame": {"code": "code", "value?": "n"}, "startTimecode": "s|null"}, "caption?": {"format": "cc",
  "frameDuration": "n", "byTime": {"code": "code", "records": [["n", "n", "n", "n", "b", "n", "n"]]},
  "byOffset": {"code": "code", "records": [["n", "n", "n", "n", "b", "n", "n"]]}}}]})");

bool Is(const std::string& kind, const json& v)
{
    if (const std::size_t bar = kind.find('|'); bar != std::string::npos)
        return Is(kind.substr(0, bar), v) || Is(kind.substr(bar + 1), v);
    static const std::map<std::string, std::regex> kText = {{"code", std::regex("0x[0-9a-f]{8}")},
        {"cc", std::regex("[ -~]{4}|0x[0-9a-f]{8}")}, {"hex", std::regex("([0-9a-f]{2})*")}};
    if (kText.contains(kind)) return v.is_string() && std::regex_match(v.get<std::string>(), kText.at(kind));
    if (kind == "ns") return v.is_array() && std::all_of(v.begin(), v.end(), [](const json& n) { return n.is_number(); });
    return kind == "s" ? v.is_string() : kind == "n" ? v.is_number() : kind == "b" ? v.is_boolean() : v.is_null();
}

// Checks `value` against the shape `format`, noting the path of every key met in `seen`.
void Conform(const json& format, const json& value, const std::string& at, std::set<std::string>& seen)
{
    if (format.is_string()) {
        EXPECT_TRUE(Is(format, value)) << at << " is not " << format << ": " << value;
    } else if (format.is_array() && value.is_array()) {
        EXPECT_TRUE(format.size() == 1 || value.size() == format.size()) << at;
        for (std::size_t i = 0; i < value.size(); ++i)
            Conform(format[std::min(i, format.size() - 1)], value[i], at + "[]", seen);
    } else if (format.is_object() && value.is_object()) {
        for (const auto& [key, item] : value.items()) {
            const std::string k = format.contains("*") ? "*" : format.contains(key) ? key : key + "?";
            EXPECT_TRUE(format.contains(k)) << "unexpected " << at << "." << key;
            seen.insert(at + "." + k);
            Conform(format.value(k, json("none")), item, at + "." + k, seen);
        }
        for (const auto& [key, item] : format.items())
            EXPECT_TRUE(key == "*" || key.ends_with('?') || value.contains(key)) << "missing " << at << "." << key;
    } else {
        EXPECT_TRUE(value.is_null()) << at << ": " << value;
    }
}

void KeyPaths(const json& format, const std::string& at, std::set<std::string>& paths)
{
    if (format.is_string()) return;
    for (const auto& [key, item] : format.items()) {
        if (format.is_object()) paths.insert(at + "." + key);
        KeyPaths(item, format.is_object() ? at + "." + key : at + "[]", paths);
    }
}

// Key/value metadata of each kind, its keys out of map order.
Bytes MetadataMovie()
{
    const std::vector<std::tuple<std::string, std::uint32_t, Bytes>> items = {
        {"title", 1, {'H', 'i'}}, {"\xff\xfe", 1, {'x'}}, {"count", 21, {0xff, 0xfe}}, {"big", 22, {0xff, 0xff, 0xff, 0xff}},
        {"q\"\n", 2, {'o', 'k'}}, {"blob", 0, {0xde, 0xad}}, {"ratio", 23, {0x7f, 0xc0, 0, 0}},
        {"wide", 24, {0x3f, 0xf8, 0, 0, 0, 0, 0, 0}}};
    ByteWriter keys, ilst;
    keys.U32(0).U32(static_cast<std::uint32_t>(items.size()));
    for (std::uint32_t i = 0; i < items.size(); ++i) {
        const auto& [key, type, value] = items[i];
        const auto size = static_cast<std::uint32_t>(value.size());
        keys.U32(8 + static_cast<std::uint32_t>(key.size())).Code("mdta").Text(key);
        ilst.U32(24 + size).U32(i + 1).U32(16 + size).Code("data").U32(type).U32(0).Raw(value);
    }
    MoviePlan plan;
    plan.extraMoov = {Atom("meta", {Atom("hdlr", HdlrPayload("mdta")), Atom("keys", keys.Take()),
                                    Atom("ilst", ilst.Take())})};
    return BuildMovieFile(plan);
}

// A place in the dump of each movie and what it holds; over these movies every documented key
// is met, of its kind, and no other.
TEST(DumpFormat, EveryKeyOfItsKindAndValues)
{
    MoviePlan badRefs; // the count claims a second reference that `dref` does not hold
    badRefs.tracks[0].dinf = DataInformation({AliasEntry(Alias("clip.mov"))}, 2);
    MoviePlan empty; // an edit that shows no media keeps the library's media time, -1
    empty.tracks[0].edits = {{{600, 0xffffffff, 0x10000}}};
    TempFile meta(MetadataMovie()), refs(ReferenceMovie()), found(ReferenceMovie()), bad(BuildMovieFile(badRefs)),
        emptyEdit(BuildMovieFile(empty));
    for (const char* name : {"clip.mov", "take.wav"}) std::ofstream(found.Path().parent_path() / name) << "media";
    const std::string clip = '"' + kClip + '"', take = '"' + kTake + '"', image = "/tracks/0/video/descriptions/0/";
    const auto corpus = [](const char* name) { return CorpusMovie(name).string(); };
    const struct { std::string movie, pointer, expected; } kCases[] = {
        {corpus("raw_2vuy_clap"), image + "cleanAperture/values", "[160, 1, 120, 1, 0, 1, 0, 1]"},
        {corpus("prores_proxy_tff_colr"), image + "fieldInfo", R"({"code": "0x00000000", "count": 2, "ordering": 9})"},
        {corpus("prores_proxy_tff_colr"), image + "colorInfo",
         R"({"code": "0x00000000", "primaries": 1, "transfer": 1, "matrix": 1})"},
        {corpus("aac_5_1_48k"), "/tracks/0/audio/descriptions/0/channelMap/map", "[0, 1, 2, 3, 4, 5]"},
        {corpus("pcm_s16le_7_1_48k"), "/tracks/0/audio/rangesByOffset/ranges", "[[36, 9600, 0, 36]]"},
        {corpus("broadcast_2997_tc_c608_aac"), "/tracks/3/timecode/startFrame/value", "107832"},
        // Flags of no known kind: the table fails, and shows what it placed all the same.
        {corpus("hevc_hvc1_sdtp"), "/tracks/0/video/temporalReferences/code", R"("0xa0800007")"},
        // An unprintable type; the bytes tell "Lavf59.27.100", the encoder the independent parser names.
        {corpus("short_1s"), "/movie/userData/0",
         R"({"type": "0xa9737772", "data": "000d55c44c61766635392e32372e313030"})"},
        {meta.Path(), "/movie/metadata", R"([{"key": "big", "dataType": 22, "alternative": 4, "value": 4294967295},
            {"key": "blob", "dataType": 0, "alternative": 0, "value": "dead"},
            {"key": "count", "dataType": 21, "alternative": 3, "value": -2},
            {"key": "q\"\n", "dataType": 2, "alternative": 2, "value": "ok"},
            {"key": "ratio", "dataType": 23, "alternative": 5, "value": "nan"},
            {"key": "title", "dataType": 1, "alternative": 1, "value": "Hi"},
            {"key": "wide", "dataType": 24, "alternative": 6, "value": 1.5},
            {"key": "hex:fffe", "dataType": 1, "alternative": 1, "value": "x"}])"},
        {refs.Path(), "/references", R"({"video": {"0": )" + clip + R"(}, "audio": {"1": )" + take +
            R"(}, "timecode": {"2": )" + clip + R"(}, "valid": false, "all": {"result": true, "refs": [{"fullPath": )" +
            clip + R"(, "fileName": "clip.mov", "directoryName": ""}, {"fullPath": )" + take +
            R"(, "fileName": "take.wav", "directoryName": ""}]}})"},
        {found.Path(), "/references/valid", "true"},
        {bad.Path(), "/references/all/result", "false"},
        {bad.Path(), "/tracks/0/externalReferences/result", "false"},
        {emptyEdit.Path(), "/tracks/0/editMediaTime", "4294967295"}};
    std::set<std::string> seen, all;
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.movie + c.pointer);
        const json dump = Dump(c.movie);
        Conform(kFormat, dump, "", seen);
        EXPECT_EQ(dump.value(json::json_pointer(c.pointer), json()), json::parse(c.expected));
    }
    KeyPaths(kFormat, "", all);
    for (const std::string& path : all) EXPECT_TRUE(seen.contains(path)) << "never met: " << path;
}

std::uint64_t N(const json& v) { return v.is_string() ? std::stoull(v.get<std::string>()) : v.get<std::uint64_t>(); }

class DumpCorpus : public ::testing::TestWithParam<std::string> {};

// Each track, its description, frames, timecode and caption format as the independent parser read
// them (a derived copy's frames are left to the library's tests, a fragmented movie's are not read).
TEST_P(DumpCorpus, MatchesTheIndependentParser)
{
    const std::string name = GetParam(), path = CorpusMovie(name);
    const ToolResult r = RunTool({"dump", path});
    const json dump = ParseOut(r);
    std::set<std::string> seen;
    Conform(kFormat, dump, "", seen);
    if (name == "damaged_truncated_in_moov") return; // ends inside its movie atom: a failed open, as in Command tests
    EXPECT_EQ(json({r.exitCode, r.err, dump["path"], dump["open"]}), json({0, "", path, "0x00000000"}));
    static const json corpus = json::parse(std::ifstream(CorpusDir() / "corpus.json"))["files"];
    const json& file = *std::find_if(corpus.begin(), corpus.end(), [&](const json& f) { return f["name"] == name + ".mov"; });
    const bool framesAsProbed = !file.contains("derivation") && !file["layout"].value("fragmented", false);
    const json probe = Probe(name), &streams = probe["streams"];
    ASSERT_EQ(json({dump["tracks"].size(), dump["movie"]["trackCount"]}), json({streams.size(), streams.size()}));
    for (std::size_t i = 0; i < streams.size(); ++i) {
        SCOPED_TRACE("track " + std::to_string(i));
        const json &track = dump["tracks"][i], &stream = streams[i];
        const std::string tag = stream.value("codec_tag_string", ""), codec = stream.value("codec_type", "");
        const std::string type = codec == "video" ? "vide" : codec == "audio" ? "soun" : codec == "subtitle" ? "clcp" : tag;
        EXPECT_EQ(json({track["index"], track["mediaType"], "1/" + std::to_string(N(track["mediaTimeScale"])),
                        track.contains("video"), track.contains("audio"), track.contains("timecode"),
                        track.value(json::json_pointer("/caption/format"), "")}),
                  json({i, type, stream["time_base"], type == "vide", type == "soun", type == "tmcd",
                        type == "clcp" ? tag : ""}));
        // The track's packets in decode order: offset, size, duration, sync (as `stps` frames are to the parser).
        const bool stps = file["tracks"][i]["present"].value("stps", false);
        json packets = json::array(), frames = json::array();
        for (const json& p : probe["packets"])
            if (p["stream_index"] == i) packets.push_back({N(p["pos"]), N(p["size"]), N(p.value("duration", json(0))),
                                                           stps || p["flags"].get<std::string>().starts_with('K')});
        if (type == "vide") {
            const json& d = track["video"]["descriptions"][0];
            EXPECT_EQ(json({d["compression"], d["width"], d["height"]}), json({tag, stream["width"], stream["height"]}));
            for (const json& f : track["video"]["mediaSampleTable"]["records"])
                frames.push_back({f[0], f[1], f[2], stps || f[4] == true});
            EXPECT_TRUE(!framesAsProbed || frames == packets) << frames;
        } else if (type == "soun") {
            const json& d = track["audio"]["descriptions"][0];
            EXPECT_EQ(json({d["rawDataFormat"], std::to_string(N(d["sampleRate"])), d["numChannels"]}),
                      json({tag, stream["sample_rate"], stream["channels"]}));
        } else if (type == "tmcd") {
            const json &timecode = track["timecode"], &location = timecode["sampleLocation"];
            EXPECT_EQ(json({timecode["startTimecode"], location["offset"], location["size"]}),
                      json({stream["tags"]["timecode"], packets[0][0], packets[0][1]}));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, DumpCorpus, ::testing::ValuesIn(CorpusNames()), [](const auto& i) { return i.param; });

// The start timecode rendered from the 4-byte frame number at `offset`, or else at
// the head of `mdat` (which comes last, so its place is known from the file's size).
TEST(StartTimecode, RenderedFromTheFirstSample)
{
    const struct { bool drop; std::uint32_t scale, ticks, rate, frame; const char* expected; std::uint32_t offset = 0; }
        kCases[] = {{false, 25, 1, 25, 25 * 86400 + 26, "00:00:01:01"}, {false, 25, 1, 25, 0xffffffff, "23:59:59:24"},
                    {true, 30000, 1001, 30, 1799, "00:00:59;29"}, {true, 30000, 1001, 30, 1800, "00:01:00;02"},
                    {true, 30000, 1001, 30, 17982, "00:10:00;00"}, {true, 60000, 1001, 60, 3600, "00:01:00;04"},
                    {true, 60000, 1001, 60, 35964, "00:10:00;00"}, {false, 25, 1, 0, 100, nullptr}, // no rate
                    {false, 25, 1, 25, 100, nullptr, 1u << 30}}; // the sample lies past the end of the file
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.frame);
        MoviePlan plan;
        plan.tracks[0].mediaType = "tmcd";
        plan.tracks[0].descriptions = {SampleDescription(
            "tmcd", ByteWriter().U32(0).U32(c.drop).U32(c.scale).U32(c.ticks).U8(c.rate).U8(0))};
        plan.tracks[0].stszSizes = {4};
        const Bytes sample = ByteWriter().U32(c.frame);
        plan.tracks[0].stco = {c.offset ? c.offset : static_cast<std::uint32_t>(BuildMovieFile(plan, sample).size() - 4)};
        TempFile movie(BuildMovieFile(plan, sample));
        const json timecode = Dump(movie.Path())["tracks"][0]["timecode"], frame = static_cast<std::int32_t>(c.frame);
        const json startFrame = c.offset ? json() : json({{"code", "0x00000000"}, {"value", frame}});
        EXPECT_EQ(json({timecode["startFrame"], timecode["startTimecode"]}),
                  json({startFrame, c.expected ? c.expected : json()}));
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
