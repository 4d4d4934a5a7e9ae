// Sound descriptions: format codes, widths, rate and channels, the byte order
// search, the 5.1 channel order of `chan`, and the bounds of a description.
#include <gtest/gtest.h>

#include <limits>

#include "Tests/Support/OpenTrack.h"
#include "Tests/Support/SoundBuilder.h"

using namespace testsupport;

namespace {

constexpr std::uint32_t k48k = 48000u << 16, F = 1, B = 2, I = 4; // version 2 flags: float, big-endian, signed

// Every case's description in one track, description i for case i: a reader
// that ignores the index, or reads past a short description into the next,
// fails a case.
template <class Cases> Tessel::InterfaceRef<QT::IQTTrack> TrackOf(const Cases& cases)
{
    std::vector<Bytes> descriptions;
    for (const auto& c : cases) descriptions.push_back(c.description);
    return OpenTrack(SoundTrack(descriptions));
}

TEST(SoundDescription, FormatCodesAndWidths)
{
    // Versions 0 and 1: sample size S and the `enda` word (-1: no `wave`).
    // Version 0 has 16 bytes of its own before its `wave`: the search starts
    // at 52 in every version but 2. Version 2: bits N and flags, with a
    // little-endian `enda` that does not count.
    struct Row { int version; const char* stored; std::uint16_t size; std::int32_t order; const char* format; std::uint32_t bits; Bytes description{}; };
    std::vector<Row> rows = {
        {1, "in32", 32, 1, "23ni", 32},     {0, "in24", 16, 0x100, "42ni", 24}, {1, "fl32", 16, 0, "fl32", 32},
        {0, "fl64", 16, 1, "46lf", 64},     {1, "23ni", 16, -1, "23ni", 32},    {0, "twos", 8, -1, "twos", 8},
        {1, "twos", 24, 1, "in24", 24},     {0, "twos", 12, 1, "16be", 12},     {1, "sowt", 24, 1, "42ni", 24},
        {0, "lpcm", 16, -1, "16be", 16},    {1, "lpcm", 16, 1, "16le", 16},     {0, "lpcm", 24, 1, "42ni", 24},
        {1, "lpcm", 32, -1, "in32", 32},    {0, "lpcm", 8, -1, "unkn", 8},      {1, "mcpl", 16, 1, "16le", 16},
        {0, "mcpl", 24, -1, "in24", 24},    {1, "mcpl", 8, 1, "unkn", 8},       {0, "ec-3", 16, 1, "ec-3", 16},
        {1, "42ni", 16, -1, "unkn", 16},    {2, "lpcm", 32, F | I, "unkn", 32}, {2, "lpcm", 8, I | B, "twos", 8},
        {2, "lpcm", 8, F, "raw ", 8},       {2, "lpcm", 16, F, "unkn", 16},     {2, "lpcm", 16, 0, "16le", 16},
        {2, "lpcm", 24, F | B, "unkn", 24}, {2, "lpcm", 24, B, "in24", 24},     {2, "lpcm", 32, B, "in32", 32},
        {2, "lpcm", 32, I, "23ni", 32},     {2, "lpcm", 32, F | B, "fl32", 32}, {2, "lpcm", 32, F, "23lf", 32},
        {2, "lpcm", 64, F | B, "fl64", 64}, {2, "lpcm", 64, F, "46lf", 64},     {2, "lpcm", 64, B | I, "unkn", 64},
        {2, "lpcm", 12, I, "unkn", 12},     {2, "twos", 16, B | I, "unkn", 16},
    };
    for (Row& r : rows) {
        const std::vector<Atom> wave{Wave({Atom("free"), Enda(static_cast<std::uint16_t>(r.version == 2 ? 1 : r.order))})};
        r.description = r.version == 2 ? SoundDescriptionV2(r.stored, 48000, 2, r.size, r.order, 0, 1, wave)
                                       : SoundDescriptionV0(r.stored, 2, r.size, k48k, r.order < 0 ? std::vector<Atom>{} : wave,
                                                            r.version, 16);
    }
    auto track = TrackOf(rows);
    ASSERT_TRUE(track);
    for (std::int32_t i = 0; i < static_cast<std::int32_t>(rows.size()); ++i) {
        const Row& r = rows[i];
        SCOPED_TRACE(testing::Message() << "v" << r.version << " " << r.stored << " " << r.size << " " << r.order);
        EXPECT_EQ(FourCCText(track->GetAudioMediaDataFormat(i)), r.format);
        EXPECT_EQ(FourCCText(track->GetAudioMediaRawDataFormat(i)), r.stored);
        EXPECT_EQ(track->GetAudioMediaBitsPerSample(i), r.bits);
        EXPECT_EQ(track->GetAudioMediaPackedBitsPerSample(i), r.bits);
        EXPECT_EQ(track->IsAudioMediaUncompressed(i), std::string(r.format) != "unkn" && std::string(r.format) != "ec-3");
    }
}

TEST(SoundDescription, RateChannelsAndPackedWidth)
{
    auto v2 = [](double rate, std::uint32_t channels, std::uint32_t bits, std::uint32_t bytes, std::uint32_t frames) {
        return SoundDescriptionV2("lpcm", rate, channels, bits, I, bytes, frames);
    };
    Bytes packetSize1 = v2(96000, 2, 16, 0, 1), cutAt52 = packetSize1, pastStsd = SoundDescriptionV1("in24", 2, 16);
    packetSize1[31] = 1;
    cutAt52.resize(52);
    cutAt52[3] = 52;
    pastStsd[2] = 0x10;
    struct Case { const char* name; Bytes description; std::uint32_t rate, channels, bits, packed; };
    const Case cases[] = {
        {"16.16 rate loses its fraction", SoundDescriptionV0("twos", 6, 16, (44100u << 16) | 0x8000), 44100, 6, 16, 16},
        {"16-bit fields sign-extended", SoundDescriptionV0("twos", 0xffff, 0xfff8, 8000u << 16), 8000, ~0u, ~7u, ~7u},
        {"24 bytes: no fields", SampleDescription("sowt", Bytes(8)), 0, 0, 0, 0},
        {"version 1 without the marker", SoundDescriptionV1("lpcm", 3, 16, {Atom("free", Bytes(12))}, 0x10000), 1, 3, 16, 16},
        {"version 2 layout with packet size 1", packetSize1, 1, 3, 16, 16},
        {"version 2 layout cut at 52", cutAt52, 1, 3, 16, 16},
        {"bytes / frames * 8 / channels", v2(48000.5, 2, 24, 6, 1), 48000, 2, 24, 24},
        {"24 bits in 32-bit containers", v2(96000, 2, 24, 8, 1), 96000, 2, 24, 32},
        {"truncated at each division", v2(44100, 1, 16, 4, 3), 44100, 1, 16, 8},
        {"no bytes per packet", v2(44100, 2, 20, 0, 1), 44100, 2, 20, 20},
        {"no frames per packet", v2(44100, 2, 20, 6, 0), 44100, 2, 20, 20},
        {"no channels", v2(44100, 0, 20, 6, 1), 44100, 0, 20, 20},
        {"negative rate", v2(-48000, 2, 16, 4, 1), 0, 2, 16, 16},
        {"rate past 32 bits", v2(1e12, 2, 16, 4, 1), 0, 2, 16, 16},
        {"rate not a number", v2(std::numeric_limits<double>::quiet_NaN(), 2, 16, 4, 1), 0, 2, 16, 16},
        {"largest rate", v2(4294967295.9, 2, 16, 4, 1), 4294967295u, 2, 16, 16},
        {"running past stsd", pastStsd, 0, 0, 0, 0}, // must stay last
    };
    auto track = TrackOf(cases);
    ASSERT_TRUE(track);
    // Index -1 has no description, like the last: it reads as the last case.
    for (std::int32_t i = -1; i < static_cast<std::int32_t>(std::size(cases)); ++i) {
        const Case& c = cases[i < 0 ? std::size(cases) - 1 : i];
        SCOPED_TRACE(testing::Message() << i << ": " << c.name);
        EXPECT_EQ(track->GetAudioMediaSampleRate(i), c.rate);
        EXPECT_EQ(track->GetAudioMediaNumChannels(i), c.channels);
        EXPECT_EQ(track->GetAudioMediaBitsPerSample(i), c.bits);
        EXPECT_EQ(track->GetAudioMediaPackedBitsPerSample(i), c.packed);
    }
    for (std::int32_t i : {-1, static_cast<std::int32_t>(std::size(cases)) - 1}) {
        EXPECT_EQ(track->GetAudioMediaDataFormat(i), QT::kUnknownMediaType);
        EXPECT_EQ(track->GetAudioMediaRawDataFormat(i), 0u);
        EXPECT_FALSE(track->IsAudioMediaUncompressed(i));
    }
    EXPECT_THROW(track->GetAudioMediaSampleRate(std::size(cases)), vellum::config::Error);
}

TEST(SoundDescription, ByteOrderSearchStaysInsideWaveAndDescription)
{
    Atom zeroSized("free", Bytes(4)), pastWave("free", Bytes(4)), waveTooBig = Wave({Enda(1)});
    zeroSized.size = 0;
    pastWave.size = 200;
    waveTooBig.size = 500;
    auto fl32 = [](std::vector<Atom> extensions) { return SoundDescriptionV1("fl32", 2, 16, extensions); };
    Bytes exact52 = fl32({}), grown = exact52;
    const Bytes wave = Wave({Enda(1)}).Serialize();
    exact52.insert(exact52.end(), wave.begin(), wave.end());
    grown.insert(grown.end(), wave.begin(), wave.end());
    grown[3] = static_cast<std::uint8_t>(grown.size());
    struct Case { const char* name; Bytes description; const char* format; };
    const Case cases[] = {
        {"first enda decides", fl32({Wave({Enda(0), Enda(1)})}), "fl32"},
        {"wave behind chan", fl32({Chan(0x650002, 0), Wave({Enda(1)})}), "23lf"},
        {"enda outside wave", fl32({Enda(1)}), "fl32"},
        {"child of size 0 hides enda", fl32({Wave({zeroSized, Enda(1)})}), "fl32"},
        {"child past the wave's end", fl32({Wave({pastWave, Enda(1)})}), "fl32"},
        {"wave past the description's end", fl32({waveTooBig}), "fl32"},
        {"enda too short for its word", fl32({Wave({Atom("enda", Bytes(1, 1))})}), "fl32"},
        {"extension of size 0 ends the search", fl32({zeroSized, Wave({Enda(1)})}), "fl32"},
        {"version 0: wave behind 36 bytes, before 52", SoundDescriptionV0("fl32", 2, 16, k48k, {Wave({Enda(1)})}), "fl32"},
        {"size grown over a wave behind 52", grown, "23lf"},
        {"52 bytes with a wave behind them in stsd", exact52, "fl32"}, // must stay last
    };
    auto track = TrackOf(cases);
    ASSERT_TRUE(track);
    for (std::int32_t i = 0; i < static_cast<std::int32_t>(std::size(cases)); ++i)
        EXPECT_EQ(FourCCText(track->GetAudioMediaDataFormat(i)), cases[i].format) << cases[i].name;
}

TEST(SoundDescription, OtherMediaIsAContractFailure)
{
    TrackSpec plan = SoundTrack({SoundDescriptionV0("sowt", 2, 16, k48k)});
    plan.mediaType = "vide";
    auto video = OpenTrack(plan);
    ASSERT_TRUE(video);
    QT::AudioSampleRangeMap map;
    QT::ChannelOrderMap order;
    bool flag = false;
    EXPECT_THROW(video->GetAudioMediaSampleRate(0), vellum::config::Error);
    EXPECT_THROW(video->IsAudioMediaUncompressed(0), vellum::config::Error);
    EXPECT_THROW(video->MakeAudioSampleRangeMap(map, false), vellum::config::Error);
    EXPECT_THROW(video->GetMultiChannelMap(0, order, flag), vellum::config::Error);
}

TEST(ChannelMap, LayoutsAndDamagedChan)
{
    const std::vector<std::int32_t> kUntouched(8, 7); // 8 elements, so a 5.1 answer is seen to leave 6
    auto v1 = [](std::uint16_t channels, std::vector<Atom> extensions) {
        return SoundDescriptionV1("sowt", channels, 16, extensions);
    };
    Atom cutShort = Chan(0, 0, {1, 2, 3, 4, 5, 6});
    cutShort.size = 24 + 5 * 20; // six descriptions announced, room for five
    struct Case { const char* name; Bytes description; bool result, notUnderstood; std::vector<std::int32_t> map; };
    const Case cases[] = {
        {"L R Ls Rs C LFE, behind wave", v1(6, {Wave({Enda(1)}), Chan(0x7a0006, 0)}), true, false, {0, 1, 4, 5, 2, 3}},
        {"C L R Ls Rs LFE on 2 channels", v1(2, {Chan(0x7c0006, 0)}), true, false, {1, 2, 0, 5, 3, 4}},
        {"bitmap 63", v1(6, {Chan(0x10000, 63)}), true, false, {0, 1, 2, 3, 4, 5}},
        {"bitmap 31", v1(5, {Chan(0x10000, 31)}), true, true, kUntouched},
        {"bitmap 63 under another tag", v1(6, {Chan(0x790005, 63)}), true, true, kUntouched},
        {"descriptions 3 1 2 5 6 4", v1(6, {Chan(0, 0, {3, 1, 2, 5, 6, 4})}), true, false, {1, 2, 0, 5, 3, 4}},
        {"labels 0 and 7 are no role, a later label wins", v1(6, {Chan(0, 0, {0, 1, 1, 7, 5, 6})}), true, false,
         {2, -1, -1, -1, 4, 5}},
        {"version 2: behind 72, channels from 48",
         SoundDescriptionV2("lpcm", 48000, 6, 16, I, 0, 1, {Chan(0, 0, {3, 1, 2, 5, 6, 4})}), true, false,
         {1, 2, 0, 5, 3, 4}},
        {"six descriptions on two channels", v1(2, {Chan(0, 0, {1, 2, 3, 4, 5, 6})}), false, false, kUntouched},
        {"two descriptions on two channels", v1(2, {Chan(0, 0, {1, 2})}), true, true, kUntouched},
        {"count past the atom", v1(6, {cutShort, Atom("free", Bytes(20))}), false, false, kUntouched},
        {"chan too short for its count", v1(6, {Atom("chan", ByteWriter().U32(0).U32(0x790006))}), false, false, kUntouched},
        {"no chan", v1(6, {}), false, false, kUntouched}, // must stay last
    };
    auto track = TrackOf(cases);
    ASSERT_TRUE(track);
    // Index -1 has no description: it answers as the last case.
    for (std::int32_t i = -1; i < static_cast<std::int32_t>(std::size(cases)); ++i) {
        const Case& c = cases[i < 0 ? std::size(cases) - 1 : i];
        SCOPED_TRACE(testing::Message() << i << ": " << c.name);
        std::vector<std::int32_t> map = kUntouched;
        bool notUnderstood = true;
        EXPECT_EQ(track->GetMultiChannelMap(i, map, notUnderstood), c.result);
        EXPECT_EQ(notUnderstood, c.notUnderstood);
        EXPECT_EQ(map, c.map);
    }
}

} // namespace
