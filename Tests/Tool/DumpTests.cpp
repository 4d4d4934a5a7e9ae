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
    static const std::map<std::string, std::regex> kText = {
        {"code", std::regex("0x[0-9a-f]{8}")}, {"cc", std::regex("[ -~]{4}|0x[0-9a-f]{8}")}, {"hex", std::regex("([0-9a-f]{2})*")}};
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
        for (std::size_t i = 0; i < value.size(); ++i) Conform(format[std::min(i, format.size() - 1)], value[i], at + "[]", seen);
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

// Key/value metadata of each kind, its keys out of map order, and user data with an unprintable type.
Bytes MetadataMovie()
{
    const std::vector<std::tuple<std::string, std::uint32_t, Bytes>> items = {
        {"title", 1, {'H', 'i'}}, {"\xff\xfe", 1, {'x'}}, {"count", 21, {0xff, 0xfe}}, {"big", 22, {0xff, 0xff, 0xff, 0xff}},
        {"ratio", 23, {0x7f, 0xc0, 0, 0}}, {"blob", 0, {0xde, 0xad}}, {"wide", 24, {0x3f, 0xf8, 0, 0, 0, 0, 0, 0}},
        {"q\"\n", 2, {'o', 'k'}}};
    ByteWriter keys, ilst;
    keys.U32(0).U32(static_cast<std::uint32_t>(items.size()));
    for (std::uint32_t i = 0; i < items.size(); ++i) {
        const auto& [key, type, value] = items[i];
        const auto size = static_cast<std::uint32_t>(value.size());
        keys.U32(8 + static_cast<std::uint32_t>(key.size())).Code("mdta").Text(key);
        ilst.U32(24 + size).U32(i + 1).U32(16 + size).Code("data").U32(type).U32(0).Raw(value);
    }
    MovieSpec plan;
    plan.extraMoov = {Atom("meta", {Atom("hdlr", HdlrPayload("mdta")), Atom("keys", keys.Take()), Atom("ilst", ilst.Take())}),
                      Atom("udta", {Atom("\xa9nam", ByteWriter().U16(3).U16(0x55c4).Text("abc")), Atom("free", Bytes{}),
                                    Atom("AllF", Bytes{1, 2})})};
    return BuildMovieFile(plan);
}

// Every documented key, of its kind, is met in these movies, and no other key.
TEST(DumpFormat, EveryKeyWithItsKind)
{
    TempFile metadata(MetadataMovie()), references(ReferenceMovie());
    std::set<std::string> seen, all;
    for (const std::string path : {CorpusMovie("broadcast_2997_tc_c608_aac"), CorpusMovie("raw_2vuy_clap"),
                                    CorpusMovie("prores_proxy_tff_colr"), CorpusMovie("hevc_hvc1_sdtp"),
                                    CorpusMovie("pcm_s16le_7_1_48k"), metadata.Path(), references.Path()}) {
        SCOPED_TRACE(path);
        Conform(kFormat, Dump(path), "", seen);
    }
    KeyPaths(kFormat, "", all);
    for (const std::string& path : all) EXPECT_TRUE(seen.contains(path)) << "never met: " << path;
}

