// Timecode tracks: the description, where the sample lies, and the frame
// number in its bytes, against the corpus and against built tracks.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>

#include "Tests/Support/DataReferenceBuilder.h"
#include "Tests/Support/TrackOpener.h"

using namespace testsupport;

namespace {

// Frame number to the text of a timecode, dropping frame numbers as
// drop-frame timecode does (two a minute at 30 frames, but every tenth minute).
std::string FormatTimecode(std::int64_t frame, std::int64_t fps, bool drop)
{
    if (drop) {
        const std::int64_t dropped = fps / 15;
        const std::int64_t perTenMinutes = fps * 600 - dropped * 9;
        const std::int64_t perMinute = fps * 60 - dropped;
        const std::int64_t tens = frame / perTenMinutes, rest = frame % perTenMinutes;
        frame += dropped * 9 * tens + (rest > dropped ? dropped * ((rest - dropped) / perMinute) : 0);
    }
    const std::int64_t seconds = frame / fps;
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d%c%02d", static_cast<int>(seconds / 3600 % 24),
                  static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60), drop ? ';' : ':',
                  static_cast<int>(frame % fps));
    return text;
}

Bytes TimecodeDescription(std::uint32_t flags, std::uint32_t timeScale, std::uint32_t frameDuration,
                          std::uint8_t frames, const Bytes& tail = {})
{
    ByteWriter body;
    body.U32(0).U32(flags).U32(timeScale).U32(frameDuration).U8(frames).U8(0).Raw(tail);
    return SampleDescription("tmcd", body);
}

Bytes NameAtom(const std::string& text, std::optional<std::uint32_t> size = {}, const char* type = "name")
{
    return ByteWriter().U32(size.value_or(static_cast<std::uint32_t>(12 + text.size()))).Code(type).U16(
        static_cast<std::uint32_t>(text.size())).U16(0).Text(text);
}

TrackSpec TimecodeTrack(const Bytes& description = TimecodeDescription(0, 2500, 100, 25))
{
    TrackSpec plan;
    plan.mediaType = "tmcd";
    plan.flags = 2;
    plan.descriptions = {description};
    plan.stszConstant = 4;
    plan.stszSizes = {4};
    plan.stco = {1000};
    return plan;
}

TEST(Timecode, CorpusMoviesCountAndLocateTheirSample)
{
    struct Case {
        const char* movie;
        std::uint64_t track;
        int stream;
    };
    const Case cases[] = {
        {"tc_24fps", 1, 1}, {"tc_25fps", 1, 1}, {"tc_2997_dropframe", 1, 1},
        {"prores_hq_tc_pcm24", 2, 2}, {"broadcast_2997_tc_c608_aac", 3, 3},
    };
    static const std::regex description(
        R"(tmcd format=tmcd .* drop_frame=(True|False) .* )"
        R"(timescale=(\d+) frame_duration=(\d+) number_of_frames=(\d+))");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.movie);
        OpenedTrack t = OpenTrackAt(CorpusPath(c.movie), c.track);
        EXPECT_EQ(t.track->GetTrackMediaType(), QT::kTimecodeMediaType);

        const std::string atoms = ReadCorpusText(c.movie, ".atoms.txt");
        std::smatch m;
        ASSERT_TRUE(std::regex_search(atoms, m, description));
        QT::TimecodeInfo info;
        QT::String16 name = u"stale";
        ASSERT_EQ(t.track->GetTimecodeMediaInfo(info, name), 0);
        EXPECT_EQ(info.mDropFrame, m[1] == "True");
        EXPECT_EQ(info.mTimeScale, std::stoul(m[2]));
        EXPECT_EQ(info.mTicksPerFrame, std::stoul(m[3]));
        EXPECT_EQ(info.mNumberOfFrames, std::stoul(m[4]));
        EXPECT_FALSE(info.mHandleReference);
        EXPECT_TRUE(name.empty()); // ffmpeg writes no source name

        const std::vector<ProbePacket> packets = ProbePackets(c.movie, c.stream);
        ASSERT_EQ(packets.size(), 1u);
        std::uint64_t offset = 0;
        std::uint32_t size = 0;
        ASSERT_EQ(t.track->GetTimecodeMediaSampleLocation(offset, size), 0);
        EXPECT_EQ(offset, packets[0].pos);
        EXPECT_EQ(size, packets[0].size);

        const Bytes file = ReadFile(t.path);
        ASSERT_LE(offset + size, file.size());
        const Pelt::BinaryData sample(file.data() + offset, size);
        std::int64_t frame = -7;
        ASSERT_EQ(t.track->GetTimecodeFrameValue(sample, info, frame), 0);
        EXPECT_EQ(FormatTimecode(frame, info.mNumberOfFrames, info.mDropFrame), ProbeTag(c.movie, "timecode"));

        std::uint64_t handleValue = 5;
        EXPECT_EQ(t.track->GetTimecodeHandleValue(handleValue), -1);
        EXPECT_EQ(handleValue, 5u);
    }
}

