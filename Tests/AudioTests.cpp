// Sound tracks: format codes, widths, rate and channels of sound descriptions of
// every version, the byte order search, the 5.1 channel order of `chan`, the
// bounds of a description; and the file ranges of a track's frames within its
// edit, with the shapes that are refused.

#include "Tests/Support/Open.h"

namespace {

constexpr std::uint32_t k48k = 48000u << 16, I = 4; // version 2 flag: signed

// All cases in one track, case i in description i, so a reader that ignores
// the index, or reads past a short description into the next, fails a case.
// Index -1 has no description: it answers as the last case must.
template <class Case, class Check> void ForEachDescription(const std::vector<Case>& cases, Check check)
{
    std::vector<Bytes> descriptions;
    for (const Case& c : cases) descriptions.push_back(c.description);
    auto track = OpenTrackOf(SoundTrack(descriptions)).track;
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
    const nlohmann::json rows = DataRows("sound-formats.json");
    ASSERT_EQ(rows.size(), 18u);
    std::vector<Fields> cases;
    for (const nlohmann::json& row : rows) {
        const struct { int version; std::string stored; std::uint16_t size; std::int32_t order; unsigned n; } r
            = {row[0], row[1], row[2], row[3], row[5]};
        const auto word = static_cast<std::uint16_t>(r.version == 2 ? 1 : r.order);
        const auto wave = r.order < 0 ? std::vector<Atom>() : std::vector<Atom>{Wave({Atom("free"), Enda(word)})};
        cases.push_back({r.stored + " v" + std::to_string(r.version),
                         r.version == 2 ? SoundDescriptionV2(r.stored.c_str(), 48000, 2, r.size, r.order, 0, 1, wave)
                                        : SoundDescriptionV0(r.stored.c_str(), 2, r.size, k48k, wave, r.version, 16),
                         row[4].get_ref<const std::string&>().c_str(), 48000, 2, r.n, r.n}); // lives in `rows`
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
    const Atom zeroSized = Atom("free", Bytes(4)).Sized(0), pastWave = Atom("free", Bytes(4)).Sized(200);
    const Atom waveTooBig = Wave({Enda(1)}).Sized(500);
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
    auto video = OpenTrackOf(plan).track;
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
    const Atom cutShort = Chan(0, 0, {1, 2, 3, 4, 5, 6}).Sized(24 + 5 * 20); // six descriptions, room for five
    const Atom tiny("chan", ByteWriter().U32(0).U32(0x790006));
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

using Range = std::tuple<std::uint64_t, std::uint64_t, std::uint64_t>; // count, output position, offset
using Keyed = std::vector<std::pair<std::uint64_t, Range>>;

// The built track and the cases are in Data/audio-ranges.json. Each case maps both ways into a map that holds
// key 0 already: that key keeps its range (a first range keyed 0 is seen in the other map), the frames behind
// it still count, and a refusal adds nothing.
TEST(AudioRangeMap, RangesAndRefusals)
{
    const nlohmann::json cases = DataRows("audio-ranges.json");
    ASSERT_EQ(cases.size(), 29u);
    for (const nlohmann::json& c : cases) {
        SCOPED_TRACE(c[0].get<std::string>());
        TrackPlan t{.mediaType = "soun", .duration = 2000, .mediaTimeScale = 48000, .mediaDuration = 2000,
                    .descriptions = {SoundDescriptionV0("sowt", 2, 16, k48k)}, .stts = {{2000, 1}}, .stsc = {{1, 1000, 1}},
                    .stco = {5000, 9000}};
        Apply(c[1], t);
        auto track = OpenTrackOf(t, c.size() > 4 ? c[4].get<std::uint32_t>() : 48000).track;
        ASSERT_TRUE(track);
        for (bool byOffset : {false, true}) {
            QT::AudioSampleRangeMap map{{0, {7, 7, 7}}};
            EXPECT_EQ(track->MakeAudioSampleRangeMap(map, byOffset), CodeOf(c[3]));
            Keyed expected{{0, {7, 7, 7}}}, got;
            for (const Range& r : c[2].get<std::vector<Range>>())
                if (std::uint64_t key = byOffset ? std::get<2>(r) : std::get<1>(r); key != 0) expected.push_back({key, r});
            std::sort(expected.begin(), expected.end());
            for (const auto& [key, r] : map) got.push_back({key, {r.mSampleCount, r.mOutputPosition, r.mOffsetInFile}});
            EXPECT_EQ(got, expected) << (byOffset ? "by offset" : "by position");
        }
    }
}

} // namespace
