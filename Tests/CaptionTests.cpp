// Caption tracks: where each `c608`/`c708` data run lies and when it
// applies, against the corpus caption movies and against built tracks.
#include <gtest/gtest.h>

#include "Tests/Support/TrackOpener.h"

using namespace testsupport;

namespace QT {
void PrintTo(const CaptionSampleRecord& r, std::ostream* os)
{
    *os << "{time " << r.mTime << ", " << r.mOffset << "+" << r.mLength;
    if (r.mHasSecondData) *os << ", " << r.mSecondOffset << "+" << r.mSecondLength;
    *os << "}";
}
} // namespace QT

namespace {

constexpr std::uint64_t kBase = kMdatPayloadStart;
const QT::String16 kNoFile = u"/nonexistent-directory/none.mov";

QT::CaptionSampleRecord Pair(std::uint64_t time, std::uint64_t offset)
{
    return {time, offset, 2, false, 0, 0};
}

TrackSpec CaptionTrack(const char* format = "c608")
{
    TrackSpec plan;
    plan.mediaType = "clcp";
    plan.flags = 3;
    plan.duration = 6000; // 10 s at 600
    plan.mediaTimeScale = 30000;
    plan.mediaDuration = 300000;
    plan.descriptions = {SampleDescription(format, {})};
    return plan;
}

OpenedTrack OpenCaptions(const TrackSpec& track, const Bytes& mdat = Bytes(64, 0))
{
    MovieSpec movie;
    movie.duration = 6000;
    movie.tracks = {track};
    return OpenTrackOf(BuildMovieFileMediaFirst(movie, mdat));
}

QT::CaptionSampleMap Table(const OpenedTrack& t, bool byOffset, const QT::String16* path = nullptr)
{
    QT::CaptionSampleMap table;
    EXPECT_EQ(t.track->MakeCaptionSampleTable(path ? *path : t.Path16(), table, byOffset), QT::kResultSuccess);
    return table;
}

// A `cdat` sample: its 8-byte header, then `pairs` byte pairs.
Bytes CdatSample(std::uint32_t pairs)
{
    ByteWriter w;
    w.U32(8 + 2 * pairs).Code("cdat");
    for (std::uint32_t i = 0; i < pairs; ++i) w.U8(0x94).U8(0x20 + i);
    return w.Take();
}

TEST(Caption, CorpusCaptionsMatchTheProbedPackets)
{
    struct Case {
        const char* movie;
        std::uint64_t track;
        int stream;
        std::int32_t frameDuration; // common divisor of the `stts` durations in the atom listing
        ProbePacket last;           // the last sample, of duration 0, that ffprobe leaves out (from the atom listing)
    };
    const Case cases[] = {
        {"c608_captions_25fps", 1, 1, 1000, {3000, 12, 50036}},
        {"broadcast_2997_tc_c608_aac", 2, 2, 5, {3000, 12, 81898}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.movie);
        OpenedTrack t = OpenTrackAt(CorpusPath(c.movie), c.track);
        EXPECT_EQ(t.track->GetTrackMediaType(), QT::kClosedCaptionMediaType);
        EXPECT_EQ(t.track->GetCaptionMediaFormat(0), QT::MakeFourCC("c608"));
        EXPECT_EQ(t.track->GetCaptionFrameDuration(), c.frameDuration);

        // ffprobe turns each pair behind the `cdat` header into a 3-byte triplet,
        // and its times carry the leading empty edit.
        std::vector<QT::CaptionSampleRecord> expected;
        std::vector<ProbePacket> samples = ProbePackets(c.movie, c.stream);
        ASSERT_EQ(samples.size(), 3u);
        for (ProbePacket& p : samples) p.size = 8 + p.size / 3 * 2;
        samples.push_back(c.last);
        for (const ProbePacket& p : samples)
            for (std::uint64_t j = 0; j < (p.size - 8) / 2; ++j)
                expected.push_back(Pair(static_cast<std::uint64_t>(p.pts) + j * c.frameDuration, p.pos + 8 + 2 * j));

        QT::CaptionSampleMap byOffset = Table(t, true);
        ASSERT_EQ(byOffset.size(), expected.size());
        for (const QT::CaptionSampleRecord& r : expected) EXPECT_EQ(byOffset.at(r.mOffset), r);

        QT::CaptionSampleMap byTime;
        for (const QT::CaptionSampleRecord& r : expected) byTime.emplace(r.mTime, r); // the first record stands
        EXPECT_EQ(Table(t, false), byTime);
    }
}

TEST(Caption, FixedFormNeverTouchesTheFile)
{
    TrackSpec plan = CaptionTrack();
    plan.stts = {{3, 1001}};
    plan.stsc = {{1, 2, 1}};
    plan.stszConstant = 20;
    plan.stszSizes = {20, 20, 20};
    plan.stco = {1000, 5000};
    OpenedTrack t = OpenCaptions(plan);
    QT::CaptionSampleMap table = Table(t, false, &kNoFile);
    const QT::CaptionSampleMap expected = {
        {0, {0, 1008, 2, true, 1018, 2}},
        {1001, {1001, 1028, 2, true, 1038, 2}},
        {2002, {2002, 5008, 2, true, 5018, 2}}};
    EXPECT_EQ(table, expected);
}

TEST(Caption, VariableC608Samples)
{
    struct Case {
        const char* name;
        Bytes mdat;                      // chunk 0 starts at its first byte
        std::vector<std::uint32_t> sizes; // all in chunk 0
        bool realFile;
        std::vector<QT::CaptionSampleRecord> expected; // keyed by offset
    };
    const std::uint64_t b = kBase;
    Bytes cdat28 = CdatSample(10);
    Bytes cdatThenPlain = CdatSample(0);
    const Bytes plain = {0x14, 0x20, 0x14, 0x2c, 0x80};
    const Bytes twoPairs = CdatSample(2);
    cdatThenPlain.insert(cdatThenPlain.end(), twoPairs.begin(), twoPairs.end());
    std::vector<QT::CaptionSampleRecord> ten;
    for (std::uint64_t j = 0; j < 10; ++j) ten.push_back(Pair(j * 1001, b + 8 + 2 * j));
    const Case cases[] = {
        {"20 bytes in a table of sizes: six pairs behind 8 bytes", Bytes(64, 0), {20, 22}, false,
         {Pair(0, b + 8), Pair(1001, b + 10), Pair(2002, b + 12), Pair(3003, b + 14), Pair(4004, b + 16),
          Pair(5005, b + 18), Pair(1001, b + 28), Pair(2002, b + 30), Pair(3003, b + 32), Pair(4004, b + 34),
          Pair(5005, b + 36), Pair(6006, b + 38), Pair(7007, b + 40)}},
        {"a cdat sample of 28 bytes", cdat28, {28}, true, ten},
        {"no cdat: no bytes skipped, the odd byte left out", plain, {3, 2}, true, {Pair(0, b), Pair(1001, b + 3)}},
        {"a sample of the header alone", cdatThenPlain, {8, 12}, true, {Pair(1001, b + 16), Pair(2002, b + 18)}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrackSpec plan = CaptionTrack();
        plan.stts = {{static_cast<std::uint32_t>(c.sizes.size()), 1001}};
        plan.stsc = {{1, static_cast<std::uint32_t>(c.sizes.size()), 1}};
        plan.stszSizes = c.sizes;
        plan.stco = {static_cast<std::uint32_t>(b)};
        OpenedTrack t = OpenCaptions(plan, c.mdat);
        const QT::CaptionSampleMap table = Table(t, true, c.realFile ? nullptr : &kNoFile);
        ASSERT_EQ(table.size(), c.expected.size());
        for (const QT::CaptionSampleRecord& r : c.expected) EXPECT_EQ(table.at(r.mOffset), r);
    }
}

TEST(Caption, TheFileIsLookedAtOnceAndCannotCutRecordsShortOfIt)
{
    {
        SCOPED_TRACE("the check of the first chunk holds for the second, which has no cdat");
        Bytes mdat = CdatSample(1);
        mdat.resize(32, 0x55);
        TrackSpec plan = CaptionTrack();
        plan.stts = {{2, 1001}};
        plan.stszSizes = {10, 10};
        plan.stco = {static_cast<std::uint32_t>(kBase), static_cast<std::uint32_t>(kBase + 16)};
        OpenedTrack t = OpenCaptions(plan, mdat);
        const QT::CaptionSampleMap expected = {{kBase + 8, Pair(0, kBase + 8)}, {kBase + 24, Pair(1001, kBase + 24)}};
        EXPECT_EQ(Table(t, true), expected);
    }
    {
        SCOPED_TRACE("a chunk behind the end of the file: 8 bytes are skipped");
        TrackSpec plan = CaptionTrack();
        plan.stts = {{1, 1001}};
        plan.stszSizes = {12};
        plan.stco = {1000000};
        OpenedTrack t = OpenCaptions(plan);
        const QT::CaptionSampleMap expected = {{1000008, Pair(0, 1000008)}, {1000010, Pair(1001, 1000010)}};
        EXPECT_EQ(Table(t, true), expected);
    }
    {
        SCOPED_TRACE("a size from a broken table gives no more pairs than the file holds");
        TrackSpec plan = CaptionTrack();
        plan.stszSizes = {0x7ffffff0};
        plan.stco = {static_cast<std::uint32_t>(kBase)};
        OpenedTrack t = OpenCaptions(plan, CdatSample(4));
        const QT::CaptionSampleMap table = Table(t, true);
        EXPECT_EQ(table.size(), ReadFile(t.path).size() / 2);
        EXPECT_EQ(table.begin()->second, Pair(0, kBase + 8));
    }
}

TEST(Caption, C708Samples)
{
    TrackSpec plan = CaptionTrack("c708");
    plan.stts = {{3, 1001}};
    plan.stsc = {{1, 3, 1}};
    plan.stszSizes = {8, 9, 20};
    plan.stco = {100};
    OpenedTrack t = OpenCaptions(plan);
    const QT::CaptionSampleMap expected = {{1001, {1001, 116, 1, false, 0, 0}}, {2002, {2002, 125, 12, false, 0, 0}}};
    EXPECT_EQ(Table(t, false, &kNoFile), expected);
}

TEST(Caption, KeysByTimeAndByOffset)
{
    TrackSpec plan = CaptionTrack();
    plan.stts = {{2, 1001}};
    plan.stsc = {{1, 2, 1}};
    plan.stszSizes = {16, 12};
    plan.stco = {static_cast<std::uint32_t>(kBase)};
    Bytes mdat = CdatSample(4);
    const Bytes second = CdatSample(2);
    mdat.insert(mdat.end(), second.begin(), second.end());

    {
        SCOPED_TRACE("a pair whose time a later sample starts at stands");
        OpenedTrack t = OpenCaptions(plan, mdat);
        const QT::CaptionSampleMap byTime = Table(t, false);
        ASSERT_EQ(byTime.size(), 4u);
        EXPECT_EQ(byTime.at(1001), Pair(1001, kBase + 10));
        EXPECT_EQ(byTime.at(2002), Pair(2002, kBase + 12));
        EXPECT_EQ(Table(t, true).size(), 6u);
    }
    {
        SCOPED_TRACE("a leading empty edit of 2 s moves the times, not the offsets");
        OpenedTrack plain = OpenCaptions(plan, mdat);
        TrackSpec delayed = plan;
        delayed.edits = {{{1200, 0xffffffff, 0x10000}, {6000, 0, 0x10000}}};
        OpenedTrack t = OpenCaptions(delayed, mdat);
        EXPECT_EQ(Table(t, true).size(), 6u);
        QT::CaptionSampleMap shifted;
        for (auto [key, record] : Table(plain, false)) {
            record.mTime += 60000;
            shifted.emplace(key + 60000, record);
        }
        EXPECT_EQ(Table(t, false), shifted);
        QT::CaptionSampleMap byOffset = Table(t, true);
        for (auto& [key, record] : byOffset) record.mTime -= 60000;
        EXPECT_EQ(byOffset, Table(plain, true));
    }
    {
        SCOPED_TRACE("the host's records stay, and a key already there keeps its record");
        OpenedTrack t = OpenCaptions(plan, mdat);
        QT::CaptionSampleMap table = {{1001, Pair(7, 7)}, {999999, Pair(9, 9)}};
        ASSERT_EQ(t.track->MakeCaptionSampleTable(t.Path16(), table, false), QT::kResultSuccess);
        EXPECT_EQ(table.size(), 5u);
        EXPECT_EQ(table.at(1001), Pair(7, 7));
        EXPECT_EQ(table.at(999999), Pair(9, 9));
    }
}

TEST(Caption, TheEditChoosesTheSamples)
{
    struct Case {
        const char* name;
        std::vector<std::pair<std::uint32_t, std::uint32_t>> stts;
        std::optional<std::vector<std::array<std::uint32_t, 3>>> edits;
        std::vector<std::uint64_t> times; // of the records, keyed by time
    };
    const Case cases[] = {
        // Media and movie time scales are both 600 here.
        {"a sample that starts at the end is inside", {{5, 20}}, {{{40, 0, 0x10000}}}, {0, 20, 40}},
        {"samples before the first one shown add nothing", {{3, 20}}, {{{40, 20, 0x10000}}}, {20, 40}},
        {"a first sample beyond the time line: nothing", {{2, 100}}, {{{100, 1000, 0x10000}}}, {}},
        {"counts of 0 or below hold no samples", {{2, 100}, {0xffffffff, 50}, {0, 70}, {1, 100}}, {}, {0, 100, 200}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrackSpec plan = CaptionTrack("c708");
        plan.mediaTimeScale = 600;
        plan.stts = c.stts;
        plan.edits = c.edits;
        plan.stsc = {{1, 1, 1}};
        plan.stszConstant = 12;
        plan.stszSizes = std::vector<std::uint32_t>(5, 12);
        plan.stco = {100, 200, 300, 400, 500};
        OpenedTrack t = OpenCaptions(plan);
        std::vector<std::uint64_t> times;
        for (const auto& [key, record] : Table(t, false, &kNoFile)) times.push_back(key);
        EXPECT_EQ(times, c.times);
    }
    {
        SCOPED_TRACE("the offset of a sample after skipped ones counts their sizes");
        TrackSpec plan = CaptionTrack("c708");
        plan.mediaTimeScale = 600;
        plan.stts = {{3, 20}};
        plan.edits = {{{40, 20, 0x10000}}};
        plan.stsc = {{1, 3, 1}};
        plan.stszSizes = {30, 12, 12};
        plan.stco = {100};
        OpenedTrack t = OpenCaptions(plan);
        EXPECT_EQ(Table(t, true, &kNoFile).begin()->first, 138u);
    }
}

TEST(Caption, FrameDuration)
{
    struct Case {
        std::vector<std::uint32_t> durations;
        std::uint32_t timeScale;
        std::int32_t expected;
    };
    const Case cases[] = {
        {{1001}, 30000, 1001},     {{1}, 30000, 1},           {{0}, 30000, 1001},   {{2000, 3000}, 30000, 1000},
        {{1, 1000}, 30000, 1},     {{1000, 1001}, 30000, 1001}, {{1000, 1001}, 25, 1}, {{0, 0}, 600, 20},
        {{0xfffff830, 3000}, 30000, 1000}, // -2000 and 3000
        {{0x80000000, 0x80000000}, 30000, 1001},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.durations) + " at " + std::to_string(c.timeScale));
        TrackSpec plan = CaptionTrack();
        plan.mediaTimeScale = c.timeScale;
        plan.stts.clear();
        for (std::uint32_t d : c.durations) plan.stts.push_back({1, d});
        EXPECT_EQ(OpenCaptions(plan).track->GetCaptionFrameDuration(), c.expected);
    }
}

TEST(Caption, MediaFormat)
{
    TrackSpec plan = CaptionTrack();
    plan.descriptions = {SampleDescription("c608", {}), SampleDescription("c708", {}), SampleDescription("tx3g", {})};
    OpenedTrack t = OpenCaptions(plan);
    EXPECT_EQ(t.track->GetCaptionMediaFormat(0), QT::MakeFourCC("c608"));
    EXPECT_EQ(t.track->GetCaptionMediaFormat(1), QT::MakeFourCC("c708"));
    EXPECT_EQ(t.track->GetCaptionMediaFormat(2), QT::kUnknownMediaType);
    EXPECT_EQ(t.track->GetCaptionMediaFormat(-1), QT::kUnknownMediaType);
    EXPECT_THROW(t.track->GetCaptionMediaFormat(3), vellum::config::Error);
}

TEST(Caption, TablesThatCannotBeUsed)
{
    struct Case {
        const char* name;
        TrackSpec plan;
        QT::ResultCode result;
        std::size_t added; // records, keyed by offset
    };
    auto base = [] {
        TrackSpec s = CaptionTrack("c708");
        s.stts = {{3, 1001}};
        s.stsc = {{1, 1, 1}};
        s.stszSizes = {12, 12, 12};
        s.stco = {100, 200, 300};
        return s;
    };
    std::vector<Case> cases;
    {
        TrackSpec s = base();
        s.stts = {};
        cases.push_back({"stts without entries", s, QT::kResultCaptionTables, 0});
    }
    {
        TrackSpec s = base();
        s.stszConstant = 0x80000000u;
        cases.push_back({"a negative constant size", s, QT::kResultCaptionTables, 0});
    }
    {
        TrackSpec s = base();
        s.stszSizes = {12};
        cases.push_back({"a sample past the table of sizes", s, QT::kResultCaptionTables, 1});
    }
    {
        TrackSpec s = base();
        s.extraStbl = {Stsz(0, {}, 0x80000000u)}; // behind the builder's own `stsz`, so the walk takes it
        cases.push_back({"a negative count of sizes", s, QT::kResultCaptionTables, 0});
    }
    {
        TrackSpec s = base();
        s.stco = {100, 200};
        cases.push_back({"more samples than the chunks hold", s, QT::kResultSuccess, 2});
    }
    {
        TrackSpec s = base();
        s.stts = {{1, 1001}};
        cases.push_back({"fewer samples than the chunks hold", s, QT::kResultSuccess, 1});
    }
    {
        TrackSpec s = base();
        s.stsc = {};
        cases.push_back({"stsc without entries", s, QT::kResultSuccess, 0});
    }
    {
        TrackSpec s = base();
        s.descriptions = {SampleDescription("tx3g", {})};
        cases.push_back({"another format", s, QT::kResultSuccess, 0});
    }
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        OpenedTrack t = OpenCaptions(c.plan);
        QT::CaptionSampleMap table = {{1, Pair(1, 1)}};
        EXPECT_EQ(t.track->MakeCaptionSampleTable(kNoFile, table, true), c.result);
        EXPECT_EQ(table.size(), 1 + c.added);
        EXPECT_EQ(table.at(1), Pair(1, 1));
    }
}

} // namespace
