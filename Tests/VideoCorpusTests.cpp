// The video tracks of the corpus movies against an independent parser's
// reading (ffprobe: one packet per sample, in sample order) and the corpus
// index of their description atoms.
#include <gtest/gtest.h>

#include <set>

#include "Tests/Support/Corpus.h"
#include "Tests/Support/OpenTrack.h"

using namespace testsupport;
using json = nlohmann::json;

namespace {

constexpr QT::ResultCode kOk = QT::kResultSuccess;

std::uint64_t Number(const json& v) { return std::stoull(v.get<std::string>()); }
std::string Text(QT::FourCC c) { return {char(c >> 24), char(c >> 16), char(c >> 8), char(c)}; }

// Calls `check(file, info, probe, stream, track)` for each video track of the
// corpus movies that open. A damaged copy is checked against the probe of the
// good file it was made from.
template <typename F>
void ForEachVideoTrack(F&& check)
{
    std::ifstream in(CorpusDir() / "corpus.json");
    const json corpus = json::parse(in);
    for (const json& file : corpus["files"]) {
        const std::string name = file["name"];
        SCOPED_TRACE(name);
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        if (QT::MakeParser()->OpenMovie(ToString16((CorpusDir() / name).string()), movie) != kOk) continue;
        std::string reference = name;
        if (file.contains("derivation") && file["derivation"]["kind"] != "stco_rewritten_as_co64") {
            reference = file["derivation"]["derived_from"];
        }
        const json probe = Probe(reference.substr(0, reference.size() - 4));
        ASSERT_EQ(movie->GetTrackCount(), file["tracks"].size());
        for (std::uint32_t i = 0; i < file["tracks"].size(); ++i) {
            const json& info = file["tracks"][i];
            if (info["media_type"] != "vide") continue;
            SCOPED_TRACE(testing::Message() << "track " << i);
            const json* stream = nullptr;
            for (const json& s : probe["streams"]) {
                if (s.contains("id") && std::stoul(s["id"].get<std::string>(), nullptr, 16) == info["track_id"]) stream = &s;
            }
            ASSERT_NE(stream, nullptr);
            check(file, info, probe, *stream, movie->GetIndTrack(i));
        }
    }
}

TEST(VideoCorpus, ImageDescriptionsMatch)
{
    int checked = 0;
    ForEachVideoTrack([&](const json&, const json& info, const json&, const json& stream, auto track) {
        EXPECT_EQ(Text(track->GetVideoMediaCompressionFourCC(0)), stream["codec_tag_string"]);
        EXPECT_EQ(Text(track->GetVideoMediaVendorFourCC(0)), stream["tags"]["vendor_id"]);
        EXPECT_EQ(track->GetVideoMediaWidth(0), stream["width"]);
        EXPECT_EQ(track->GetVideoMediaHeight(0), stream["height"]);
        const json& sync = info["sync_sample_count"];
        EXPECT_EQ(track->VideoTrackContainsDeltaFrames(), !sync.is_null() && sync != info["sample_count"]);
        EXPECT_EQ(track->VideoTrackHasTemporalReferenceData(), info["present"]["sdtp"] && info["present"]["ctts"]);
        // Each extension getter against the fields the index lists for its atom.
        std::uint32_t v[8] = {};
        const auto expect = [&](const char* atom, QT::ResultCode code, std::initializer_list<const char*> fields) {
            SCOPED_TRACE(atom);
            const bool present = info.contains(atom) && !info[atom].is_null();
            ASSERT_EQ(code, present ? kOk : QT::kResultImageDescriptionItem);
            for (std::size_t k = 0; present && k < fields.size(); ++k) EXPECT_EQ(v[k], info[atom][fields.begin()[k]]);
        };
        expect("pasp", track->GetVideoMediaPixelAspect(0, v[0], v[1]), {"h_spacing", "v_spacing"});
        expect("clap", track->GetVideoMediaCleanAperture(0, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]),
               {"width_n", "width_d", "height_n", "height_d", "horiz_off_n", "horiz_off_d", "vert_off_n", "vert_off_d"});
        expect("fiel", track->GetVideoMediaFieldInfo(0, v[0], v[1]), {"fields", "detail"});
        expect("colr", track->GetVideoMediaColorInfo(0, v[0], v[1], v[2]), {"primaries", "transfer", "matrix"});
        ++checked;
    });
    EXPECT_EQ(checked, 43); // every video track of the movies that open
}