// What a place in the dump of a movie holds.
TEST(DumpFormat, Values)
{
    MovieSpec badRefs; // the count claims a second reference that `dref` does not hold
    badRefs.tracks[0].dinf = DataInformation({AliasEntry(Alias("clip.mov"))}, 2);
    TempFile meta(MetadataMovie()), refs(ReferenceMovie()), found(ReferenceMovie()), bad(BuildMovieFile(badRefs));
    for (const char* name : {"clip.mov", "take.wav"}) std::ofstream(found.Path().parent_path() / name) << "media";
    const std::string clip = '"' + kClip + '"', take = '"' + kTake + '"', image = "/tracks/0/video/descriptions/0/";
    const struct {
        std::string movie, pointer, expected;
    } kCases[] = {
        {CorpusMovie("raw_2vuy_clap"), image + "cleanAperture", R"({"code": "0x00000000", "values": [160, 1, 120, 1, 0, 1, 0, 1]})"},
        {CorpusMovie("prores_proxy_tff_colr"), image + "fieldInfo", R"({"code": "0x00000000", "count": 2, "ordering": 9})"},
        {CorpusMovie("prores_proxy_tff_colr"), image + "colorInfo",
         R"({"code": "0x00000000", "primaries": 1, "transfer": 1, "matrix": 1})"},
        {CorpusMovie("aac_5_1_48k"), "/tracks/0/audio/descriptions/0/channelMap",
         R"({"result": true, "layoutNotUnderstood": false, "map": [0, 1, 2, 3, 4, 5]})"},
        {CorpusMovie("broadcast_2997_tc_c608_aac"), "/tracks/3/timecode/startFrame", R"({"code": "0x00000000", "value": 107832})"},
        // Flags of no known kind: the table fails and keeps what it placed (the first frame shown third).
        {CorpusMovie("hevc_hvc1_sdtp"), "/tracks/0/video/temporalReferences/code", R"("0xa0800007")"},
        {CorpusMovie("hevc_hvc1_sdtp"), "/tracks/0/video/temporalReferences/records/2/0", "-2"},
        {meta.Path(), "/movie/userData", R"([{"type": "0xa96e616d", "data": "000355c4616263"}, {"type": "free", "data": ""},
            {"type": "AllF", "data": "0102"}])"},
        {meta.Path(), "/movie/metadata", R"([{"key": "big", "dataType": 22, "alternative": 4, "value": 4294967295},
            {"key": "blob", "dataType": 0, "alternative": 0, "value": "dead"},
            {"key": "count", "dataType": 21, "alternative": 3, "value": -2},
            {"key": "q\"\n", "dataType": 2, "alternative": 2, "value": "ok"},
            {"key": "ratio", "dataType": 23, "alternative": 5, "value": "nan"},
            {"key": "title", "dataType": 1, "alternative": 1, "value": "Hi"},
            {"key": "wide", "dataType": 24, "alternative": 6, "value": 1.5},
            {"key": "hex:fffe", "dataType": 1, "alternative": 1, "value": "x"}])"},
        {refs.Path(), "/references", R"({"video": {"0": )" + clip + R"(}, "audio": {"1": )" + take + R"(}, "timecode": {"2": )" +
            clip + R"(}, "valid": false, "all": {"result": true, "refs": [{"fullPath": )" + clip +
            R"(, "fileName": "clip.mov", "directoryName": ""}, {"fullPath": )" + take +
            R"(, "fileName": "take.wav", "directoryName": ""}]}})"},
        {refs.Path(), "/tracks/0/dataReference",
         R"({"selfContained": false, "single": true, "type": "alis", "singleExternalPath": )" + clip + "}"},
        {found.Path(), "/references/valid", "true"},
        {bad.Path(), "/references/all/result", "false"},
        {bad.Path(), "/tracks/0/externalReferences/result", "false"}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.movie + c.pointer);
        EXPECT_EQ(Dump(c.movie).value(json::json_pointer(c.pointer), json()), json::parse(c.expected));
    }
}

TEST(Dump, NoTablesKeepsTheKeysAsNull)
{
    const std::string path = CorpusMovie("broadcast_2997_tc_c608_aac");
    json full = Dump(path);
    for (const char* table : {"/0/video/sampleTable", "/0/video/mediaSampleTable", "/0/video/temporalReferences",
                              "/1/audio/rangesByPosition", "/1/audio/rangesByOffset", "/2/caption/byTime", "/2/caption/byOffset"}) {
        ASSERT_TRUE(full["tracks"].contains(json::json_pointer(table))) << table;
        full["tracks"][json::json_pointer(table)] = nullptr;
    }
    EXPECT_EQ(ParseOut(RunTool({"dump", "--no-tables", path})), full);
}

