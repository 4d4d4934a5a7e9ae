// `atomscan dump` on every real movie of the test data, against what an
// independent parser read from the same files.
#include <gtest/gtest.h>

#include <fstream>

#include "Tests/Support/Corpus.h"
#include "Tests/Tool/ToolRunner.h"

using namespace testsupport;
using namespace tooltest;

namespace {

std::string ExpectedMediaType(const nlohmann::json& stream)
{
    const std::string type = stream.value("codec_type", "");
    const std::string tag = stream.value("codec_tag_string", "");
    if (type == "video") return "vide";
    if (type == "audio") return "soun";
    if (type == "subtitle") return "clcp";
    if (tag == "tmcd" || tag == "text") return tag;
    return "unkn";
}

// The corpus record of one movie.
nlohmann::json CorpusRecord(const std::string& name)
{
    static const nlohmann::json corpus = [] {
        std::ifstream in(CorpusDir() / "corpus.json");
        return nlohmann::json::parse(in);
    }();
    for (const auto& file : corpus.at("files"))
        if (file.at("name") == name + ".mov") return file;
    return nullptr;
}

// The movie whose packet list stands for this one's sample tables: a damaged
// copy whose tables are those of its original is checked against the original.
std::string PacketSource(const nlohmann::json& record, const std::string& name)
{
    if (!record.contains("derivation")) return name;
    const nlohmann::json& d = record["derivation"];
    const std::string kind = d.value("kind", "");
    if (kind != "stco_top_byte_garbage" && kind != "truncated_inside_mdat") return name;
    const std::string from = d.value("derived_from", "");
    return from.substr(0, from.size() - 4);
}

std::vector<nlohmann::json> PacketsOf(const nlohmann::json& probe, std::size_t stream)
{
    std::vector<nlohmann::json> packets;
    for (const auto& p : probe.at("packets"))
        if (p.at("stream_index") == stream) packets.push_back(p);
    return packets;
}

std::uint64_t Number(const nlohmann::json& value)
{
    return value.is_string() ? std::stoull(value.get<std::string>()) : value.get<std::uint64_t>();
}

// Every frame of the media in decode order: place, size and sync flag.
void CheckFrames(const nlohmann::json& video, const std::vector<nlohmann::json>& packets, std::uint64_t fileSize,
                 bool partialSyncListed)
{
    const nlohmann::json& table = video.at("mediaSampleTable");
    EXPECT_EQ(table.at("code"), "0x00000000");
    const nlohmann::json& records = table.at("records");
    ASSERT_EQ(records.size(), packets.size());
    for (std::size_t k = 0; k < records.size(); ++k) {
        SCOPED_TRACE("frame " + std::to_string(k));
        const nlohmann::json& r = records[k];
        const std::uint64_t offset = r[0];
        // A damaged offset lies past the end of the file; the rest agree.
        if (offset <= fileSize) {
            EXPECT_EQ(offset, Number(packets[k].at("pos")));
        }
        EXPECT_EQ(r[1].get<std::uint64_t>(), Number(packets[k].at("size")));
        EXPECT_EQ(r[2].get<std::uint64_t>(), Number(packets[k].at("duration")));
        const bool keyInProbe = packets[k].at("flags").get<std::string>().find('K') != std::string::npos;
        if (r[4].get<bool>()) {
            EXPECT_TRUE(keyInProbe);
        } else if (!partialSyncListed) {
            EXPECT_FALSE(keyInProbe);
        }
    }
}

// PCM packets that the edit shows: each lies inside one range of the file
// that the range map gives. A map refused for a complex edit has nothing to check.
void CheckPcmRanges(const nlohmann::json& track, std::uint64_t movieTimeScale,
                    const std::vector<nlohmann::json>& packets)
{
    const nlohmann::json& audio = track.at("audio");
    if (audio.at("rangesByOffset").at("code") == "0xa0800005") return;
    // Packet times count from the edit's start; the edit's length in media units.
    const std::uint64_t editLength = track.at("editDuration").get<std::uint64_t>() *
                                     track.at("mediaTimeScale").get<std::uint64_t>() / movieTimeScale;
    const nlohmann::json& description = audio.at("descriptions").at(0);
    const std::uint64_t bytesPerFrame =
        description.at("bitsPerSample").get<std::uint64_t>() / 8 * description.at("numChannels").get<std::uint64_t>();
    const nlohmann::json& map = audio.at("rangesByOffset");
    ASSERT_EQ(map.at("code"), "0x00000000");
    std::map<std::uint64_t, std::uint64_t> ranges; // start to end
    for (const auto& range : map.at("ranges")) {
        EXPECT_EQ(range[0], range[3]);
        ranges[range[3]] = range[3].get<std::uint64_t>() + range[1].get<std::uint64_t>() * bytesPerFrame;
    }
    for (const auto& p : packets) {
        const std::int64_t pts = p.at("pts");
        if (pts < 0 || static_cast<std::uint64_t>(pts) + Number(p.at("duration")) > editLength) continue;
        const std::uint64_t pos = Number(p.at("pos")), end = pos + Number(p.at("size"));
        auto it = ranges.upper_bound(pos);
        ASSERT_NE(it, ranges.begin()) << "packet at " << pos;
        --it;
        EXPECT_LE(end, it->second) << "packet at " << pos;
    }
}

class DumpCorpus : public ::testing::TestWithParam<std::string> {};

TEST_P(DumpCorpus, MatchesTheIndependentParser)
{
    const std::string name = GetParam();
    const std::string path = CorpusMovie(name).string();
    const ToolResult r = RunTool({"dump", path});
    const nlohmann::json dump = ParseOut(r);
    ASSERT_TRUE(dump.is_object());
    EXPECT_EQ(dump["path"], path);
    if (name == "damaged_truncated_in_moov") {
        // The file ends inside its movie atom.
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(dump["open"], "0xa0800001");
        EXPECT_TRUE(dump["movie"].is_null());
        return;
    }
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(dump["open"], "0x00000000");

    const nlohmann::json record = CorpusRecord(name);
    ASSERT_TRUE(record.is_object());
    const bool fragmented = record.at("layout").value("fragmented", false);
    const std::uint64_t fileSize = record.at("file_size");
    const nlohmann::json probe = Probe(name);
    const nlohmann::json packetProbe = Probe(PacketSource(record, name));
    const nlohmann::json& streams = probe.at("streams");
    const nlohmann::json& tracks = dump.at("tracks");
    ASSERT_EQ(tracks.size(), streams.size());
    EXPECT_EQ(dump["movie"]["trackCount"], streams.size());
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        SCOPED_TRACE("track " + std::to_string(i));
        const nlohmann::json& track = tracks[i];
        const nlohmann::json& stream = streams[i];
        const std::string tag = stream.value("codec_tag_string", "");
        EXPECT_EQ(track["index"], i);
        EXPECT_EQ(track["mediaType"], ExpectedMediaType(stream));
        EXPECT_EQ("1/" + std::to_string(track["mediaTimeScale"].get<std::uint32_t>()), stream["time_base"]);
        const std::vector<nlohmann::json> packets = PacketsOf(packetProbe, i);
        if (track.contains("video")) {
            const nlohmann::json& video = track["video"];
            EXPECT_EQ(video["descriptions"][0]["compression"], tag);
            EXPECT_EQ(video["descriptions"][0]["width"], stream["width"]);
            EXPECT_EQ(video["descriptions"][0]["height"], stream["height"]);
            if (!fragmented) {
                const bool stps = record.at("tracks").at(i).at("present").value("stps", false);
                CheckFrames(video, packets, fileSize, stps);
                EXPECT_EQ(std::to_string(video["mediaSampleTable"]["records"].size()), stream["nb_frames"]);
            }
        }
        if (track.contains("audio")) {
            const nlohmann::json& description = track["audio"]["descriptions"][0];
            EXPECT_EQ(description["rawDataFormat"], tag);
            EXPECT_EQ(std::to_string(description["sampleRate"].get<std::uint32_t>()), stream["sample_rate"]);
            EXPECT_EQ(description["numChannels"], stream["channels"]);
            if (description["uncompressed"].get<bool>() && !fragmented)
                CheckPcmRanges(track, dump["movie"]["timeScale"], packets);
        }
        if (track.contains("caption")) {
            EXPECT_EQ(track["caption"]["format"], tag);
        }
        if (track.contains("timecode")) {
            const nlohmann::json& timecode = track["timecode"];
            EXPECT_EQ(timecode["startTimecode"], stream.at("tags").at("timecode"));
            ASSERT_EQ(packets.size(), 1u);
            EXPECT_EQ(timecode["sampleLocation"]["offset"], Number(packets[0].at("pos")));
            EXPECT_EQ(timecode["sampleLocation"]["size"], Number(packets[0].at("size")));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, DumpCorpus, ::testing::ValuesIn(CorpusNames()),
                         [](const auto& info) { return info.param; });

} // namespace
