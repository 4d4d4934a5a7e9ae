// Sound tracks of the corpus movies, held against ffprobe's reading of the
// same files: stream fields, channel maps, and the file bytes of each frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "Tests/Support/SoundBuilder.h"

using namespace testsupport;
namespace pt = boost::property_tree;

namespace {

std::filesystem::path CorpusDir() { return TestDataDir() / "corpus"; }

std::vector<std::filesystem::path> CorpusMovies()
{
    std::vector<std::filesystem::path> movies;
    for (const auto& entry : std::filesystem::directory_iterator(CorpusDir()))
        if (entry.path().extension() == ".mov") movies.push_back(entry.path());
    std::sort(movies.begin(), movies.end());
    return movies;
}

pt::ptree Probe(const std::filesystem::path& movie)
{
    pt::ptree tree;
    pt::read_json((CorpusDir() / movie.stem()).string() + ".ffprobe.json", tree);
    return tree;
}

// The sound description version of each track of the corpus, by movie file
// name and track ID, as corpus.json records it.
std::map<std::pair<std::string, std::uint32_t>, int> SoundDescriptionVersions()
{
    pt::ptree corpus;
    pt::read_json((CorpusDir() / "corpus.json").string(), corpus);
    std::map<std::pair<std::string, std::uint32_t>, int> versions;
    for (const auto& [unused, file] : corpus.get_child("files"))
        for (const auto& [unused2, track] : file.get_child("tracks"))
            if (track.get<std::string>("media_type", "") == "soun")
                versions[{file.get<std::string>("name"), track.get<std::uint32_t>("track_id")}] =
                    track.get<int>("sound_description_version");
    return versions;
}

// ffprobe's decoder name to the code the track should report.
const std::map<std::string, std::string> kFormatOfCodec = {
    {"pcm_s16le", "16le"}, {"pcm_s16be", "16be"}, {"pcm_s24le", "42ni"}, {"pcm_s32be", "in32"},
    {"pcm_f32le", "23lf"}, {"pcm_f64be", "fl64"}, {"pcm_s8", "twos"},    {"pcm_u8", "raw "},
    {"aac", "mp4a"},       {"ac3", "ac-3"},       {"alac", "unkn"},      {"adpcm_ima_qt", "unkn"},
    {"pcm_mulaw", "unkn"},
};

// One ffprobe packet: a run of frames at consecutive bytes.
struct Segment {
    std::uint64_t firstFrame;
    std::uint64_t frames;
    std::uint64_t pos;
};

std::vector<Segment> PacketSegments(const pt::ptree& probe, int streamIndex, std::uint64_t bytesPerFrame)
{
    std::vector<Segment> segments;
    std::uint64_t frame = 0;
    for (const auto& [unused, packet] : probe.get_child("packets")) {
        if (packet.get<int>("stream_index") != streamIndex) continue;
        const auto size = packet.get<std::uint64_t>("size");
        EXPECT_EQ(size % bytesPerFrame, 0u);
        segments.push_back({frame, size / bytesPerFrame, packet.get<std::uint64_t>("pos")});
        frame += size / bytesPerFrame;
    }
    return segments;
}

// Every frame of the range lies where ffprobe puts it.
void CheckRangeAgainstPackets(const QT::AudioSampleRange& range, std::uint64_t firstFrame,
                              const std::vector<Segment>& segments, std::uint64_t bytesPerFrame)
{
    const std::uint64_t lastFrame = firstFrame + range.mSampleCount;
    std::uint64_t covered = 0;
    for (const Segment& s : segments) {
        const std::uint64_t from = std::max(firstFrame, s.firstFrame);
        const std::uint64_t to = std::min(lastFrame, s.firstFrame + s.frames);
        if (from >= to) continue;
        EXPECT_EQ(s.pos + (from - s.firstFrame) * bytesPerFrame, range.mOffsetInFile + (from - firstFrame) * bytesPerFrame)
            << "frame " << from;
        covered += to - from;
    }
    EXPECT_EQ(covered, range.mSampleCount) << "frames past ffprobe's packets";
}

void CheckRangeMaps(QT::IQTTrack& track, const pt::ptree& probe, int streamIndex, std::uint64_t bytesPerFrame,
                    bool fragmented)
{
    QT::AudioSampleRangeMap byPosition, byOffset;
    const QT::ResultCode code = track.MakeAudioSampleRangeMap(byPosition, false);
    EXPECT_EQ(track.MakeAudioSampleRangeMap(byOffset, true), code);
    if (!track.HasSimpleEditList(true)) {
        EXPECT_EQ(code, QT::kResultEditListNotSimple);
        EXPECT_TRUE(byPosition.empty());
        return;
    }
    ASSERT_EQ(code, QT::kResultSuccess);
    if (fragmented) { // the frames are in the fragments; the movie atom's tables are empty
        EXPECT_TRUE(byPosition.empty());
        return;
    }
    const std::vector<Segment> segments = PacketSegments(probe, streamIndex, bytesPerFrame);
    ASSERT_FALSE(segments.empty());
    const std::uint64_t totalFrames = segments.back().firstFrame + segments.back().frames;

    // For sound the edit's media time is the first frame. Every edit of the
    // corpus runs to the last frame.
    const std::uint64_t start = track.GetEditMediaTime();
    std::uint64_t output = 0;
    for (const auto& [key, range] : byPosition) {
        EXPECT_EQ(key, output);
        EXPECT_EQ(range.mOutputPosition, output);
        EXPECT_GT(range.mSampleCount, 0u);
        CheckRangeAgainstPackets(range, start + output, segments, bytesPerFrame);
        output += range.mSampleCount;
    }
    EXPECT_EQ(output, totalFrames - start);

    ASSERT_EQ(byOffset.size(), byPosition.size());
    for (const auto& [key, range] : byOffset) {
        EXPECT_EQ(key, range.mOffsetInFile);
        const auto same = byPosition.find(range.mOutputPosition);
        ASSERT_NE(same, byPosition.end());
        EXPECT_EQ(same->second.mOffsetInFile, range.mOffsetInFile);
        EXPECT_EQ(same->second.mSampleCount, range.mSampleCount);
    }
}

TEST(AudioCorpus, SoundTracksAgreeWithFfprobe)
{
    const auto versions = SoundDescriptionVersions();
    int soundTracks = 0, rangeMaps = 0;
    for (const std::filesystem::path& path : CorpusMovies()) {
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        if (QT::MakeParser()->OpenMovie(ToString16(path.string()), movie) != QT::kResultSuccess) continue;
        const pt::ptree probe = Probe(path);
        const pt::ptree& streams = probe.get_child("streams");
        ASSERT_EQ(movie->GetTrackCount(), streams.size()) << path.filename();
        int index = 0;
        for (const auto& [unused, stream] : streams) {
            const int streamIndex = index++;
            auto track = movie->GetIndTrack(static_cast<std::uint64_t>(streamIndex));
            if (track->GetTrackMediaType() != QT::kAudioMediaType) continue;
            SCOPED_TRACE(testing::Message() << path.filename() << " track " << streamIndex);
            ASSERT_EQ(stream.get<std::string>("codec_type"), "audio");
            ++soundTracks;

            EXPECT_EQ(track->GetAudioMediaSampleRate(0), stream.get<std::uint32_t>("sample_rate"));
            EXPECT_EQ(track->GetAudioMediaNumChannels(0), stream.get<std::uint32_t>("channels"));
            EXPECT_EQ(FourCCText(track->GetAudioMediaRawDataFormat(0)), stream.get<std::string>("codec_tag_string"));
            const std::string codec = stream.get<std::string>("codec_name");
            ASSERT_TRUE(kFormatOfCodec.count(codec)) << codec;
            EXPECT_EQ(FourCCText(track->GetAudioMediaDataFormat(0)), kFormatOfCodec.at(codec));

            const bool uncompressed = track->IsAudioMediaUncompressed(0);
            EXPECT_EQ(uncompressed, codec.rfind("pcm_", 0) == 0 && codec != "pcm_mulaw");
            const auto bits = stream.get<std::uint32_t>("bits_per_sample", 0);
            if (uncompressed && bits != 0) {
                EXPECT_EQ(track->GetAudioMediaBitsPerSample(0), bits);
                EXPECT_EQ(track->GetAudioMediaPackedBitsPerSample(0), bits);
            }

            // Every corpus sound description has a `chan`; only 5.1 is
            // understood. Version 0 descriptions carry it right behind their
            // 36 fixed bytes, where the search (from 52) does not look.
            const std::uint32_t trackId = std::stoul(stream.get<std::string>("id"), nullptr, 16);
            const auto version = versions.find({path.filename().string(), trackId});
            ASSERT_NE(version, versions.end());
            QT::ChannelOrderMap order{9};
            bool notUnderstood = true;
            const bool found = track->GetMultiChannelMap(0, order, notUnderstood);
            const std::string layout = stream.get<std::string>("channel_layout", "");
            if (version->second == 0) {
                EXPECT_FALSE(found);
                EXPECT_FALSE(notUnderstood);
                EXPECT_EQ(order, QT::ChannelOrderMap{9});
            } else if (layout.rfind("5.1", 0) == 0) {
                EXPECT_TRUE(found);
                EXPECT_FALSE(notUnderstood);
                EXPECT_EQ(order, (QT::ChannelOrderMap{0, 1, 2, 3, 4, 5}));
            } else {
                EXPECT_TRUE(found);
                EXPECT_TRUE(notUnderstood) << layout;
                EXPECT_EQ(order, QT::ChannelOrderMap{9});
            }

            if (uncompressed) {
                ++rangeMaps;
                const std::uint64_t bytesPerFrame = std::uint64_t{bits} / 8 * track->GetAudioMediaNumChannels(0);
                CheckRangeMaps(*track, probe, streamIndex, bytesPerFrame, path.stem().string().rfind("frag_", 0) == 0);
            }
        }
    }
    EXPECT_EQ(soundTracks, 39);
    EXPECT_EQ(rangeMaps, 19);
}

} // namespace