std::uint64_t N(const json& v) { return v.is_string() ? std::stoull(v.get<std::string>()) : v.get<std::uint64_t>(); }

class DumpCorpus : public ::testing::TestWithParam<std::string> {};

// Each track, its description, its frames and sound ranges as the independent parser read them. A
// damaged copy is held against its original's packets, and a fragmented movie's frames are not read.
TEST_P(DumpCorpus, MatchesTheIndependentParser)
{
    const std::string name = GetParam(), path = CorpusMovie(name);
    const ToolResult r = RunTool({"dump", path});
    const json dump = ParseOut(r);
    std::set<std::string> seen;
    Conform(kFormat, dump, "", seen);
    if (name == "damaged_truncated_in_moov") { // the file ends inside its movie atom
        EXPECT_EQ(json({r.exitCode, dump["open"], dump["movie"]}), json({1, "0xa0800001", nullptr}));
        return;
    }
    EXPECT_EQ(json({r.exitCode, r.err, dump["path"], dump["open"]}), json({0, "", path, "0x00000000"}));
    static const json corpus = json::parse(std::ifstream(CorpusDir() / "corpus.json"))["files"];
    const json& file = *std::find_if(corpus.begin(), corpus.end(), [&](const json& f) { return f["name"] == name + ".mov"; });
    const std::string kind = file.value(json::json_pointer("/derivation/kind"), ""),
                      original = file.value(json::json_pointer("/derivation/derived_from"), "");
    const bool damaged = kind == "stco_top_byte_garbage" || kind == "truncated_inside_mdat";
    const json streams = Probe(name)["streams"], packets = Probe(damaged ? original.substr(0, original.size() - 4) : name)["packets"];
    ASSERT_EQ(json({dump["tracks"].size(), dump["movie"]["trackCount"]}), json({streams.size(), streams.size()}));
    for (std::size_t i = 0; i < streams.size(); ++i) {
        SCOPED_TRACE("track " + std::to_string(i));
        const json &track = dump["tracks"][i], &stream = streams[i];
        const std::string tag = stream.value("codec_tag_string", ""), codec = stream.value("codec_type", "");
        const std::string type = codec == "video" ? "vide" : codec == "audio" ? "soun" : codec == "subtitle" ? "clcp" : tag;
        EXPECT_EQ(json({track["index"], track["mediaType"], "1/" + std::to_string(N(track["mediaTimeScale"])), track.contains("video"),
                        track.contains("audio"), track.contains("timecode"), track.contains("caption")}),
                  json({i, type, stream["time_base"], type == "vide", type == "soun", type == "tmcd", type == "clcp"}));
        std::vector<json> mine; // the packets of this track in decode order
        std::copy_if(packets.begin(), packets.end(), std::back_inserter(mine), [&](const json& p) { return p["stream_index"] == i; });
        const bool whole = !file["layout"].value("fragmented", false);
        if (type == "vide") {
            const json &d = track["video"]["descriptions"][0], &frames = track["video"]["mediaSampleTable"]["records"];
            EXPECT_EQ(json({d["compression"], d["width"], d["height"]}), json({tag, stream["width"], stream["height"]}));
            ASSERT_EQ(frames.size(), whole ? mine.size() : 0u);
            for (std::size_t k = 0; k < frames.size(); ++k) { // offset, size, duration, sync; `stps` frames are key to the parser
                EXPECT_EQ(json({damaged ? json(N(mine[k]["pos"])) : frames[k][0], frames[k][1], frames[k][2]}), json({N(mine[k]["pos"]), N(mine[k]["size"]), N(mine[k]["duration"])})) << k;
                EXPECT_TRUE(frames[k][4] == (mine[k]["flags"].get<std::string>()[0] == 'K') || (frames[k][4] == false && file["tracks"][i]["present"].value("stps", false))) << k;
            }
        } else if (type == "soun") {
            const json& d = track["audio"]["descriptions"][0];
            EXPECT_EQ(json({d["rawDataFormat"], std::to_string(N(d["sampleRate"])), d["numChannels"]}),
                      json({tag, stream["sample_rate"], stream["channels"]}));
            // Each range of PCM starts inside a packet, at the offset it is keyed by.
            for (const json& range : whole && d["uncompressed"] == true ? track["audio"]["rangesByOffset"]["ranges"] : json::array())
                EXPECT_TRUE(range[0] == range[3] && std::any_of(mine.begin(), mine.end(), [&](const json& p) {
                                return N(p["pos"]) <= range[0] && range[0] < N(p["pos"]) + N(p["size"]); })) << range;
        } else if (type == "tmcd") {
            const json& timecode = track["timecode"];
            EXPECT_EQ(json({timecode["startTimecode"], timecode["sampleLocation"]["offset"], timecode["sampleLocation"]["size"]}),
                      json({stream["tags"]["timecode"], N(mine.at(0)["pos"]), N(mine.at(0)["size"])}));
        } else if (type == "clcp") {
            EXPECT_EQ(track["caption"]["format"], tag);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, DumpCorpus, ::testing::ValuesIn(CorpusNames()), [](const auto& info) { return info.param; });

// The start timecode that dump and info render from the 4-byte frame number at `offset`, or else at the
// head of `mdat` (which comes last, so its place is known from the file's size).
TEST(StartTimecode, RenderedFromTheFirstSample)
{
    const struct {
        bool dropFrame;
        std::uint32_t timeScale, ticks, rate, frame;
        const char* expected;
        std::uint32_t offset = 0;
    } kCases[] = {{false, 25, 1, 25, 25 * 86400 + 26, "00:00:01:01"}, {false, 25, 1, 25, 0xffffffff, "23:59:59:24"},
                  {true, 30000, 1001, 30, 1799, "00:00:59;29"},      {true, 30000, 1001, 30, 1800, "00:01:00;02"},
                  {true, 30000, 1001, 30, 17982, "00:10:00;00"},     {true, 60000, 1001, 60, 3600, "00:01:00;04"},
                  {true, 60000, 1001, 60, 35964, "00:10:00;00"},
                  {false, 25, 1, 0, 100, nullptr},              // no rate: a frame but no timecode
                  {false, 25, 1, 25, 100, nullptr, 1u << 30}}; // the sample lies past the end of the file
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.frame);
        MovieSpec plan;
        plan.tracks[0].mediaType = "tmcd";
        plan.tracks[0].descriptions = {SampleDescription(
            "tmcd", ByteWriter().U32(0).U32(c.dropFrame).U32(c.timeScale).U32(c.ticks).U8(c.rate).U8(0))};
        plan.tracks[0].stszSizes = {4};
        const Bytes sample = ByteWriter().U32(c.frame);
        plan.tracks[0].stco = {c.offset ? c.offset : static_cast<std::uint32_t>(BuildMovieFile(plan, sample).size() - 4)};
        TempFile movie(BuildMovieFile(plan, sample));
        const json timecode = Dump(movie.Path())["tracks"][0]["timecode"];
        EXPECT_EQ(json({timecode["startFrame"], timecode["startTimecode"]}),
                  json({c.offset ? json() : json({{"code", "0x00000000"}, {"value", static_cast<std::int32_t>(c.frame)}}),
                        c.expected ? json(c.expected) : json()}));
        EXPECT_TRUE(!c.expected || RunTool({"info", movie.Path()}).out.find(std::string("start ") + c.expected) != std::string::npos);
    }
}

// Tables of many frames go out whole, in bounded time (the test's timeout), and without the
// output held in memory: they cost less memory than their text.
TEST(Dump, LargeTablesStreamOut)
{
    constexpr std::uint32_t kFrames = 200000;
    MovieSpec plan;
    TrackSpec& video = plan.tracks[0];
    video.mediaTimeScale = 25;
    video.mediaDuration = kFrames;
    video.duration = plan.duration = kFrames * 24; // at the movie's 600
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

} // namespace
