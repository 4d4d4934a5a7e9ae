// Every real movie of the test data against an independent parser's reading.
#include <gtest/gtest.h>

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

class CorpusFile : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusFile, TracksMatchTheIndependentParser)
{
    const std::string name = GetParam();
    const nlohmann::json probe = Probe(name);
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    const QT::ResultCode code = QT::MakeParser()->OpenMovie(ToString16(CorpusMovie(name).string()), movie);
    if (name == "damaged_truncated_in_moov") {
        // The file ends inside its movie atom: the copy comes up short.
        EXPECT_EQ(code, QT::kResultNotAMovie);
        return;
    }
    ASSERT_EQ(code, QT::kResultSuccess);
    const auto& streams = probe.at("streams");
    ASSERT_EQ(movie->GetTrackCount(), streams.size());
    for (std::uint32_t i = 0; i < movie->GetTrackCount(); ++i) {
        const auto& stream = streams.at(i);
        auto track = movie->GetIndTrack(i);
        SCOPED_TRACE("track " + std::to_string(i));
        EXPECT_EQ(track->GetTrackMediaType(), ExpectedMediaType(stream));
        const std::string timeBase = stream.value("time_base", "");
        EXPECT_EQ("1/" + std::to_string(track->GetMediaTimeScale()), timeBase);
        if (stream.contains("nb_frames") && stream.value("codec_type", "") == "video") {
            auto* core = static_cast<QT::QTTrack*>(track.Get());
            EXPECT_EQ(std::to_string(core->GetTotalSampleCount()), stream.value("nb_frames", ""));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusFile, ::testing::ValuesIn(CorpusNames()),
                         [](const auto& info) { return info.param; });

} // namespace
