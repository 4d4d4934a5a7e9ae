// Sound descriptions: format codes, widths, rate and channels, the byte order
// search, the 5.1 channel order of `chan`, and the bounds of a description.
#include <gtest/gtest.h>

#include <limits>

#include "Tests/Support/Open.h"
#include "Tests/Support/SoundBuilder.h"

using namespace testsupport;

namespace {

constexpr std::uint32_t k48k = 48000u << 16, F = 1, B = 2, I = 4; // version 2 flags: float, big-endian, signed

// All cases in one track, case i in description i, so a reader that ignores
// the index, or reads past a short description into the next, fails a case.
// Index -1 has no description: it answers as the last case must.
template <class Case, class Check> void ForEachDescription(const std::vector<Case>& cases, Check check)
{
    std::vector<Bytes> descriptions;
    for (const Case& c : cases) descriptions.push_back(c.description);
    auto track = OpenTrack(SoundTrack(descriptions));
    ASSERT_TRUE(track);
    for (std::int32_t i = -1; i < static_cast<std::int32_t>(cases.size()); ++i) {
        SCOPED_TRACE(testing::Message() << i << ": " << cases[i < 0 ? cases.size() - 1 : i].name);
        check(*track, i, cases[i < 0 ? cases.size() - 1 : i]);
    }
    EXPECT_THROW(track->GetAudioMediaSampleRate(static_cast<std::int32_t>(cases.size())), vellum::config::Error);
}

// What a track reads from one description; `raw` empty: its stored code.
struct Fields { std::string name; Bytes description; const char* format = "fl32";
                std::uint32_t rate = 48000, channels = 2, bits = 32, packed = 32; std::string raw{}; };

// Behind the cases, a description that runs past `stsd`: there is none to read.
void CheckFields(std::vector<Fields> cases)
{
    Bytes pastStsd = SoundDescriptionV1("in24", 2, 16);
    pastStsd[2] = 0x10;
    cases.push_back({"past stsd", pastStsd, "unkn", 0, 0, 0, 0, std::string(4, '\0')});
    ForEachDescription(cases, [](QT::IQTTrack& track, std::int32_t i, const Fields& c) {
        const std::string format = c.format;
        EXPECT_EQ(FourCCText(track.GetAudioMediaDataFormat(i)), format);
        EXPECT_EQ(FourCCText(track.GetAudioMediaRawDataFormat(i)),
                  c.raw.empty() ? std::string(c.description.begin() + 4, c.description.begin() + 8) : c.raw);
        EXPECT_EQ(track.IsAudioMediaUncompressed(i), format != "unkn" && format != "ec-3");
        EXPECT_EQ(track.GetAudioMediaSampleRate(i), c.rate);
        EXPECT_EQ(track.GetAudioMediaNumChannels(i), c.channels);
        EXPECT_EQ(track.GetAudioMediaBitsPerSample(i), c.bits);
        EXPECT_EQ(track.GetAudioMediaPackedBitsPerSample(i), c.packed);
    });
}

// Versions 0 and 1: sample size S and the `enda` word (-1: no `wave`); the
// version 0 ones have 16 bytes of their own before it, as the search starts at
// 52 in every version but 2. Version 2: bits N and flags, with a little-endian
// `enda` that must not count. The corpus has the common formats.
TEST(SoundDescription, FormatCodesAndWidths)
{
    struct Row { int version; const char* stored; std::uint16_t size; std::int32_t order; const char* format; unsigned n; };
    const Row rows[] = {
        {0, "in24", 16, 0x100, "42ni", 24}, {1, "fl32", 16, 0, "fl32", 32},     {0, "fl64", 16, 1, "46lf", 64},
        {1, "twos", 24, 1, "in24", 24},     {0, "twos", 12, -1, "16be", 12},    {1, "lpcm", 16, 1, "16le", 16},
        {0, "mcpl", 8, 1, "unkn", 8},       {1, "42ni", 16, -1, "unkn", 16},    {0, "ec-3", 16, 1, "ec-3", 16},
        {2, "lpcm", 32, F | I, "unkn", 32}, {2, "lpcm", 8, I | B, "twos", 8},   {2, "lpcm", 8, F, "raw ", 8},
        {2, "lpcm", 24, F | B, "unkn", 24}, {2, "lpcm", 32, I, "23ni", 32},     {2, "lpcm", 32, F | B, "fl32", 32},
        {2, "lpcm", 64, F, "46lf", 64},     {2, "lpcm", 64, B | I, "unkn", 64}, {2, "twos", 16, B | I, "unkn", 16},
    };
    std::vector<Fields> cases;
    for (const Row& r : rows) {
        const auto word = static_cast<std::uint16_t>(r.version == 2 ? 1 : r.order);
        const auto wave = r.order < 0 ? std::vector<Atom>() : std::vector<Atom>{Wave({Atom("free"), Enda(word)})};
        cases.push_back({std::string(r.stored) + " v" + std::to_string(r.version),
                         r.version == 2 ? SoundDescriptionV2(r.stored, 48000, 2, r.size, r.order, 0, 1, wave)
                                        : SoundDescriptionV0(r.stored, 2, r.size, k48k, wave, r.version, 16),
                         r.format, 48000, 2, r.n, r.n});
    }
    CheckFields(cases);
}

TEST(SoundDescription, ShortAndHostileDescriptions)
{
    auto v2 = [](double rate, std::uint32_t channels, std::uint32_t bits, std::uint32_t bytes, std::uint32_t frames) {
        return SoundDescriptionV2("lpcm", rate, channels, bits, I, bytes, frames);
    };
    auto fl32 = [](std::vector<Atom> extensions) { return SoundDescriptionV1("fl32", 2, 16, extensions); };
    Bytes cutAt52 = v2(96000, 2, 16, 0, 1);
    cutAt52.resize(52);
    cutAt52[3] = 52;
    Atom zeroSized("free", Bytes(4)), pastWave("free", Bytes(4)), waveTooBig = Wave({Enda(1)});
    zeroSized.size = 0;
    pastWave.size = 200;
    waveTooBig.size = 500;
    CheckFields({
        {"rate loses its fraction, sign-extended fields",
         SoundDescriptionV0("twos", 0xffff, 0xfff8, (44100u << 16) | 0x8000), "16be", 44100, ~0u, ~7u, ~7u},
        {"24 bytes: no fields", SampleDescription("sowt", Bytes(8)), "16le", 0, 0, 0, 0},
        {"version 1 without the marker", SoundDescriptionV1("lpcm", 3, 16, {Atom("free", Bytes(12))}, 0x10000), "16be", 1, 3,
         16, 16},
        {"version 2 layout cut at 52", cutAt52, "16be", 1, 3, 16, 16},
        {"bytes / frames * 8 / channels", v2(48000.5, 2, 24, 6, 1), "42ni", 48000, 2, 24, 24},
        {"24 bits in 32-bit containers, negative rate", v2(-48000, 2, 24, 8, 1), "42ni", 0, 2, 24, 32},
        {"truncated at each division, largest rate", v2(4294967295.9, 1, 16, 4, 3), "16le", 4294967295u, 1, 16, 8},
        {"no bytes per packet, rate past 32 bits", v2(1e12, 2, 20, 0, 1), "unkn", 0, 2, 20, 20},
        {"no frames per packet, rate not a number", v2(std::numeric_limits<double>::quiet_NaN(), 2, 20, 6, 0), "unkn", 0,
         2, 20, 20},
        {"no channels", v2(44100, 0, 20, 6, 1), "unkn", 44100, 0, 20, 20},
        {"wave behind chan", fl32({Chan(0x650002, 0), Wave({Enda(1)})}), "23lf"},
        {"child of size 0 hides enda", fl32({Wave({zeroSized, Enda(1)})})},
        {"child past the wave's end", fl32({Wave({pastWave, Enda(1)})})},
        {"wave past the description's end", fl32({waveTooBig})},
        {"enda too short for its word", fl32({Wave({Atom("enda", Bytes(1, 1))})})},
        {"52 bytes, with a wave behind them", fl32({})}, // the wave is the next case
        {"the wave read as an 18-byte description", Wave({Enda(1)}).Serialize(), "unkn", 0, 0, 0, 0},
    });
}

TEST(SoundDescription, OtherMediaIsAContractFailure)
{
    TrackPlan plan = SoundTrack({SoundDescriptionV0("sowt", 2, 16, k48k)});
    plan.mediaType = "vide";
    auto video = OpenTrack(plan);
    ASSERT_TRUE(video);
    QT::AudioSampleRangeMap map;
    QT::ChannelOrderMap order;
    bool flag = false;
    EXPECT_THROW(video->GetAudioMediaNumChannels(0), vellum::config::Error);
    EXPECT_THROW(video->IsAudioMediaUncompressed(0), vellum::config::Error);
    EXPECT_THROW(video->MakeAudioSampleRangeMap(map, false), vellum::config::Error);
    EXPECT_THROW(video->GetMultiChannelMap(0, order, flag), vellum::config::Error);
}

// The tagged layouts and the bitmap one are in the corpus.
TEST(ChannelMap, LayoutsAndDamagedChan)
{
    struct Case { const char* name; Bytes description; bool result, notUnderstood; std::vector<std::int32_t> map; };
    const std::vector<std::int32_t> kUntouched(8, 7); // 8 elements, so a 5.1 answer is seen to leave 6
    auto v1 = [](std::uint16_t channels, std::vector<Atom> ext) { return SoundDescriptionV1("sowt", channels, 16, ext); };
    Atom cutShort = Chan(0, 0, {1, 2, 3, 4, 5, 6}), tiny("chan", ByteWriter().U32(0).U32(0x790006));
    cutShort.size = 24 + 5 * 20; // six descriptions announced, room for five
    ForEachDescription<Case>({
        {"C L R Ls Rs LFE on 2 channels", v1(2, {Chan(0x7c0006, 0)}), true, false, {1, 2, 0, 5, 3, 4}},
        {"bitmap 63 under another tag", v1(6, {Chan(0x790005, 63)}), true, true, kUntouched},
        {"labels 0 and 7 are no role, a later label wins", v1(6, {Chan(0, 0, {0, 3, 3, 7, 5, 6})}), true, false,
         {-1, -1, 2, -1, 4, 5}},
        {"six descriptions on two channels", v1(2, {Chan(0, 0, {1, 2, 3, 4, 5, 6})}), false, false, kUntouched},
        {"two descriptions on two channels", v1(2, {Chan(0, 0, {1, 2})}), true, true, kUntouched},
        {"count past the atom", v1(6, {cutShort, Atom("free", Bytes(20))}), false, false, kUntouched},
        {"chan too short for its count", v1(6, {tiny}), false, false, kUntouched},
        {"no chan", v1(6, {}), false, false, kUntouched}, // last: what index -1 answers
    }, [&](QT::IQTTrack& track, std::int32_t i, const Case& c) {
        std::vector<std::int32_t> map = kUntouched;
        bool notUnderstood = true;
        EXPECT_EQ(track.GetMultiChannelMap(i, map, notUnderstood), c.result);
        EXPECT_EQ(std::pair(notUnderstood, map), std::pair(c.notUnderstood, c.map));
    });
}

} // namespace
