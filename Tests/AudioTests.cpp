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
    const nlohmann::json rows = nlohmann::json::parse(std::ifstream(TestDataDir() / "sound-formats.json"))["cases"];
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

using Range = std::tuple<std::uint64_t, std::uint64_t, std::uint64_t>; // count, output position, offset
using Keyed = std::vector<std::pair<std::uint64_t, Range>>;
using Entries = std::vector<std::array<std::uint32_t, 3>>;

Change Edits(Entries edits) { return [=](TrackPlan& t) { t.edits = edits; }; }
Change Edit(std::uint32_t duration, std::uint32_t mediaTime) { return Edits({{duration, mediaTime, 0x10000}}); }
Change Runs(Entries stsc) { return [=](TrackPlan& t) { t.stsc = stsc; }; }
Change Stts(std::vector<std::pair<std::uint32_t, std::uint32_t>> stts) { return [=](TrackPlan& t) { t.stts = stts; }; }
Change Duration(std::uint32_t d) { return [=](TrackPlan& t) { t.duration = d; }; }
Change Described(Bytes d) { return [=](TrackPlan& t) { t.descriptions = {d}; }; }
Change All(std::vector<Change> changes) { return [=](TrackPlan& t) { for (const Change& c : changes) c(t); }; }
Change Stbl(std::vector<Atom> atoms) { return [=](TrackPlan& t) { t.replaceStbl = atoms; }; }
Atom Hostile(const char* type, ByteWriter entries) { return Atom(type, ByteWriter().U32(0).U32(~0u).Raw(entries)); }

// Stereo 16-bit, 4 bytes a frame, chunks of 1000 frames at 5000 and 9000, with
// `change` made; the movie at `movieTimeScale`. Each case maps both ways into a
// map that holds key 0 already: that key keeps its range (a first range keyed 0
// is seen in the other map), the frames behind it still count, and a refusal
// adds nothing.
TEST(AudioRangeMap, RangesAndRefusals)
{
    struct Case { const char* name; Change change; std::vector<Range> ranges;
                  QT::ResultCode code = 0; std::uint32_t movieTimeScale = 48000; };
    const Range first{1000, 0, 5000}, second{1000, 1000, 9000};
    const QT::ResultCode kShape = QT::kResultAudioShape;
    const Case cases[] = {
        {"no edit", All({}), {first, second}},
        {"inside the second chunk", Edit(300, 1500), {{300, 0, 11000}}},
        {"across the chunk boundary", Edit(1000, 500), {{500, 0, 7000}, {500, 500, 9000}}},
        {"ends on a chunk boundary", Edit(1000, 0), {first}},
        {"starts at a chunk's end", Edit(500, 1000), {{500, 0, 9000}}},
        {"past the last frame", Edit(5000, 1999), {{1, 0, 12996}}},
        {"media time -1", Edit(1000, ~0u), {}},
        {"edit of 15 at 600: 1200 frames", All({Edit(15, 0), Duration(15)}), {first, {200, 1000, 9000}}, 0, 600},
        {"track duration of 5 at 600", Duration(5), {{400, 0, 5000}}, 0, 600},
        {"a first run of no chunk", Runs({{1, 999, 1}, {1, 1000, 1}}), {first, second}},
        {"first chunks that decrease: a run of nearly 2^32", Runs({{2, 1000, 1}, {1, 1000, 1}}), {first, second}},
        {"runs of other sizes, the last past the table", Runs({{1, 1000, 1}, {2, 500, 1}, {5, 7, 1}}),
         {first, {500, 1000, 9000}}},
        {"table counts near 2^32: only what the copy holds",
         Stbl({Hostile("stsc", ByteWriter().U32(1).U32(10).U32(1)), Hostile("stco", ByteWriter().U32(0).U32(10))}),
         {{10, 0, 0}, {10, 10, 10}}},
        // The run that reaches the last sample is finished; the next is not visited.
        {"stop at the end of the run that reaches the samples",
         All({Stts({{1500, 1}}), Runs({{1, 1000, 1}, {3, 1000, 1}}), Duration(5000),
              [](TrackPlan& t) { t.stco = {5000, 9000, 13000}; }}),
         {first, second}},
        // Widened as signed: from 2^31 on the count never stops the walk.
        {"a sample count of 2^31", All({Stts({{0x80000000u, 1}}), Runs({{1, 0x80000000u, 1}, {2, 10, 1}}), Duration(~0u)}),
         {{0x80000000u, 0, 5000}, {10, 0x80000000u, 9000}}},
        // Mono `in24` of sample size 16: 3 bytes a frame.
        {"24 bits from the format, offsets above 32 bits",
         All({Described(SoundDescriptionV1("in24", 1, 16)), Edit(1000, 500),
              [](TrackPlan& t) { t.co64 = std::vector<std::uint64_t>{0x123456789ull, 0x223456789ull}; }}),
         {{500, 0, 0x123456789ull + 1500}, {500, 500, 0x223456789ull}}},
        {"12-bit samples count as one byte",
         All({Described(SoundDescriptionV0("twos", 3, 12, k48k)), Edit(100, 10)}), {{100, 0, 5000 + 10 * 3}}},
        {"no samples", Stts({{0, 1}}), {}},
        {"no stsc entries", Runs({}), {}},
        {"no chunks", [](TrackPlan& t) { t.stco = {}; }, {}},
        {"two edits and two stts entries: the edits first",
         All({Stts({{1000, 1}, {1000, 2}}), Edits({{1000, 0, 0x10000}, {1000, 1000, 0x10000}})}), {},
         QT::kResultEditListNotSimple},
        {"two stts entries", Stts({{1000, 1}, {1000, 2}}), {}, kShape},
        {"no stts entry", Stts({}), {}, kShape},
        {"0 channels", Described(SoundDescriptionV0("sowt", 0, 16, k48k)), {}, kShape},
        {"negative channels", Described(SoundDescriptionV0("sowt", 0xfffe, 16, k48k)), {}, kShape},
        {"2^16 channels in version 2", Described(SoundDescriptionV2("lpcm", 48000, 0x10000, 16, 4, 4)), {}, kShape},
        {"7 bits", Described(SoundDescriptionV0("sowt", 2, 7, k48k)), {}, kShape},
        {"65 bits", Described(SoundDescriptionV0("sowt", 2, 65, k48k)), {}, kShape},
        {"no description", Stbl({Stsd({})}), {}, kShape},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrackPlan t{.mediaType = "soun", .duration = 2000, .mediaTimeScale = 48000, .mediaDuration = 2000,
                    .descriptions = {SoundDescriptionV0("sowt", 2, 16, k48k)}, .stts = {{2000, 1}}, .stsc = {{1, 1000, 1}},
                    .stco = {5000, 9000}};
        c.change(t);
        auto track = OpenTrackOf(t, c.movieTimeScale).track;
        ASSERT_TRUE(track);
        for (bool byOffset : {false, true}) {
            QT::AudioSampleRangeMap map{{0, {7, 7, 7}}};
            EXPECT_EQ(track->MakeAudioSampleRangeMap(map, byOffset), c.code);
            Keyed expected{{0, {7, 7, 7}}}, got;
            for (const Range& r : c.ranges)
                if (std::uint64_t key = byOffset ? std::get<2>(r) : std::get<1>(r); key != 0) expected.push_back({key, r});
            std::sort(expected.begin(), expected.end());
            for (const auto& [key, r] : map) got.push_back({key, {r.mSampleCount, r.mOutputPosition, r.mOffsetInFile}});
            EXPECT_EQ(got, expected) << (byOffset ? "by offset" : "by position");
        }
    }
}

} // namespace
