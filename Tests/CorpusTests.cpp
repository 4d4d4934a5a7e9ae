// Every real movie of the test data against an independent parser's reading.
#include <gtest/gtest.h>

#include "Inc/AtomscanInternal.h"
#include "Src/QTTrack.h"
#include "Tests/Support/Corpus.h"
#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

QT::FourCC ExpectedMediaType(const nlohmann::json& stream)
{
    const std::string type = stream.value("codec_type", "");
    const std::string tag = stream.value("codec_tag_string", "");
    if (type == "video") return QT::kVideoMediaType;
    if (type == "audio") return QT::kAudioMediaType;
    if (type == "subtitle") return QT::kClosedCaptionMediaType;
    if (tag == "tmcd") return QT::kTimecodeMediaType;
    if (tag == "text") return QT::kTextMediaType;
    return QT::kUnknownMediaType;
}

// The display matrix rotation, in degrees counterclockwise; 0 without one.
int Rotation(const nlohmann::json& stream)
{
    for (const auto& side : stream.value("side_data_list", nlohmann::json::array()))
        if (side.contains("rotation")) return side.at("rotation").get<int>();
    return 0;
}

class CorpusFile : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusFile, TracksMatchTheIndependentParser)
{
    const std::string name = GetParam();
    const nlohmann::json probe = Probe(name);
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    QT::internal::OpenRefusal refusal;
    const QT::ResultCode code = QT::internal::OpenMovieExplained(ToString16(CorpusMovie(name).string()), movie, refusal);
    if (name == "damaged_truncated_in_moov") {
        // The file ends inside its movie atom: the copy would come up short.
        EXPECT_EQ(code, QT::kResultNotAMovie);
        EXPECT_TRUE(refusal.rule.starts_with("the movie atom runs ")) << refusal.rule;
        return;
    }
    ASSERT_EQ(code, QT::kResultSuccess);
    EXPECT_EQ(refusal.rule, "");
    const auto& streams = probe.at("streams");
    ASSERT_EQ(movie->GetTrackCount(), streams.size());
    QT::QTRect expected;
    for (std::uint32_t i = 0; i < movie->GetTrackCount(); ++i) {
        const auto& stream = streams.at(i);
        auto track = movie->GetIndTrack(i);
        SCOPED_TRACE("track " + std::to_string(i));
        EXPECT_EQ(track->GetTrackMediaType(), ExpectedMediaType(stream));
        EXPECT_EQ("1/" + std::to_string(track->GetMediaTimeScale()), stream.value("time_base", ""));
        // The independent parser makes an enabled track its stream's default.
        EXPECT_EQ(track->IsTrackEnabled(), stream.at("disposition").value("default", 0) == 1);
        const int rotation = Rotation(stream);
        EXPECT_EQ(track->GetTrackMatrixRotation(), static_cast<std::uint32_t>((rotation / 90 % 4 + 4) % 4));
        EXPECT_EQ(track->IsTrackMatrixIdentity(), rotation == 0);
        EXPECT_TRUE(track->IsTrackMatrixRightAngle());
        QT::QTRect r;
        track->GetTrackDimensions(r);
        const int width = stream.value("width", 0), height = stream.value("height", 0);
        EXPECT_EQ(std::tuple(r.left, r.top, r.right, r.bottom), std::tuple(0, 0, width, height));
        expected.right = std::max(expected.right, width);
        expected.bottom = std::max(expected.bottom, height);
        if (stream.value("codec_type", "") == "video" && stream.contains("nb_frames")) {
            EXPECT_EQ(std::to_string(static_cast<QT::QTTrack&>(*track).GetTotalSampleCount()), stream.at("nb_frames"));
        }
    }
    // The union of the tracks' rectangles and the origin.
    QT::QTRect bounds{1, 1, 1, 1};
    movie->GetBounds(bounds);
    EXPECT_EQ(std::tuple(bounds.left, bounds.top, bounds.right, bounds.bottom),
              std::tuple(0, 0, expected.right, expected.bottom));
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusFile, ::testing::ValuesIn(CorpusNames()),
                         [](const auto& info) { return info.param; });

} // namespace
