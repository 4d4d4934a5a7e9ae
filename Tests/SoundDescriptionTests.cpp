// Sound descriptions: format codes by version, widths, rate, channels, the
// byte order search and the bounds of a description.
#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "Tests/Support/SoundBuilder.h"

using namespace testsupport;
using QT::MakeFourCC;

namespace {

constexpr int kNoWave = -1;

// Versions 0 and 1: stored format, sample size field S, the `enda` word (or
// no `wave` at all), and what the track reports.
struct LegacyRow {
    const char* stored;
    std::uint16_t sampleSize;
    int enda;
    const char* format;
    std::uint32_t bits;
};
const LegacyRow kLegacyRows[] = {
    {"in32", 16, kNoWave, "in32", 32}, {"in32", 16, 1, "23ni", 32},      {"in32", 16, 0, "in32", 32},
    {"in32", 32, 1, "23ni", 32},       {"in24", 16, kNoWave, "in24", 24}, {"in24", 16, 1, "42ni", 24},
    {"in24", 24, kNoWave, "in24", 24}, {"fl32", 16, kNoWave, "fl32", 32}, {"fl32", 16, 1, "23lf", 32},
    {"fl32", 16, 0, "fl32", 32},       {"fl32", 16, 0x0100, "23lf", 32},  {"fl64", 16, kNoWave, "fl64", 64},
    {"fl64", 16, 1, "46lf", 64},       {"23ni", 16, kNoWave, "23ni", 32}, {"23ni", 16, 0, "23ni", 32},
    {"twos", 8, kNoWave, "twos", 8},   {"twos", 24, kNoWave, "in24", 24}, {"twos", 16, kNoWave, "16be", 16},
    {"twos", 16, 1, "16be", 16},       {"twos", 12, kNoWave, "16be", 12}, {"sowt", 8, kNoWave, "twos", 8},
    {"sowt", 24, kNoWave, "42ni", 24}, {"sowt", 16, kNoWave, "16le", 16}, {"sowt", 16, 0, "16le", 16},
    {"lpcm", 16, kNoWave, "16be", 16}, {"lpcm", 16, 1, "16le", 16},       {"lpcm", 24, kNoWave, "in24", 24},
    {"lpcm", 24, 1, "42ni", 24},       {"lpcm", 32, kNoWave, "in32", 32}, {"lpcm", 32, 1, "23ni", 32},
    {"lpcm", 8, kNoWave, "unkn", 8},   {"mcpl", 16, 1, "16le", 16},       {"mcpl", 24, kNoWave, "in24", 24},
    {"mcpl", 32, 1, "23ni", 32},       {"mcpl", 8, 1, "unkn", 8},         {"raw ", 8, kNoWave, "raw ", 8},
    {"raw ", 16, kNoWave, "raw ", 16}, {"mp4a", 16, kNoWave, "mp4a", 16}, {"ac-3", 16, kNoWave, "ac-3", 16},
    {"ec-3", 16, kNoWave, "ec-3", 16}, {"42ni", 16, kNoWave, "unkn", 16}, {"23lf", 16, 1, "unkn", 16},
    {"46lf", 16, kNoWave, "unkn", 16}, {"ulaw", 16, kNoWave, "unkn", 16}, {"alac", 24, kNoWave, "unkn", 24},
};

// Version 2: stored format, bits per channel N and the flags (1 float,
// 2 big-endian, 4 signed integer).
struct V2Row {
    const char* stored;
    std::uint32_t bits;
    std::uint32_t flags;
    const char* format;
};
constexpr std::uint32_t F = 1, B = 2, I = 4;
const V2Row kV2Rows[] = {
    {"lpcm", 32, F | I, "unkn"},  {"lpcm", 8, I, "twos"},         {"lpcm", 8, I | B, "twos"},
    {"lpcm", 8, 0, "raw "},       {"lpcm", 8, F, "raw "},         {"lpcm", 16, F, "unkn"},
    {"lpcm", 16, B | I, "16be"},  {"lpcm", 16, I, "16le"},        {"lpcm", 16, 0, "16le"},
    {"lpcm", 24, F | B, "unkn"},  {"lpcm", 24, B | I, "in24"},    {"lpcm", 24, I, "42ni"},
    {"lpcm", 32, B | I, "in32"},  {"lpcm", 32, I, "23ni"},        {"lpcm", 32, B, "in32"},
    {"lpcm", 32, F | B, "fl32"},  {"lpcm", 32, F, "23lf"},        {"lpcm", 64, F | B, "fl64"},
    {"lpcm", 64, F, "46lf"},      {"lpcm", 64, B | I, "unkn"},    {"lpcm", 12, I, "unkn"},
    {"mp4a", 16, 0, "mp4a"},      {"twos", 16, B | I, "unkn"},    {"sowt", 16, I, "unkn"},
    {"ac-3", 16, 0, "unkn"},      {"ec-3", 16, 0, "unkn"},        {"mcpl", 16, B | I, "unkn"},
};

bool IsCompressedCode(const char* format)
{
    const std::string f = format;
    return f == "mp4a" || f == "ac-3" || f == "ec-3" || f == "unkn";
}

std::vector<Atom> WaveFor(int enda)
{
    if (enda == kNoWave) return {};
    return {Wave({Frma("lpcm"), Enda(static_cast<std::uint16_t>(enda))})};
}

// A version 0 description whose extensions start at 52, behind 16 bytes of
// its own: the place where the search looks for them in every version.
Bytes V0WithExtensionsAt52(const char* format, std::uint16_t sampleSize, const std::vector<Atom>& ext)
{
    return SampleDescription(format, SoundFields(0, 2, sampleSize, 48000u << 16).Zeros(16).Raw(Concat(ext)));
}

void CheckLegacyRows(int version)
{
    std::vector<Bytes> descriptions;
    for (const LegacyRow& row : kLegacyRows) {
        descriptions.push_back(version == 0 ? V0WithExtensionsAt52(row.stored, row.sampleSize, WaveFor(row.enda))
                                            : SoundDescriptionV1(row.stored, 2, row.sampleSize, 48000u << 16,
                                                                 WaveFor(row.enda)));
    }
    TrackSpec plan = SoundTrack(descriptions[0]);
    plan.descriptions = descriptions;
    auto track = OpenTrack(plan);
    ASSERT_TRUE(track);
    for (std::int32_t i = 0; i < static_cast<std::int32_t>(std::size(kLegacyRows)); ++i) {
        const LegacyRow& row = kLegacyRows[i];
        SCOPED_TRACE(testing::Message() << "version " << version << " row " << i << ": " << row.stored << " S="
                                        << row.sampleSize << " enda=" << row.enda);
        EXPECT_EQ(FourCCText(track->GetAudioMediaDataFormat(i)), row.format);
        EXPECT_EQ(FourCCText(track->GetAudioMediaRawDataFormat(i)), row.stored);
        EXPECT_EQ(track->GetAudioMediaBitsPerSample(i), row.bits);
        EXPECT_EQ(track->GetAudioMediaPackedBitsPerSample(i), row.bits);
        EXPECT_EQ(track->IsAudioMediaUncompressed(i), !IsCompressedCode(row.format));
        EXPECT_EQ(track->GetAudioMediaNumChannels(i), 2u);
        EXPECT_EQ(track->GetAudioMediaSampleRate(i), 48000u);
    }
}

TEST(SoundDescription, FormatTableVersion0) { CheckLegacyRows(0); }
TEST(SoundDescription, FormatTableVersion1) { CheckLegacyRows(1); }

TEST(SoundDescription, FormatTableVersion2)
{
    std::vector<Bytes> descriptions;
    for (const V2Row& row : kV2Rows) {
        SoundV2 v;
        v.rate = 96000;
        v.channels = 2;
        v.bits = row.bits;
        v.flags = row.flags;
        v.bytesPerPacket = 0; // packed width falls back to the bits
        descriptions.push_back(SoundDescriptionV2(row.stored, v));
    }
    TrackSpec plan = SoundTrack(descriptions[0]);
    plan.descriptions = descriptions;
    auto track = OpenTrack(plan);
    ASSERT_TRUE(track);
    for (std::int32_t i = 0; i < static_cast<std::int32_t>(std::size(kV2Rows)); ++i) {
        const V2Row& row = kV2Rows[i];
        SCOPED_TRACE(testing::Message() << "row " << i << ": " << row.stored << " N=" << row.bits << " flags="
                                        << row.flags);
        EXPECT_EQ(FourCCText(track->GetAudioMediaDataFormat(i)), row.format);
        EXPECT_EQ(FourCCText(track->GetAudioMediaRawDataFormat(i)), row.stored);
        EXPECT_EQ(track->GetAudioMediaBitsPerSample(i), row.bits);
        EXPECT_EQ(track->GetAudioMediaPackedBitsPerSample(i), row.bits);
        EXPECT_EQ(track->IsAudioMediaUncompressed(i), !IsCompressedCode(row.format));
        EXPECT_EQ(track->GetAudioMediaNumChannels(i), 2u);
        EXPECT_EQ(track->GetAudioMediaSampleRate(i), 96000u);
    }
}

// One track per case, description 0.
Tessel::InterfaceRef<QT::IQTTrack> TrackOf(const Bytes& description) { return OpenTrack(SoundTrack(description)); }

TEST(SoundDescription, Version2IgnoresWaveForByteOrder)
{
    SoundV2 v;
    v.bits = 16;
    v.flags = B | I;
    auto track = TrackOf(SoundDescriptionV2("lpcm", v, {Wave({Enda(1)})}));
    EXPECT_EQ(FourCCText(track->GetAudioMediaDataFormat(0)), "16be");
}

TEST(SoundDescription, ByteOrderSearchStopsAtBadWaveChildren)
{
    struct Case {
        const char* name;
        std::vector<Atom> extensions;
        const char* format;
    };
    Atom zeroSized("free", ByteWriter().U32(0));
    zeroSized.size = 0;
    Atom pastWave("free", ByteWriter().U32(0));
    pastWave.size = 200;
    Atom waveTooBig = Wave({Enda(1)});
    waveTooBig.size = 500; // runs past the description
    Atom shortEnda("enda", ByteWriter().U8(1));
    const Case cases[] = {
        {"enda first", {Wave({Enda(1)})}, "23lf"},
        {"enda behind other children", {Wave({Frma("fl32"), Atom("free"), Enda(1)})}, "23lf"},
        {"first enda decides", {Wave({Enda(0), Enda(1)})}, "fl32"},
        {"wave without enda", {Wave({Frma("fl32")})}, "fl32"},
        {"wave behind chan", {Chan(0x650002, 0), Wave({Enda(1)})}, "23lf"},
        {"enda outside wave is not read", {Enda(1)}, "fl32"},
        {"child of size 0 hides enda", {Wave({zeroSized, Enda(1)})}, "fl32"},
        {"child past the wave's end", {Wave({pastWave, Enda(1)})}, "fl32"},
        {"wave past the description's end", {waveTooBig}, "fl32"},
        {"enda too short for its word", {Wave({shortEnda})}, "fl32"},
        {"extension of size 0 ends the search", {zeroSized, Wave({Enda(1)})}, "fl32"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto track = TrackOf(SoundDescriptionV1("fl32", 2, 16, 48000u << 16, c.extensions));
        ASSERT_TRUE(track);
        EXPECT_EQ(FourCCText(track->GetAudioMediaDataFormat(0)), c.format);
    }
}

TEST(SoundDescription, ExtensionsAreSearchedFrom52Only)
{
    // A version 0 description with its wave right behind its 36 fixed bytes:
    // the search starts at 52, inside the wave, and does not find it.
    auto atFixedEnd = TrackOf(SoundDescriptionV0("in32", 2, 16, 48000u << 16, {Wave({Enda(1)})}));
    EXPECT_EQ(FourCCText(atFixedEnd->GetAudioMediaDataFormat(0)), "in32");

    // A description of exactly 52 bytes has no extensions, even with a wave
    // in the bytes of `stsd` behind it.
    Bytes description = SoundDescriptionV1("in32", 2, 16, 48000u << 16);
    ASSERT_EQ(description.size(), 52u);
    Bytes withTrailer = description;
    const Bytes wave = Wave({Enda(1)}).Serialize();
    withTrailer.insert(withTrailer.end(), wave.begin(), wave.end());
    auto exact = TrackOf(withTrailer);
    EXPECT_EQ(FourCCText(exact->GetAudioMediaDataFormat(0)), "in32");

    // The same bytes with the size grown over the wave: little-endian.
    withTrailer[3] = static_cast<std::uint8_t>(withTrailer.size());
    auto grown = TrackOf(withTrailer);
    EXPECT_EQ(FourCCText(grown->GetAudioMediaDataFormat(0)), "23ni");
}

TEST(SoundDescription, RateAndChannelsOfVersions0And1)
{
    // The fraction of the 16.16 rate is dropped.
    auto track = TrackOf(SoundDescriptionV0("twos", 6, 16, (44100u << 16) | 0x8000));
    EXPECT_EQ(track->GetAudioMediaSampleRate(0), 44100u);
    EXPECT_EQ(track->GetAudioMediaNumChannels(0), 6u);

    // 16-bit fields are sign-extended.
    auto negative = TrackOf(SoundDescriptionV0("twos", 0xffff, 0xfff8, 8000u << 16));
    EXPECT_EQ(negative->GetAudioMediaNumChannels(0), 0xffffffffu);
    EXPECT_EQ(negative->GetAudioMediaBitsPerSample(0), 0xfffffff8u);
    EXPECT_EQ(negative->GetAudioMediaPackedBitsPerSample(0), 0xfffffff8u);
}

TEST(SoundDescription, Version1WithoutMarkerIsNoVersion2)
{
    // Channels 3, sample size 16, packet size 0, rate 1.0, but no marker at 52.
    auto track = TrackOf(SoundDescriptionV1("lpcm", 3, 16, 0x10000, {Atom("free", ByteWriter().Zeros(20))}));
    EXPECT_EQ(track->GetAudioMediaNumChannels(0), 3u);
    EXPECT_EQ(track->GetAudioMediaSampleRate(0), 1u);
    EXPECT_EQ(FourCCText(track->GetAudioMediaDataFormat(0)), "16be");

    // Each of the shape's fields matters: a packet size of 1 makes a full
    // version 2 layout read as a plain description.
    SoundV2 v;
    v.rate = 96000;
    Bytes description = SoundDescriptionV2("lpcm", v);
    description[31] = 1; // packet size
    auto notV2 = TrackOf(description);
    EXPECT_EQ(notV2->GetAudioMediaSampleRate(0), 1u);
    EXPECT_EQ(notV2->GetAudioMediaNumChannels(0), 3u);

    // The version 2 layout cut at 52 bytes: the marker lies past its end.
    description = SoundDescriptionV2("lpcm", v);
    description.resize(52);
    description[3] = 52;
    auto cutShort = TrackOf(description);
    EXPECT_EQ(cutShort->GetAudioMediaNumChannels(0), 3u);
    EXPECT_EQ(cutShort->GetAudioMediaSampleRate(0), 1u);
}

TEST(SoundDescription, Version2RateAndPackedWidth)
{
    struct Case {
        double rate;
        std::uint32_t expectedRate;
        std::uint32_t bits, channels, bytesPerPacket, framesPerPacket;
        std::uint32_t expectedPacked;
    };
    const Case cases[] = {
        {48000.5, 48000, 24, 2, 6, 1, 24},   // bytes ÷ frames × 8 ÷ channels
        {192000, 192000, 16, 1, 2, 1, 16},
        {96000, 96000, 24, 2, 8, 1, 32},     // 24-bit samples in 32-bit containers
        {44100, 44100, 16, 1, 4, 3, 8},      // truncated at each division: 4 ÷ 3 = 1
        {44100, 44100, 20, 2, 0, 1, 20},     // no bytes per packet: the bits
        {44100, 44100, 20, 2, 6, 0, 20},     // no frames per packet
        {44100, 44100, 20, 0, 6, 1, 20},     // no channels
        {-0.5, 0, 16, 2, 4, 1, 16},
        {-48000, 0, 16, 2, 4, 1, 16},        // no rate can be told
        {1e12, 0, 16, 2, 4, 1, 16},
        {std::numeric_limits<double>::quiet_NaN(), 0, 16, 2, 4, 1, 16},
        {4294967295.9, 4294967295u, 16, 2, 4, 1, 16},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "rate " << c.rate << " packet " << c.bytesPerPacket << "/"
                                        << c.framesPerPacket << "/" << c.channels);
        SoundV2 v{c.rate, c.channels, c.bits, I, c.bytesPerPacket, c.framesPerPacket};
        auto track = TrackOf(SoundDescriptionV2("lpcm", v));
        EXPECT_EQ(track->GetAudioMediaSampleRate(0), c.expectedRate);
        EXPECT_EQ(track->GetAudioMediaNumChannels(0), c.channels);
        EXPECT_EQ(track->GetAudioMediaBitsPerSample(0), c.bits);
        EXPECT_EQ(track->GetAudioMediaPackedBitsPerSample(0), c.expectedPacked);
    }
}

void ExpectNullColumn(QT::IQTTrack& track, std::int32_t index)
{
    EXPECT_EQ(track.GetAudioMediaSampleRate(index), 0u);
    EXPECT_EQ(track.GetAudioMediaNumChannels(index), 0u);
    EXPECT_EQ(track.GetAudioMediaBitsPerSample(index), 0u);
    EXPECT_EQ(track.GetAudioMediaPackedBitsPerSample(index), 0u);
    EXPECT_EQ(track.GetAudioMediaDataFormat(index), QT::kUnknownMediaType);
    EXPECT_EQ(track.GetAudioMediaRawDataFormat(index), 0u);
    EXPECT_FALSE(track.IsAudioMediaUncompressed(index));
}

TEST(SoundDescription, NullColumn)
{
    // A negative index, on a description that is fine.
    auto track = TrackOf(SoundDescriptionV1("in24", 2, 16, 48000u << 16, {Wave({Enda(1)})}));
    ExpectNullColumn(*track, -1);
    EXPECT_EQ(track->GetAudioMediaSampleRate(0), 48000u);

    // A description whose size runs past the end of `stsd`.
    Bytes description = SoundDescriptionV1("in24", 2, 16, 48000u << 16);
    description[2] = 0x10;
    auto leaving = TrackOf(description);
    ASSERT_TRUE(leaving);
    ExpectNullColumn(*leaving, 0);
}

TEST(SoundDescription, ShortDescriptionIsNotReadIntoItsNeighbour)
{
    // A description of 24 bytes ends before channels, sample size and rate;
    // the description behind it has them all set. The short one reads 0.
    const Bytes shortOne = SampleDescription("sowt", ByteWriter().U16(0).U16(0).U32(0));
    ASSERT_EQ(shortOne.size(), 24u);
    TrackSpec plan = SoundTrack(shortOne);
    plan.descriptions = {shortOne, SoundDescriptionV0("sowt", 2, 24, 48000u << 16)};
    auto track = OpenTrack(plan);
    ASSERT_TRUE(track);
    EXPECT_EQ(track->GetAudioMediaNumChannels(0), 0u);
    EXPECT_EQ(track->GetAudioMediaSampleRate(0), 0u);
    EXPECT_EQ(track->GetAudioMediaBitsPerSample(0), 0u);
    EXPECT_EQ(FourCCText(track->GetAudioMediaDataFormat(0)), "16le"); // S = 0: any other S
    EXPECT_EQ(FourCCText(track->GetAudioMediaRawDataFormat(0)), "sowt");
    EXPECT_EQ(track->GetAudioMediaNumChannels(1), 2u);
    EXPECT_EQ(FourCCText(track->GetAudioMediaDataFormat(1)), "42ni");
}

TEST(SoundDescription, IndexPastTheLastIsAContractFailure)
{
    auto track = TrackOf(SoundDescriptionV0("sowt", 2, 16, 48000u << 16));
    try {
        track->GetAudioMediaSampleRate(1);
        FAIL() << "no contract failure";
    } catch (const vellum::config::Error& e) {
        EXPECT_EQ(e.Function(), "QT::QTTrack::GetNthSampleDescriptionPtr");
    }
}

TEST(SoundDescription, OtherMediaIsAContractFailure)
{
    TrackSpec video;
    video.descriptions = {SoundDescriptionV0("sowt", 2, 16, 48000u << 16)};
    auto track = OpenTrack(video);
    ASSERT_TRUE(track);
    QT::AudioSampleRangeMap map;
    QT::ChannelOrderMap order;
    bool flag = false;
    struct Call {
        const char* function;
        std::function<void()> call;
    };
    const Call calls[] = {
        {"QT::QTTrack::GetAudioMediaSampleRate", [&] { track->GetAudioMediaSampleRate(0); }},
        {"QT::QTTrack::GetAudioMediaNumChannels", [&] { track->GetAudioMediaNumChannels(0); }},
        {"QT::QTTrack::GetAudioMediaBitsPerSample", [&] { track->GetAudioMediaBitsPerSample(0); }},
        {"QT::QTTrack::GetAudioMediaPackedBitsPerSample", [&] { track->GetAudioMediaPackedBitsPerSample(0); }},
        {"QT::QTTrack::GetAudioMediaDataFormat", [&] { track->GetAudioMediaDataFormat(0); }},
        {"QT::QTTrack::GetAudioMediaDataFormat", [&] { track->IsAudioMediaUncompressed(0); }},
        {"QT::QTTrack::GetAudioMediaRawDataFormat", [&] { track->GetAudioMediaRawDataFormat(0); }},
        {"QT::QTTrack::MakeAudioSampleRangeMap", [&] { track->MakeAudioSampleRangeMap(map, false); }},
        {"QT::QTTrack::GetMultiChannelMap", [&] { track->GetMultiChannelMap(0, order, flag); }},
    };
    for (const Call& c : calls) {
        SCOPED_TRACE(c.function);
        try {
            c.call();
            ADD_FAILURE() << "no contract failure";
        } catch (const vellum::config::Error& e) {
            EXPECT_EQ(e.Condition(), "GetTrackMediaType() == kAudioMediaType");
            EXPECT_EQ(e.Function(), c.function);
            EXPECT_EQ(e.File(), "Src/QTTrack_Audio.cpp");
        }
    }
}

} // namespace