TEST(Timecode, DescriptionAndSourceName)
{
    struct Case {
        const char* name;
        Bytes description;
        const char16_t* sourceName;
    };
    const Case cases[] = {
        {"a name", TimecodeDescription(3, 30000, 1001, 30, NameAtom("Camera A")), u"Camera A"},
        {"34 bytes: no room for a name", TimecodeDescription(3, 30000, 1001, 30), u""},
        {"two bytes of zero behind", TimecodeDescription(3, 30000, 1001, 30, Bytes(2, 0)), u""},
        {"an atom of another type", TimecodeDescription(3, 30000, 1001, 30, NameAtom("Camera A", {}, "junk")), u""},
        {"an atom below its own head", TimecodeDescription(3, 30000, 1001, 30, NameAtom("Camera A", 11)), u""},
        {"an atom past the description", TimecodeDescription(3, 30000, 1001, 30, NameAtom("Camera A", 21)), u""},
        {"an empty name", TimecodeDescription(3, 30000, 1001, 30, NameAtom("")), u""},
        {"a NUL ends the name", TimecodeDescription(3, 30000, 1001, 30, NameAtom(std::string("ab\0cd", 5))), u"ab"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        OpenedTrack t = OpenTrackOf(TimecodeTrack(c.description));
        QT::TimecodeInfo info;
        QT::String16 name = u"stale";
        ASSERT_EQ(t.track->GetTimecodeMediaInfo(info, name), 0);
        EXPECT_TRUE(info.mDropFrame); // bit 0 of 3
        EXPECT_EQ(info.mTimeScale, 30000u);
        EXPECT_EQ(info.mTicksPerFrame, 1001u);
        EXPECT_EQ(info.mNumberOfFrames, 30u);
        EXPECT_EQ(name, QT::String16(c.sourceName));
    }
    {
        SCOPED_TRACE("a description too short for the fields reads them as 0");
        OpenedTrack t = OpenTrackOf(TimecodeTrack(SampleDescription("tmcd", ByteWriter().U32(0))));
        QT::TimecodeInfo info;
        info.mTimeScale = info.mTicksPerFrame = 9;
        QT::String16 name;
        ASSERT_EQ(t.track->GetTimecodeMediaInfo(info, name), 0);
        EXPECT_FALSE(info.mDropFrame);
        EXPECT_EQ(info.mTimeScale, 0u);
        EXPECT_EQ(info.mTicksPerFrame, 0u);
        EXPECT_EQ(info.mNumberOfFrames, 0u);
    }
}

TEST(Timecode, HandleReferenceValue)
{
    struct Case {
        const char* name;
        std::vector<Bytes> entries;
        bool handleReference;
        std::int32_t result;
        std::uint64_t value;
    };
    const Case cases[] = {
        {"four bytes, read unsigned", {HandleEntry(ByteWriter().U32(0xffffffff))}, true, 0, 4294967295u},
        {"a frame number", {HandleEntry(ByteWriter().U32(90000))}, true, 0, 90000},
        {"two bytes", {HandleEntry(ByteWriter().U16(1))}, true, -1, 5},
        {"eight bytes", {HandleEntry(ByteWriter().U64(1))}, true, -1, 5},
        {"two references", {HandleEntry(ByteWriter().U32(1)), ReferenceEntry("url ", 1)}, false, -1, 5},
        {"a url reference", {ReferenceEntry("url ", 1)}, false, -1, 5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrackSpec plan = TimecodeTrack();
        plan.dinf = DataInformation(c.entries);
        OpenedTrack t = OpenTrackOf(plan);
        QT::TimecodeInfo info;
        QT::String16 name;
        t.track->GetTimecodeMediaInfo(info, name);
        EXPECT_EQ(info.mHandleReference, c.handleReference);
        std::uint64_t value = 5;
        EXPECT_EQ(t.track->GetTimecodeHandleValue(value), c.result);
        EXPECT_EQ(value, c.value);
    }
}

TEST(Timecode, FrameValue)
{
    using Edits = std::optional<std::vector<std::array<std::uint32_t, 3>>>;
    struct Case {
        const char* name;
        const char* subtype;
        Bytes sample;
        Edits edits;
        std::uint32_t ticksPerFrame;
        std::int32_t result;
        std::int64_t value;
    };
    const Case cases[] = {
        {"all ones are -1", "tmcd", ByteWriter().U32(0xffffffff), {}, 1001, 0, -1},
        {"eight bytes: the first four count", "tmcd", ByteWriter().U32(7).U32(9), {}, 1001, 0, 7},
        {"three bytes", "tmcd", ByteWriter().U16(0).U8(7), {}, 1001, -1, 42},
        {"no bytes", "tmcd", {}, {}, 1001, -1, 42},
        {"tc64 reads 64 bits", "tc64", ByteWriter().U64(0x100000002ull), {}, 1001, 0, 0x100000002ll},
        {"tc64 of four bytes", "tc64", ByteWriter().U32(7), {}, 1001, -1, 42},
        {"tc64 of nine bytes", "tc64", ByteWriter().U64(7).U8(0), {}, 1001, -1, 42},
        {"an edit of 3003 adds 3", "tmcd", ByteWriter().U32(100), Edits{{{100, 3003, 0x10000}}}, 1001, 0, 103},
        {"an edit of 3002 adds 2", "tmcd", ByteWriter().U32(100), Edits{{{100, 3002, 0x10000}}}, 1001, 0, 102},
        {"no frame length: nothing added", "tmcd", ByteWriter().U32(100), Edits{{{100, 3003, 0x10000}}}, 0, 0, 100},
        {"a negative frame length: nothing added", "tmcd", ByteWriter().U32(100), Edits{{{100, 3003, 0x10000}}},
         0x80000000u, 0, 100},
        {"an empty first edit counts as stored", "tmcd", ByteWriter().U32(0),
         Edits{{{100, 0xffffffff, 0x10000}, {100, 0, 0x10000}}}, 1001, 0, 0xffffffffll / 1001},
        {"the first of two edits", "tmcd", ByteWriter().U32(0), Edits{{{100, 2002, 0x10000}, {100, 0, 0x10000}}}, 1001,
         0, 2},
        {"no edit list", "tmcd", ByteWriter().U32(100), {}, 1001, 0, 100},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrackSpec plan = TimecodeTrack();
        plan.hdlrSubtype = c.subtype;
        plan.edits = c.edits;
        OpenedTrack t = OpenTrackOf(plan);
        EXPECT_EQ(t.track->GetTrackMediaType(), QT::kTimecodeMediaType);
        QT::TimecodeInfo info;
        info.mTicksPerFrame = c.ticksPerFrame;
        std::int64_t value = 42;
        const Pelt::BinaryData data =
            c.sample.empty() ? Pelt::BinaryData() : Pelt::BinaryData(c.sample.data(), c.sample.size());
        EXPECT_EQ(t.track->GetTimecodeFrameValue(data, info, value), c.result);
        EXPECT_EQ(value, c.value);
    }
}

TEST(Timecode, SampleLocation)
{
    {
        SCOPED_TRACE("a constant size");
        OpenedTrack t = OpenTrackOf(TimecodeTrack());
        std::uint64_t offset = 0;
        std::uint32_t size = 0;
        EXPECT_EQ(t.track->GetTimecodeMediaSampleLocation(offset, size), 0);
        EXPECT_EQ(offset, 1000u);
        EXPECT_EQ(size, 4u);
    }
    {
        SCOPED_TRACE("a table of sizes, and 64-bit chunk offsets of a tc64 track");
        TrackSpec plan = TimecodeTrack();
        plan.hdlrSubtype = "tc64";
        plan.stszConstant = 0;
        plan.stszSizes = {8, 4};
        plan.co64 = std::vector<std::uint64_t>{0x123456789ull, 5};
        OpenedTrack t = OpenTrackOf(plan);
        std::uint64_t offset = 0;
        std::uint32_t size = 0;
        EXPECT_EQ(t.track->GetTimecodeMediaSampleLocation(offset, size), 0);
        EXPECT_EQ(offset, 0x123456789ull);
        EXPECT_EQ(size, 8u);
    }
    {
        SCOPED_TRACE("no chunk: the size is written, the offset is not");
        TrackSpec plan = TimecodeTrack();
        plan.stco = {};
        OpenedTrack t = OpenTrackOf(plan);
        std::uint64_t offset = 77;
        std::uint32_t size = 0;
        EXPECT_EQ(t.track->GetTimecodeMediaSampleLocation(offset, size), -1);
        EXPECT_EQ(offset, 77u);
        EXPECT_EQ(size, 4u);
    }
    {
        SCOPED_TRACE("no size at all");
        TrackSpec plan = TimecodeTrack();
        plan.stszConstant = 0;
        plan.stszSizes = {};
        OpenedTrack t = OpenTrackOf(plan);
        std::uint64_t offset = 0;
        std::uint32_t size = 9;
        EXPECT_EQ(t.track->GetTimecodeMediaSampleLocation(offset, size), 0);
        EXPECT_EQ(size, 0u);
    }
    {
        SCOPED_TRACE("a track of another type breaks the contract");
        OpenedTrack t = OpenTrackOf(TrackSpec{});
        std::uint64_t offset = 0;
        std::uint32_t size = 0;
        EXPECT_THROW(t.track->GetTimecodeMediaSampleLocation(offset, size), vellum::config::Error);
    }
}

} // namespace
