// The video tracks of the corpus movies against an independent parser's
// reading (ffprobe: one stream per track, one packet per sample in sample
// order) and the corpus index.
#include <gtest/gtest.h>

#include <set>

#include "Tests/Support/Corpus.h"
#include "Tests/Support/Open.h"

using namespace testsupport;
using json = nlohmann::json;

namespace {

constexpr QT::ResultCode kOk = QT::kResultSuccess;

// Calls `check(file, info, probe, i, track)` for each video track of the corpus
// movies that open. A damaged copy is checked against the probe of the good
// file it was made from.
template <typename F>
void ForEachVideoTrack(F&& check)
{
    std::ifstream in(CorpusDir() / "corpus.json");
    const json corpus = json::parse(in);
    for (const json& file : corpus["files"]) {
        std::string name = file["name"];
        SCOPED_TRACE(name);
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        if (QT::MakeParser()->OpenMovie(ToString16((CorpusDir() / name).string()), movie) != kOk) continue;
        if (file.contains("derivation") && file["derivation"]["kind"] != "stco_rewritten_as_co64") {
            name = file["derivation"]["derived_from"];
        }
        const json probe = Probe(name.substr(0, name.size() - 4));
        ASSERT_EQ(movie->GetTrackCount(), probe["streams"].size());
        for (std::uint32_t i = 0; i < movie->GetTrackCount(); ++i) {
            SCOPED_TRACE(testing::Message() << "track " << i);
            const json& info = file["tracks"][i];
            if (info["media_type"] == "vide") check(file, info, probe, i, movie->GetIndTrack(i));
        }
    }
}

TEST(VideoCorpus, DescriptionsAndSampleTablesMatch)
{
    int compared = 0, edited = 0, refusedEdits = 0;
    ForEachVideoTrack([&](const json& file, const json& info, const json& probe, std::uint32_t i, auto track) {
        const json& stream = probe["streams"][i];
        const auto text = [](QT::FourCC c) { return std::string{char(c >> 24), char(c >> 16), char(c >> 8), char(c)}; };
        EXPECT_EQ(text(track->GetVideoMediaCompressionFourCC(0)), stream["codec_tag_string"]);
        EXPECT_EQ(text(track->GetVideoMediaVendorFourCC(0)), stream["tags"]["vendor_id"]);
        EXPECT_EQ(std::pair(track->GetVideoMediaWidth(0), track->GetVideoMediaHeight(0)),
                  std::pair(stream["width"].get<int>(), stream["height"].get<int>()));
        const json& sync = info["sync_sample_count"];
        EXPECT_EQ(track->VideoTrackContainsDeltaFrames(), !sync.is_null() && sync != info["sample_count"]);
        EXPECT_EQ(track->VideoTrackHasTemporalReferenceData(), info["present"]["sdtp"] && info["present"]["ctts"]);

        std::vector<QT::VideoSampleRecord> all, shown;
        const QT::ResultCode code = track->MakeFullVideoSampleTable(false, true, all);
        if (info["sample_count"] == 0) { // fragmented: the samples are in the fragments
            EXPECT_EQ(code, QT::kResultBadSampleTables);
            return;
        }
        ASSERT_EQ(code, kOk);
        std::vector<json> packets;
        for (const json& p : probe["packets"]) {
            if (p["stream_index"] == i) packets.push_back(p);
        }
        ASSERT_EQ(all.size(), packets.size());
        // What the garbage top bytes of a damaged copy add to its chunk offsets.
        std::set<std::uint64_t> shifts = {0};
        if (file.contains("derivation") && file["derivation"]["kind"] == "stco_top_byte_garbage") {
            for (const json& d : file["derivation"]["damaged_entries"])
                shifts.insert(d["damaged"].get<std::uint64_t>() - d["original"].get<std::uint64_t>());
        }
        const bool partialSync = info["present"]["stps"]; // ffprobe also flags stps frames as key
        for (std::size_t j = 0; j < all.size(); ++j) {
            SCOPED_TRACE(testing::Message() << "sample " << j);
            const QT::VideoSampleRecord& r = all[j];
            const json& p = packets[j];
            const bool key = p["flags"].get<std::string>().find('K') != std::string::npos;
            EXPECT_EQ(shifts.count(r.mOffset - std::stoull(p["pos"].get<std::string>())), 1u);
            EXPECT_EQ(r.mSize, std::stoul(p["size"].get<std::string>()));
            EXPECT_TRUE(partialSync ? !r.mIsKeyFrame || key : r.mIsKeyFrame == key);
            EXPECT_EQ(r.mDuration, p["duration"]);
            EXPECT_EQ(r.mTime, p["dts"].get<std::int64_t>() - packets[0]["dts"].get<std::int64_t>());
        }
        ++compared;

        // With the edit: the same records from the first sample that ends after
        // the edit's media time, timed from there. The corpus edits start on a
        // sample and last to the media's end; no sample ffprobe discards is shown.
        const QT::ResultCode editCode = track->MakeFullVideoSampleTable(false, false, shown);
        if (!info["elst"].is_null() && info["elst"].size() >= 2) {
            EXPECT_EQ(editCode, QT::kResultEditListNotSimple);
            ++refusedEdits;
            return;
        }
        ASSERT_EQ(editCode, kOk);
        const std::uint64_t mediaTime = info["elst"].is_null() ? 0 : info["elst"][0]["media_time"].get<std::uint64_t>();
        std::size_t first = 0;
        while (first < all.size() && all[first].mTime + all[first].mDuration <= mediaTime) ++first;
        ASSERT_EQ(first + shown.size(), all.size());
        for (std::size_t j = 0; j < all.size(); ++j) {
            SCOPED_TRACE(testing::Message() << "sample " << j);
            EXPECT_TRUE(packets[j]["flags"].get<std::string>().find('D') == std::string::npos || j < first);
            if (j < first) continue;
            const QT::VideoSampleRecord &a = all[j], &s = shown[j - first];
            EXPECT_EQ(std::tuple(s.mOffset, s.mSize, s.mIsKeyFrame, s.mDuration, s.mTime),
                      std::tuple(a.mOffset, a.mSize, a.mIsKeyFrame, a.mDuration, a.mTime - all[first].mTime));
        }
        ++edited;
    });
    // Every video track but the two fragmented ones; two tracks have an empty edit in front.
    EXPECT_EQ(std::tuple(compared, edited, refusedEdits), std::tuple(41, 39, 2));
}

// A reference movie that holds only `ftyp` and `moov` of a movie of raw frames
// (one constant size): its frames lie in another file, and the table is the
// original's, whatever the size of the copy's own file.
TEST(VideoCorpus, TheMovieAtomAloneGivesTheSameFrameTable)
{
    for (const char* name : {"raw_rgb24_odd_33x21", "raw_2vuy_clap"}) {
        SCOPED_TRACE(name);
        const Bytes whole = ReadFile(CorpusMovie(name));
        Bytes copy;
        for (std::size_t at = 0, size = 0; whole.size() - at >= 8; at += size) {
            size = std::size_t{whole[at]} << 24 | whole[at + 1] << 16 | whole[at + 2] << 8 | whole[at + 3];
            ASSERT_GE(size, 8u);
            const std::string type(whole.begin() + at + 4, whole.begin() + at + 8);
            if (type == "ftyp" || type == "moov") copy.insert(copy.end(), whole.begin() + at, whole.begin() + at + size);
        }
        std::vector<QT::VideoSampleRecord> fromWhole, fromCopy;
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        ASSERT_EQ(QT::MakeParser()->OpenMovie(ToString16(CorpusMovie(name).string()), movie), kOk);
        ASSERT_EQ(movie->GetIndTrack(0)->MakeFullVideoSampleTable(false, false, fromWhole), kOk);
        const OpenResult cut = OpenBytes(copy);
        ASSERT_EQ(cut.code, kOk);
        ASSERT_EQ(cut.movie->GetIndTrack(0)->MakeFullVideoSampleTable(false, false, fromCopy), kOk);
        ASSERT_EQ(fromCopy.size(), ProbePackets(name, 0).size());
        ASSERT_EQ(fromCopy.size(), fromWhole.size());
        for (std::size_t i = 0; i < fromCopy.size(); ++i) {
            const QT::VideoSampleRecord &a = fromWhole[i], &b = fromCopy[i];
            EXPECT_EQ(std::tuple(a.mOffset, a.mSize, a.mDuration, a.mTime, a.mIsKeyFrame),
                      std::tuple(b.mOffset, b.mSize, b.mDuration, b.mTime, b.mIsKeyFrame));
        }
    }
}

} // namespace
