// The frame tables of the corpus movies against an independent parser's
// packet list (ffprobe): one packet per sample, in sample order.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>

#include <nlohmann/json.hpp>

#include "Tests/Support/OpenTrack.h"

using namespace testsupport;
using json = nlohmann::json;

namespace {

std::filesystem::path CorpusDir() { return TestDataDir() / "corpus"; }

json ReadJson(const std::filesystem::path& path)
{
    std::ifstream in(path);
    return json::parse(in);
}

struct Packet {
    std::uint64_t pos = 0;
    std::uint32_t size = 0;
    std::int64_t dts = 0;
    std::uint32_t duration = 0;
    bool key = false;
    bool discard = false;
};

// The packets of the stream whose id is `trackId`, in sample order.
std::vector<Packet> PacketsOf(const json& probe, std::uint32_t trackId)
{
    std::optional<int> stream;
    for (const json& s : probe["streams"]) {
        if (s.contains("id") && std::stoul(s["id"].get<std::string>(), nullptr, 16) == trackId) stream = s["index"].get<int>();
    }
    std::vector<Packet> out;
    if (!stream) return out;
    for (const json& p : probe["packets"]) {
        if (p["stream_index"] != *stream) continue;
        const std::string flags = p["flags"];
        Packet packet;
        packet.pos = std::stoull(p["pos"].get<std::string>());
        packet.size = static_cast<std::uint32_t>(std::stoul(p["size"].get<std::string>()));
        packet.dts = p["dts"];
        packet.duration = p["duration"];
        packet.key = flags.find('K') != std::string::npos;
        packet.discard = flags.find('D') != std::string::npos;
        out.push_back(packet);
    }
    return out;
}

// What a damaged copy's reader sees instead of the good file's offsets: the
// differences that the garbage top bytes add to chunk offsets.
std::set<std::int64_t> DamageShifts(const json& derivation)
{
    std::set<std::int64_t> shifts;
    if (derivation.value("kind", "") != "stco_top_byte_garbage") return shifts;
    for (const json& d : derivation["damaged_entries"]) {
        shifts.insert(d["damaged"].get<std::int64_t>() - d["original"].get<std::int64_t>());
    }
    return shifts;
}

TEST(VideoCorpus, SampleTablesMatchThePacketLists)
{
    const json corpus = ReadJson(CorpusDir() / "corpus.json");
    int compared = 0, edited = 0, refusedEdits = 0;
    for (const json& file : corpus["files"]) {
        const std::string name = file["name"];
        SCOPED_TRACE(name);
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        if (QT::MakeParser()->OpenMovie(ToString16((CorpusDir() / name).string()), movie) != QT::kResultSuccess) {
            continue; // a movie atom cut short: no tracks to compare
        }
        // A damaged copy is compared with the packets of the good file it was made from.
        std::string reference = name;
        std::set<std::int64_t> shifts;
        if (file.contains("derivation")) {
            const json& derivation = file["derivation"];
            if (derivation["kind"] != "stco_rewritten_as_co64") reference = derivation["derived_from"];
            shifts = DamageShifts(derivation);
        }
        const json probe = ReadJson(CorpusDir() / (reference.substr(0, reference.size() - 4) + ".ffprobe.json"));

        const json& tracks = file["tracks"];
        ASSERT_EQ(movie->GetTrackCount(), tracks.size());
        for (std::uint32_t i = 0; i < tracks.size(); ++i) {
            const json& info = tracks[i];
            if (info["media_type"] != "vide") continue;
            SCOPED_TRACE(testing::Message() << "track " << i);
            auto track = movie->GetIndTrack(i);
            ASSERT_EQ(track->GetTrackMediaType(), QT::kVideoMediaType);
            std::vector<QT::VideoSampleRecord> all;
            const QT::ResultCode code = track->MakeFullVideoSampleTable(false, true, all);
            if (info["sample_count"] == 0) { // fragmented: the samples are in the fragments
                EXPECT_EQ(code, QT::kResultBadSampleTables);
                continue;
            }
            ASSERT_EQ(code, QT::kResultSuccess);
            const std::vector<Packet> packets = PacketsOf(probe, info["track_id"]);
            ASSERT_EQ(all.size(), info["sample_count"].get<std::size_t>());
            ASSERT_EQ(all.size(), packets.size());
            const bool partialSync = info["present"]["stps"]; // ffprobe also flags stps frames as key
            std::uint64_t total = 0;
            for (std::size_t j = 0; j < all.size(); ++j) {
                SCOPED_TRACE(testing::Message() << "sample " << j);
                const QT::VideoSampleRecord& r = all[j];
                if (r.mOffset != packets[j].pos) {
                    EXPECT_EQ(shifts.count(static_cast<std::int64_t>(r.mOffset - packets[j].pos)), 1u);
                }
                EXPECT_EQ(r.mSize, packets[j].size);
                if (partialSync) {
                    EXPECT_TRUE(!r.mIsKeyFrame || packets[j].key);
                } else {
                    EXPECT_EQ(r.mIsKeyFrame, packets[j].key);
                }
                EXPECT_EQ(r.mDuration, packets[j].duration);
                EXPECT_EQ(r.mTime, packets[j].dts - packets[0].dts);
                total += r.mDuration;
            }
            ++compared;

            // With the edit: a tail of the same records, beginning at the
            // first sample that ends after the edit's media time.
            std::vector<QT::VideoSampleRecord> shown;
            const QT::ResultCode editCode = track->MakeFullVideoSampleTable(false, false, shown);
            const std::size_t editCount = info["elst"].is_null() ? 0 : info["elst"].size();
            if (editCount >= 2) {
                EXPECT_EQ(editCode, QT::kResultEditListNotSimple);
                ++refusedEdits;
                continue;
            }
            ASSERT_EQ(editCode, QT::kResultSuccess);
            ASSERT_FALSE(shown.empty());
            const std::uint64_t mediaTime = editCount ? info["elst"][0]["media_time"].get<std::uint64_t>() : 0;
            const std::uint64_t mediaScale = info["media_timescale"], movieScale = file["movie_timescale"];
            const std::uint64_t editDuration =
                editCount ? info["elst"][0]["duration"].get<std::uint64_t>() * mediaScale / movieScale
                          : track->GetTrackDurationInMediaTimeScale();
            std::size_t first = 0;
            while (first < all.size() && all[first].mTime + all[first].mDuration <= mediaTime) ++first;
            ASSERT_LE(first + shown.size(), all.size());
            std::uint64_t shownTotal = 0;
            for (std::size_t k = 0; k < shown.size(); ++k) {
                EXPECT_EQ(shown[k].mOffset, all[first + k].mOffset);
                EXPECT_EQ(shown[k].mSize, all[first + k].mSize);
                EXPECT_EQ(shown[k].mIsKeyFrame, all[first + k].mIsKeyFrame);
                EXPECT_EQ(shown[k].mTime, shownTotal);
                shownTotal += shown[k].mDuration;
            }
            for (std::size_t j = 0; j < packets.size(); ++j) {
                if (packets[j].discard) {
                    EXPECT_LT(j, first) << "a discarded sample is shown";
                }
            }
            if (all[first].mTime == mediaTime) { // the edit starts on a sample boundary
                EXPECT_EQ(shownTotal, std::min(editDuration, total - mediaTime));
            }
            ++edited;
        }
    }
    // Every video track but the two fragmented ones and the one whose movie
    // atom is cut short; two tracks have an empty edit in front.
    EXPECT_EQ(compared, 41);
    EXPECT_EQ(edited, 39);
    EXPECT_EQ(refusedEdits, 2);
}

} // namespace