TEST(VideoCorpus, SampleTablesMatchThePacketLists)
{
    int compared = 0, edited = 0, refusedEdits = 0;
    ForEachVideoTrack([&](const json& file, const json& info, const json& probe, const json& stream, auto track) {
        std::vector<QT::VideoSampleRecord> all;
        const QT::ResultCode code = track->MakeFullVideoSampleTable(false, true, all);
        if (info["sample_count"] == 0) { // fragmented: the samples are in the fragments
            EXPECT_EQ(code, QT::kResultBadSampleTables);
            return;
        }
        ASSERT_EQ(code, kOk);
        std::vector<json> packets;
        for (const json& p : probe["packets"]) {
            if (p["stream_index"] == stream["index"]) packets.push_back(p);
        }
        ASSERT_EQ(all.size(), packets.size());
        // What the garbage top bytes of a damaged copy add to its chunk offsets.
        std::set<std::int64_t> shifts;
        if (file.contains("derivation") && file["derivation"]["kind"] == "stco_top_byte_garbage") {
            for (const json& d : file["derivation"]["damaged_entries"]) {
                shifts.insert(d["damaged"].get<std::int64_t>() - d["original"].get<std::int64_t>());
            }
        }
        const bool partialSync = info["present"]["stps"]; // ffprobe also flags stps frames as key
        std::uint64_t total = 0;
        for (std::size_t j = 0; j < all.size(); ++j) {
            SCOPED_TRACE(testing::Message() << "sample " << j);
            const QT::VideoSampleRecord& r = all[j];
            const json& p = packets[j];
            const bool key = p["flags"].get<std::string>().find('K') != std::string::npos;
            EXPECT_TRUE(r.mOffset == Number(p["pos"]) || shifts.count(std::int64_t(r.mOffset - Number(p["pos"]))));
            EXPECT_EQ(r.mSize, Number(p["size"]));
            EXPECT_TRUE(partialSync ? !r.mIsKeyFrame || key : r.mIsKeyFrame == key);
            EXPECT_EQ(r.mDuration, p["duration"]);
            EXPECT_EQ(r.mTime, p["dts"].get<std::int64_t>() - packets[0]["dts"].get<std::int64_t>());
            total += r.mDuration;
        }
        ++compared;

        // With the edit: a tail of the same records, beginning at the first
        // sample that ends after the edit's media time.
        std::vector<QT::VideoSampleRecord> shown;
        const QT::ResultCode editCode = track->MakeFullVideoSampleTable(false, false, shown);
        const std::size_t editCount = info["elst"].is_null() ? 0 : info["elst"].size();
        if (editCount >= 2) {
            EXPECT_EQ(editCode, QT::kResultEditListNotSimple);
            ++refusedEdits;
            return;
        }
        ASSERT_EQ(editCode, kOk);
        ASSERT_FALSE(shown.empty());
        const std::uint64_t mediaTime = editCount ? info["elst"][0]["media_time"].get<std::uint64_t>() : 0;
        const std::uint64_t editDuration =
            editCount ? info["elst"][0]["duration"].get<std::uint64_t>() * info["media_timescale"].get<std::uint64_t>() /
                            file["movie_timescale"].get<std::uint64_t>()
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
        for (std::size_t j = first; j < packets.size(); ++j) {
            EXPECT_EQ(packets[j]["flags"].get<std::string>().find('D'), std::string::npos) << "a discarded sample is shown";
        }
        if (all[first].mTime == mediaTime) { // the edit starts on a sample boundary
            EXPECT_EQ(shownTotal, std::min(editDuration, total - mediaTime));
        }
        ++edited;
    });
    // Every video track but the two fragmented ones; two tracks have an empty
    // edit in front.
    EXPECT_EQ(compared, 41);
    EXPECT_EQ(edited, 39);
    EXPECT_EQ(refusedEdits, 2);
}

} // namespace
