// Sound tracks of the corpus movies, held against ffprobe's reading of the
// same files: stream fields, channel maps, and the file bytes of each frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Tests/Support/Corpus.h"
#include "Tests/Support/SoundBuilder.h"

using namespace testsupport;
using json = nlohmann::json;

namespace {

// ffprobe's decoder name to the code the track should report.
const std::map<std::string, std::string> kFormatOfCodec = {
    {"pcm_s16le", "16le"}, {"pcm_s16be", "16be"}, {"pcm_s24le", "42ni"}, {"pcm_s32be", "in32"}, {"pcm_f32le", "23lf"},
    {"pcm_f64be", "fl64"}, {"pcm_s8", "twos"},    {"pcm_u8", "raw "},    {"aac", "mp4a"},       {"ac3", "ac-3"},
    {"alac", "unkn"},      {"adpcm_ima_qt", "unkn"}, {"pcm_mulaw", "unkn"},
};

// The map covers the frames from the edit's media time (a frame number for
// sound) to the last, each where ffprobe's packets put it. A refused track, or
// one whose frames are all in fragments, maps none.
void CheckRangeMap(QT::IQTTrack& track, const json& probe, int stream, std::uint64_t bytesPerFrame, bool fragmented)
{
    std::vector<std::uint64_t> offsets; // of each frame
    for (const json& p : probe["packets"]) {
        if (p["stream_index"] != stream || fragmented) continue;
        const std::uint64_t size = std::stoull(p["size"].get<std::string>()), pos = std::stoull(p["pos"].get<std::string>());
        EXPECT_EQ(size % bytesPerFrame, 0u);
        for (std::uint64_t at = 0; at < size; at += bytesPerFrame) offsets.push_back(pos + at);
    }
    QT::AudioSampleRangeMap map;
    const QT::ResultCode code = track.MakeAudioSampleRangeMap(map, false);
    ASSERT_EQ(code, track.HasSimpleEditList(true) ? QT::kResultSuccess : QT::kResultEditListNotSimple);
    std::uint64_t output = 0, frame = track.GetEditMediaTime();
    for (const auto& [key, r] : map) {
        EXPECT_EQ(std::pair(key, r.mOutputPosition), std::pair(output, output));
        for (std::uint64_t i = 0; i < r.mSampleCount; ++i, ++frame)
            ASSERT_TRUE(frame < offsets.size() && offsets[frame] == r.mOffsetInFile + i * bytesPerFrame) << frame;
        output += r.mSampleCount;
    }
    EXPECT_EQ(output, code == QT::kResultSuccess && !fragmented ? offsets.size() - track.GetEditMediaTime() : 0);
}

TEST(AudioCorpus, SoundTracksAgreeWithFfprobe)
{
    std::ifstream in(CorpusDir() / "corpus.json");
    const json corpus = json::parse(in);
    int soundTracks = 0, rangeMaps = 0;
    for (const json& file : corpus["files"]) {
        const std::string name = file["name"];
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        if (QT::MakeParser()->OpenMovie(ToString16((CorpusDir() / name).string()), movie) != QT::kResultSuccess) continue;
        const json probe = Probe(std::filesystem::path(name).stem().string());
        ASSERT_EQ(movie->GetTrackCount(), probe["streams"].size()) << name;
        for (const json& stream : probe["streams"]) {
            const int index = stream["index"];
            auto track = movie->GetIndTrack(static_cast<std::uint64_t>(index));
            if (track->GetTrackMediaType() != QT::kAudioMediaType) continue;
            SCOPED_TRACE(testing::Message() << name << " track " << index);
            ASSERT_EQ(stream["codec_type"], "audio");
            ++soundTracks;
            EXPECT_EQ(track->GetAudioMediaSampleRate(0), std::stoul(stream["sample_rate"].get<std::string>()));
            EXPECT_EQ(track->GetAudioMediaNumChannels(0), stream["channels"]);
            EXPECT_EQ(FourCCText(track->GetAudioMediaRawDataFormat(0)), stream["codec_tag_string"]);
            const std::string codec = stream["codec_name"];
            ASSERT_TRUE(kFormatOfCodec.count(codec)) << codec;
            EXPECT_EQ(FourCCText(track->GetAudioMediaDataFormat(0)), kFormatOfCodec.at(codec));
            const bool uncompressed = track->IsAudioMediaUncompressed(0);
            EXPECT_EQ(uncompressed, codec.rfind("pcm_", 0) == 0 && codec != "pcm_mulaw");
            const std::uint32_t bits = stream.value("bits_per_sample", 0u);
            const auto widths = std::pair(track->GetAudioMediaBitsPerSample(0), track->GetAudioMediaPackedBitsPerSample(0));
            EXPECT_TRUE(!uncompressed || bits == 0 || widths == std::pair(bits, bits)) << widths.first << "/" << widths.second;

            // Every corpus sound description has a `chan`; only 5.1 is
            // understood. Version 0 carries it right behind its 36 fixed
            // bytes, where the search (from 52) does not look.
            const auto id = std::stoul(stream["id"].get<std::string>(), nullptr, 16);
            const auto record = std::find_if(file["tracks"].begin(), file["tracks"].end(),
                                             [&](const json& t) { return t["track_id"] == id; });
            ASSERT_NE(record, file["tracks"].end());
            const bool version0 = (*record)["sound_description_version"] == 0;
            const bool known = !version0 && stream.value("channel_layout", "").rfind("5.1", 0) == 0;
            QT::ChannelOrderMap order{9};
            bool notUnderstood = true;
            EXPECT_EQ(track->GetMultiChannelMap(0, order, notUnderstood), !version0);
            EXPECT_EQ(notUnderstood, !version0 && !known);
            EXPECT_EQ(order, (known ? QT::ChannelOrderMap{0, 1, 2, 3, 4, 5} : QT::ChannelOrderMap{9}));

            if (!uncompressed) continue;
            ++rangeMaps;
            const std::uint64_t bytesPerFrame = bits / 8 * track->GetAudioMediaNumChannels(0);
            ASSERT_NE(bytesPerFrame, 0u) << "no bits per sample from ffprobe";
            CheckRangeMap(*track, probe, index, bytesPerFrame, (*record)["sample_count"] == 0);
        }
    }
    EXPECT_EQ(soundTracks, 39);
    EXPECT_EQ(rangeMaps, 19);
}

} // namespace
