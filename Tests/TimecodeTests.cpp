// Timecode tracks: the description, where the sample lies, and the frame
// number in its bytes (the corpus movies' are in the corpus dump test).

#include "Tests/Support/Open.h"

namespace {

// Flags 3 (drop frame), 30000 units a second, 1001 a frame, 30 frames, then `tail`.
Bytes Description(const Bytes& tail = {}) { return TimecodeDescription(3, 30000, 1001, 30, tail); }

TEST(Timecode, DescriptionAndSourceName)
{
    const Bytes name = ByteWriter().U32(21).Code("name").U32(0).Text("Camera A!");
    Bytes pastEnd = Description(name), cut = Description();
    --pastEnd[3]; // the description's size leaves the name atom's last byte out
    cut[3] = 32;  // and here the frame count behind the ticks
    struct Case { const char* name; Bytes description; const char16_t* source; int frames; }; // -1: no field read
    const Case cases[] = {
        {"a name atom behind the fields", Description(name), u"Camera A!", 30},
        {"a name atom past the description", pastEnd, u"", 30},
        {"the frame count past the description", cut, u"", 0},
        {"too short for the fields: all read as 0", SampleDescription("tmcd", ByteWriter().U32(0)), u"", -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        QT::TimecodeInfo info{true, 9, 9, 9, false};
        QT::String16 source = u"stale";
        ASSERT_EQ(OpenTrackOf(TimecodeTrack(c.description, "tmcd", 1000)).track->GetTimecodeMediaInfo(info, source), 0);
        EXPECT_EQ(source, c.source);
        EXPECT_EQ(std::tuple(info.mDropFrame, info.mTimeScale, info.mTicksPerFrame, int{info.mNumberOfFrames}),
                  c.frames < 0 ? std::tuple(false, 0u, 0u, 0) : std::tuple(true, 30000u, 1001u, c.frames));
    }
}

TEST(Timecode, FrameValueAndTheFirstEdit)
{
    // `editTime`: the media time of the first of two edits, 0 for no edits; a `value` of 42: refused, none written.
    struct Case { const char* name, *subtype; Bytes sample; std::uint32_t editTime, ticks; std::int64_t value; };
    const Bytes hundred = ByteWriter().U32(100);
    const Case cases[] = {
        {"32 bits, signed", "tmcd", ByteWriter().U32(0xffffffff), 0, 1001, -1},
        {"three bytes", "tmcd", ByteWriter().U16(0).U8(7), 0, 1001, 42},
        {"eight bytes: the first four count", "tmcd", ByteWriter().U32(7).U32(9), 0, 1001, 7},
        {"tc64 reads 64 bits", "tc64", ByteWriter().U64(0x100000002ull), 0, 1001, 0x100000002ll},
        {"tc64 of nine bytes", "tc64", ByteWriter().U64(7).U8(0), 0, 1001, 42},
        {"whole frames of the first edit, an empty one as stored", "tmcd", hundred, ~0u, 6, 100 + 715827882},
        {"a negative frame length adds nothing", "tmcd", hundred, ~0u, 0xfffffffe, 100},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrackPlan plan = TimecodeTrack(Description(), c.subtype, 1000);
        if (c.editTime != 0) plan.edits = {{{100, c.editTime, 0x10000}, {100, 0, 0x10000}}};
        QT::TimecodeInfo info;
        info.mTicksPerFrame = c.ticks;
        std::int64_t value = 42;
        const Pelt::BinaryData data(c.sample.data(), c.sample.size());
        EXPECT_EQ(OpenTrackOf(plan).track->GetTimecodeFrameValue(data, info, value), c.value == 42 ? -1 : 0);
        EXPECT_EQ(value, c.value);
    }
}

TEST(Timecode, SampleLocation)
{
    struct Case { const char* name; std::vector<std::uint32_t> sizes; std::vector<std::uint64_t> chunks;
                  std::int32_t result; std::uint64_t offset; std::uint32_t size; };
    const Case cases[] = {
        {"the first of a table of sizes; a 64-bit offset", {8, 4}, {0x123456789ull, 5}, 0, 0x123456789ull, 8},
        {"no size at all", {}, {1000}, 0, 1000, 0},
        {"no chunk: the size is written, the offset is not", {8}, {}, -1, 77, 8},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrackPlan plan = TimecodeTrack(Description(), "tmcd", 1000);
        plan.stszSizes = c.sizes;
        plan.co64 = c.chunks;
        std::uint64_t offset = 77;
        std::uint32_t size = 9;
        EXPECT_EQ(OpenTrackOf(plan).track->GetTimecodeMediaSampleLocation(offset, size), c.result);
        EXPECT_EQ(std::pair(offset, size), std::pair(c.offset, c.size));
    }
    std::uint64_t offset = 0;
    std::uint32_t size = 0; // a track of another type breaks the contract
    EXPECT_THROW(OpenTrackOf(TrackPlan{}).track->GetTimecodeMediaSampleLocation(offset, size), vellum::config::Error);
}

} // namespace
