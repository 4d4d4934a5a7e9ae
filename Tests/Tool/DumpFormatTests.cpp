// Every key of the dump's documented format, and no other, on movies that
// have each kind of track.
#include <gtest/gtest.h>

#include <set>

#include "Tests/Support/Corpus.h"
#include "Tests/Tool/ToolRunner.h"

using namespace testsupport;
using namespace tooltest;

namespace {

using Keys = std::set<std::string>;

Keys KeysOf(const nlohmann::json& object)
{
    Keys keys;
    for (const auto& item : object.items()) keys.insert(item.key());
    return keys;
}

const Keys kTrackKeys = {"index", "mediaType", "enabled", "dimensions", "duration", "mediaTimeScale",
                         "editDuration", "editMediaTime", "durationInMediaTimeScale", "simpleEditList", "trimmed",
                         "editSampleCount", "sampleDescriptionCount", "allSampleDescriptionsEquivalent", "matrix",
                         "productionAperture", "encodedPixels", "dataReference", "externalReferences"};

Keys With(Keys keys, const std::string& extra)
{
    keys.insert(extra);
    return keys;
}

TEST(DumpFormat, EveryKeyOfTheSample)
{
    const nlohmann::json d = ParseOut(RunTool({"dump", CorpusMovie("broadcast_2997_tc_c608_aac").string()}));
    EXPECT_EQ(KeysOf(d), (Keys{"path", "open", "movie", "tracks", "references"}));
    EXPECT_EQ(KeysOf(d["movie"]), (Keys{"timeScale", "duration", "posterTime", "movieAtomSize", "trackCount", "bounds",
                                        "userData", "metadata"}));
    EXPECT_EQ(KeysOf(d["movie"]["userData"][0]), (Keys{"type", "data"}));
    EXPECT_EQ(KeysOf(d["references"]), (Keys{"video", "audio", "timecode", "all", "valid"}));
    EXPECT_EQ(KeysOf(d["references"]["all"]), (Keys{"result", "refs"}));

    const nlohmann::json& video = d["tracks"][0];
    EXPECT_EQ(KeysOf(video), With(kTrackKeys, "video"));
    EXPECT_EQ(KeysOf(video["simpleEditList"]), (Keys{"anyRate", "unitRate"}));
    EXPECT_EQ(KeysOf(video["matrix"]), (Keys{"identity", "identity2D", "rightAngle", "rotation"}));
    EXPECT_EQ(KeysOf(video["dataReference"]), (Keys{"selfContained", "single", "type", "singleExternalPath"}));
    EXPECT_EQ(KeysOf(video["video"]),
              (Keys{"descriptions", "allImageDescriptionsEquivalent", "cleanApertureDimensions", "containsDeltaFrames",
                    "hasTemporalReferenceData", "hasEarlierDisplayKeyFrames", "sampleTable", "mediaSampleTable",
                    "temporalReferences"}));
    const nlohmann::json& image = video["video"]["descriptions"][0];
    EXPECT_EQ(KeysOf(image), (Keys{"compression", "vendor", "width", "height", "depth", "codecName", "quality",
                                   "cleanAperture", "pixelAspect", "fieldInfo", "colorInfo", "imageDescription",
                                   "platformImageDescription"}));
    EXPECT_EQ(KeysOf(image["quality"]), (Keys{"code", "temporal", "spatial"}));
    EXPECT_EQ(KeysOf(image["pixelAspect"]), (Keys{"code", "horizontal", "vertical"}));
    EXPECT_EQ(KeysOf(image["codecName"]), (Keys{"code", "value"}));
    EXPECT_EQ(KeysOf(image["imageDescription"]), (Keys{"code", "data"}));
    EXPECT_EQ(KeysOf(image["cleanAperture"]), (Keys{"code"})); // refused: code alone
    EXPECT_EQ(KeysOf(video["video"]["allImageDescriptionsEquivalent"]), (Keys{"exactSize", "ignoringSize"}));
    EXPECT_EQ(KeysOf(video["video"]["sampleTable"]), (Keys{"code", "records"}));

    const nlohmann::json& sound = d["tracks"][1];
    EXPECT_EQ(KeysOf(sound), With(kTrackKeys, "audio"));
    EXPECT_EQ(KeysOf(sound["audio"]), (Keys{"descriptions", "rangesByPosition", "rangesByOffset"}));
    EXPECT_EQ(KeysOf(sound["audio"]["descriptions"][0]),
              (Keys{"sampleRate", "numChannels", "bitsPerSample", "packedBitsPerSample", "dataFormat", "rawDataFormat",
                    "uncompressed", "channelMap"}));
    EXPECT_EQ(KeysOf(sound["audio"]["descriptions"][0]["channelMap"]), (Keys{"result", "layoutNotUnderstood", "map"}));
    EXPECT_EQ(KeysOf(sound["audio"]["rangesByPosition"]), (Keys{"code", "ranges"}));

    const nlohmann::json& caption = d["tracks"][2];
    EXPECT_EQ(KeysOf(caption), With(kTrackKeys, "caption"));
    EXPECT_EQ(KeysOf(caption["caption"]), (Keys{"format", "frameDuration", "byTime", "byOffset"}));
    EXPECT_EQ(KeysOf(caption["caption"]["byTime"]), (Keys{"code", "records"}));
    EXPECT_EQ(caption["caption"]["byTime"]["records"][0].size(), 7u);

    const nlohmann::json& timecode = d["tracks"][3];
    EXPECT_EQ(KeysOf(timecode), With(kTrackKeys, "timecode"));
    EXPECT_EQ(KeysOf(timecode["timecode"]),
              (Keys{"info", "handleValue", "sampleLocation", "startFrame", "startTimecode"}));
    EXPECT_EQ(KeysOf(timecode["timecode"]["info"]), (Keys{"code", "dropFrame", "timeScale", "ticksPerFrame",
                                                          "numberOfFrames", "handleReference", "name"}));
    EXPECT_EQ(KeysOf(timecode["timecode"]["handleValue"]), (Keys{"code"})); // no `hndl` reference
    EXPECT_EQ(KeysOf(timecode["timecode"]["sampleLocation"]), (Keys{"code", "offset", "size"}));
    EXPECT_EQ(timecode["timecode"]["startFrame"], nlohmann::json::parse(R"({"code": "0x00000000", "value": 107832})"));
}

TEST(DumpFormat, OutputsOfEveryCodedField)
{
    // Clean aperture, field order and colour: present in these two movies.
    const nlohmann::json raw = ParseOut(RunTool({"dump", "--no-tables", CorpusMovie("raw_2vuy_clap").string()}));
    EXPECT_EQ(raw["tracks"][0]["video"]["descriptions"][0]["cleanAperture"],
              nlohmann::json::parse(R"({"code": "0x00000000", "values": [160, 1, 120, 1, 0, 1, 0, 1]})"));
    const nlohmann::json prores =
        ParseOut(RunTool({"dump", "--no-tables", CorpusMovie("prores_proxy_tff_colr").string()}));
    const nlohmann::json& image = prores["tracks"][0]["video"]["descriptions"][0];
    EXPECT_EQ(image["fieldInfo"], nlohmann::json::parse(R"({"code": "0x00000000", "count": 2, "ordering": 9})"));
    EXPECT_EQ(image["colorInfo"],
              nlohmann::json::parse(R"({"code": "0x00000000", "primaries": 1, "transfer": 1, "matrix": 1})"));
    // A 5.1 layout that is understood gives its map.
    const nlohmann::json aac = ParseOut(RunTool({"dump", "--no-tables", CorpusMovie("aac_5_1_48k").string()}));
    EXPECT_EQ(aac["tracks"][0]["audio"]["descriptions"][0]["channelMap"],
              nlohmann::json::parse(R"({"result": true, "layoutNotUnderstood": false, "map": [0, 1, 2, 3, 4, 5]})"));
    // Temporal references where `sdtp` and `ctts` are both there.
    const nlohmann::json hevc = ParseOut(RunTool({"dump", CorpusMovie("hevc_hvc1_sdtp").string()}));
    const nlohmann::json& temporal = hevc["tracks"][0]["video"]["temporalReferences"];
    EXPECT_EQ(KeysOf(temporal), (Keys{"code", "records"}));
    EXPECT_EQ(temporal["records"].size(), hevc["tracks"][0]["video"]["mediaSampleTable"]["records"].size());
    EXPECT_EQ(temporal["records"][0].size(), 4u);
}

} // namespace
