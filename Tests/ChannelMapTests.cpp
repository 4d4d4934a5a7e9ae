// The 5.1 channel order of a `chan` extension, and the layouts it refuses.
#include <gtest/gtest.h>

#include "Tests/Support/SoundBuilder.h"

using namespace testsupport;

namespace {

using Order = std::vector<std::int32_t>;
// What the host's vector held before: 8 elements, so a known layout is seen
// to leave 6.
const Order kUntouched = {7, 7, 7, 7, 7, 7, 7, 7};

struct Answer {
    bool result;
    bool notUnderstood;
    Order map;
};

Answer Ask(const Bytes& description, std::int32_t index = 0)
{
    auto track = OpenTrack(SoundTrack(description));
    Answer a{false, true, kUntouched}; // the flag starts wrong, to see it reset
    a.result = track->GetMultiChannelMap(index, a.map, a.notUnderstood);
    return a;
}

Bytes V1With(std::uint16_t channels, const std::vector<Atom>& extensions)
{
    return SoundDescriptionV1("sowt", channels, 16, 48000u << 16, extensions);
}

TEST(ChannelMap, Layouts)
{
    struct Case {
        const char* name;
        std::uint16_t channels;
        Atom chan;
        Answer expected;
    };
    const Case cases[] = {
        {"L R C LFE Ls Rs", 6, Chan(0x790006, 0), {true, false, {0, 1, 2, 3, 4, 5}}},
        {"L R Ls Rs C LFE", 6, Chan(0x7a0006, 0), {true, false, {0, 1, 4, 5, 2, 3}}},
        {"L C R Ls Rs LFE", 6, Chan(0x7b0006, 0), {true, false, {0, 2, 1, 5, 3, 4}}},
        {"C L R Ls Rs LFE", 6, Chan(0x7c0006, 0), {true, false, {1, 2, 0, 5, 3, 4}}},
        {"bitmap 63", 6, Chan(0x10000, 63), {true, false, {0, 1, 2, 3, 4, 5}}},
        {"tagged 5.1 whatever the channel count", 2, Chan(0x7b0006, 0), {true, false, {0, 2, 1, 5, 3, 4}}},
        {"bitmap 31", 5, Chan(0x10000, 31), {true, true, kUntouched}},
        {"one step past the table", 6, Chan(0x7d0006, 0), {true, true, kUntouched}},
        {"stereo", 2, Chan(0x650002, 0), {true, true, kUntouched}},
        {"7.1", 8, Chan(0x800008, 0), {true, true, kUntouched}},
        {"bitmap 63 under another tag", 6, Chan(0x790005, 63), {true, true, kUntouched}},
        {"descriptions in the order 3 1 2 5 6 4", 6, Chan(0, 0, {3, 1, 2, 5, 6, 4}), {true, false, {1, 2, 0, 5, 3, 4}}},
        {"label 7 for the 4", 6, Chan(0, 0, {1, 2, 3, 7, 5, 6}), {true, false, {0, 1, 2, -1, 4, 5}}},
        {"a label twice: the later wins", 6, Chan(0, 0, {1, 1, 2, 3, 4, 5}), {true, false, {1, 2, 3, 4, 5, -1}}},
        {"label 0 is no role", 6, Chan(0, 0, {0, 2, 3, 4, 5, 6}), {true, false, {-1, 1, 2, 3, 4, 5}}},
        {"six descriptions on two channels", 2, Chan(0, 0, {1, 2, 3, 4, 5, 6}), {false, false, kUntouched}},
        {"two descriptions on two channels", 2, Chan(0, 0, {1, 2}), {true, true, kUntouched}},
        {"no descriptions on no channels", 0, Chan(0, 0), {true, true, kUntouched}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Answer a = Ask(V1With(c.channels, {c.chan}));
        EXPECT_EQ(a.result, c.expected.result);
        EXPECT_EQ(a.notUnderstood, c.expected.notUnderstood);
        EXPECT_EQ(a.map, c.expected.map);
    }
}

TEST(ChannelMap, NoChanAtom)
{
    for (const Bytes& description : {V1With(6, {}), V1With(6, {Wave({Frma("sowt")})}),
                                     V1With(6, {Wave({Chan(0x790006, 0)})})}) {
        const Answer a = Ask(description);
        EXPECT_FALSE(a.result);
        EXPECT_FALSE(a.notUnderstood);
        EXPECT_EQ(a.map, kUntouched);
    }
}

TEST(ChannelMap, FoundBehindWaveAndInVersion2)
{
    const Answer behindWave = Ask(V1With(6, {Wave({Enda(1)}), Chan(0x7a0006, 0)}));
    EXPECT_TRUE(behindWave.result);
    EXPECT_EQ(behindWave.map, (Order{0, 1, 4, 5, 2, 3}));

    // Version 2: found behind 72, and the channel count comes from 48.
    SoundV2 v;
    v.channels = 6;
    const Answer v2 = Ask(SoundDescriptionV2("lpcm", v, {Chan(0, 0, {3, 1, 2, 5, 6, 4})}));
    EXPECT_TRUE(v2.result);
    EXPECT_FALSE(v2.notUnderstood);
    EXPECT_EQ(v2.map, (Order{1, 2, 0, 5, 3, 4}));

    v.channels = 2;
    const Answer v2Stereo = Ask(SoundDescriptionV2("lpcm", v, {Chan(0, 0, {3, 1, 2, 5, 6, 4})}));
    EXPECT_FALSE(v2Stereo.result);
}

TEST(ChannelMap, DamagedChanStaysInsideTheAtom)
{
    // Six descriptions announced, room for five: answered as a mismatch.
    Atom cutShort = Chan(0, 0, {1, 2, 3, 4, 5, 6});
    cutShort.size = 8 + 16 + 5 * 20;
    const Answer a = Ask(V1With(6, {cutShort, Atom("free", ByteWriter().Zeros(20))}));
    EXPECT_FALSE(a.result);
    EXPECT_FALSE(a.notUnderstood);
    EXPECT_EQ(a.map, kUntouched);

    // A count near 2^32 on a 6-channel description.
    const Answer huge = Ask(V1With(6, {Chan(0, 0, {1, 2, 3, 4, 5, 6}, 0xffffffffu)}));
    EXPECT_FALSE(huge.result);
    EXPECT_EQ(huge.map, kUntouched);

    // A `chan` too short to hold its tag, bitmap and count is taken as absent.
    const Answer tiny = Ask(V1With(6, {Atom("chan", ByteWriter().U32(0).U32(0x790006))}));
    EXPECT_FALSE(tiny.result);
    EXPECT_FALSE(tiny.notUnderstood);

    // A `chan` that runs past the description is not found.
    Atom tooLong = Chan(0x790006, 0);
    tooLong.size = 400;
    EXPECT_FALSE(Ask(V1With(6, {tooLong})).result);
}

TEST(ChannelMap, NegativeIndexIsFalse)
{
    const Answer a = Ask(V1With(6, {Chan(0x790006, 0)}), -1);
    EXPECT_FALSE(a.result);
    EXPECT_FALSE(a.notUnderstood);
    EXPECT_EQ(a.map, kUntouched);
}

TEST(ChannelMap, ChooseDescriptionByIndex)
{
    TrackSpec plan = SoundTrack(V1With(2, {Chan(0x650002, 0)}));
    plan.descriptions.push_back(V1With(6, {Chan(0x7c0006, 0)}));
    auto track = OpenTrack(plan);
    Order map;
    bool flag = false;
    EXPECT_TRUE(track->GetMultiChannelMap(0, map, flag));
    EXPECT_TRUE(flag);
    EXPECT_TRUE(map.empty());
    EXPECT_TRUE(track->GetMultiChannelMap(1, map, flag));
    EXPECT_FALSE(flag);
    EXPECT_EQ(map, (Order{1, 2, 0, 5, 3, 4}));
}

} // namespace
