// The frame table of a video track over built sample tables: placement in
// chunks against a straightforward sum, the edits, refused tables, the limit
// and the sort.
#include <functional>
#include <random>

#include "Tests/Support/Open.h"

namespace {

using Table = std::vector<QT::VideoSampleRecord>;
using Numbers = std::vector<std::uint64_t>;
using Edits = std::vector<std::array<std::uint32_t, 3>>;

// Ten samples of duration 100 and sizes 10, 11, ..., two per chunk, as `change` leaves them.
Tessel::InterfaceRef<QT::IQTTrack> TenSamples(const Change& change)
{
    TrackPlan t;
    t.duration = t.mediaDuration = 1000;
    t.stts = {{10, 100}};
    t.stsc = {{1, 2, 1}};
    t.stszSizes = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    t.stco = {1000, 2000, 3000, 4000, 5000};
    change(t);
    return OpenTrackOf(t).track;
}

Change Edit(std::uint32_t duration, std::uint32_t mediaTime)
{
    return [=](TrackPlan& t) { t.edits = Edits{{duration, mediaTime, 0x10000}}; t.duration = duration; };
}

Numbers Column(const Table& table, const std::string& f)
{
    Numbers v;
    for (const auto& r : table)
        v.push_back(f == "offset" ? r.mOffset : f == "size" ? r.mSize : f == "duration" ? r.mDuration : r.mTime);
    return v;
}

// The cases are in Data/frame-records.json, behind 5000 samples in one chunk against their sizes added one by one.
TEST(VideoSampleTable, Records)
{
    Numbers sum = {64};
    for (std::uint32_t i = 0; i + 1 < 5000; ++i) sum.push_back(sum.back() + i % 97 + 1);
    std::vector<std::tuple<std::string, Change, std::string, Numbers>> cases = {{"5000 samples in one chunk",
        [](TrackPlan& t) {
            t.stts = {{5000, 1}}; t.duration = t.mediaDuration = 5000; t.stsc = {{1, 5000, 1}}; t.stco = {64};
            t.stszSizes.resize(5000);
            for (std::uint32_t i = 0; i < 5000; ++i) t.stszSizes[i] = i % 97 + 1;
        }, "offset", sum}};
    for (const nlohmann::json& c : DataRows("frame-records.json"))
        cases.emplace_back(c[0].get<std::string>(), [c](TrackPlan& t) { Apply(c[1], t); }, c[2].get<std::string>(),
                           c[3].get<Numbers>());
    ASSERT_EQ(cases.size(), 8u);
    for (const auto& [what, change, field, expected] : cases) {
        SCOPED_TRACE(what);
        auto track = TenSamples(change);
        ASSERT_TRUE(track);
        Table t;
        ASSERT_EQ(track->MakeFullVideoSampleTable(false, false, t), QT::kResultSuccess);
        EXPECT_EQ(Column(t, field), expected);
    }
}

// The cases are in Data/refused-frame-tables.json.
TEST(VideoSampleTable, RefusedTables)
{
    const nlohmann::json cases = DataRows("refused-frame-tables.json");
    ASSERT_EQ(cases.size(), 14u);
    for (const nlohmann::json& c : cases) {
        SCOPED_TRACE(c[0].get<std::string>());
        auto track = TenSamples([&](TrackPlan& t) { Apply(c[1], t); });
        ASSERT_TRUE(track);
        Table table(2); // what the table held stays, and is not sorted
        table[0].mTime = 7;
        EXPECT_EQ(track->MakeFullVideoSampleTable(true, false, table), CodeOf(c[2]));
        EXPECT_EQ(table.size(), 2 + c[3].get<std::size_t>());
        EXPECT_EQ(table[0].mTime, 7u);
    }
}

TEST(VideoSampleTable, LimitCountsRecordsAndTheSortTakesTheWholeTable)
{
    auto track = TenSamples(Edit(700, 300)); // samples 3 on shown
    ASSERT_TRUE(track);
    Table table(2);
    table[0].mTime = 0xffffffffu;
    table[1].mTime = 50;
    ASSERT_EQ(track->MakeVideoSampleTable(true, false, 3, table), QT::kResultSuccess);
    EXPECT_EQ(Column(table, "time"), (Numbers{0, 50, 100, 200, 0xffffffffu}));
    EXPECT_EQ(Column(table, "size"), (Numbers{13, 0, 14, 15, 0}));
}

// The frame table as its rules tell it, sample by sample, over the plan of a
// track with at most one edit and equal time scales: an oracle for the walk.
QT::ResultCode Model(const TrackPlan& t, bool ignoreEdits, std::uint32_t maxEntries, Table& out)
{
    std::vector<std::uint32_t> durations; // of each sample, by the stts entries
    for (auto [n, d] : t.stts) durations.insert(durations.end(), n, d);
    const auto sampleCount = static_cast<std::uint32_t>(durations.size());
    if (sampleCount == 0) return QT::kResultBadSampleTables;
    const Numbers chunks = t.co64 ? *t.co64 : Numbers(t.stco.begin(), t.stco.end());
    auto sizeOf = [&](std::uint32_t i) { return t.stszConstant ? t.stszConstant : t.stszSizes[i]; };
    // The edit: its first sample is the first that ends after its media time.
    std::uint32_t editFirst = 0, editFirstDuration = 0, editEnd = t.duration;
    if (t.edits && !t.edits->empty()) {
        const std::uint32_t mediaTime = (*t.edits)[0][1];
        editEnd = mediaTime + (*t.edits)[0][0];
        for (std::uint32_t rest = mediaTime; mediaTime != 0; rest -= durations[editFirst++])
            if (durations[editFirst] > rest) { editFirstDuration = durations[editFirst] - rest; break; }
        if (mediaTime == 0) editFirstDuration = durations[0];
    }
    const bool direct = t.stszConstant && t.stsc.size() == 1 && chunks.size() == sampleCount;
    std::uint32_t syncPosition = 0, nextSync = t.stss && !t.stss->empty() ? (*t.stss)[0] - 1 : 0;
    std::uint64_t sttsIndex = 0, sttsFirst = 0;
    std::uint32_t duration = t.stts[0].second, stscIndex = 0, runFirst = 0, mediaTime = 0, outputTime = 0;
    for (std::uint32_t sample = 0; sample < sampleCount && out.size() < maxEntries; ++sample) {
        QT::VideoSampleRecord r;
        r.mIsKeyFrame = !t.stss || nextSync == sample;
        if (t.stss && nextSync == sample && ++syncPosition < t.stss->size()) nextSync = (*t.stss)[syncPosition] - 1;
        r.mSize = sizeOf(sample);
        // A sample past its entry moves on by one entry; past the last the duration stays.
        if (sttsIndex < t.stts.size() && sample - sttsFirst >= t.stts[sttsIndex].first) {
            sttsFirst += t.stts[sttsIndex].first;
            if (++sttsIndex < t.stts.size()) duration = t.stts[sttsIndex].second;
        }
        if (direct) r.mOffset = chunks[sample];
        else {
            if (t.stsc.empty()) return QT::kResultNotFound;
            const std::uint32_t perChunk = t.stsc[stscIndex][1];
            for (int moves = 0;; ++moves) {
                const std::uint64_t first = t.stsc[stscIndex][0];
                const std::uint32_t runChunks = stscIndex + 1 < t.stsc.size() ? t.stsc[stscIndex + 1][0] - t.stsc[stscIndex][0]
                                                : first - 1 < chunks.size() ? chunks.size() - (first - 1) : 0;
                if (sample - runFirst < perChunk * runChunks) break;
                if (moves == 1 || stscIndex + 1 == t.stsc.size()) return QT::kResultNotFound;
                runFirst += perChunk * runChunks;
                ++stscIndex;
            }
            const std::uint64_t chunk = std::uint64_t{t.stsc[stscIndex][0]} - 1 + (sample - runFirst) / perChunk;
            if (chunk >= chunks.size()) return QT::kResultNotFound;
            std::uint32_t before = 0;
            for (std::uint32_t i = sample - (sample - runFirst) % perChunk; i < sample; ++i) before += sizeOf(i);
            r.mOffset = chunks[chunk] + before;
        }
        r.mDuration = duration;
        if (!ignoreEdits && (sample < editFirst || mediaTime >= editEnd)) { mediaTime += duration; continue; }
        if (!ignoreEdits && editFirstDuration && sample == editFirst) r.mDuration = editFirstDuration;
        else if (!ignoreEdits && std::uint64_t{r.mDuration} + mediaTime > editEnd) r.mDuration = editEnd - mediaTime;
        r.mTime = outputTime;
        out.push_back(r);
        outputTime += r.mDuration;
        mediaTime += r.mDuration;
    }
    return QT::kResultSuccess;
}

TEST(VideoSampleTable, AgreesWithTheRulesOnRandomTables)
{
    std::mt19937 random(17);
    auto pick = [&](std::uint32_t n) { return static_cast<std::uint32_t>(random() % n); };
    for (int round = 0; round < 300; ++round) {
        TrackPlan t;
        t.stts.clear();
        std::uint32_t samples = 0, mediaDuration = 0;
        while (samples == 0)
            for (std::uint32_t e = 0, entries = 1 + pick(4); e < entries; ++e) {
                t.stts.push_back({pick(7), std::array<std::uint32_t, 4>{0, 100, 250, 1000}[pick(4)]});
                samples += t.stts.back().first;
                mediaDuration += t.stts.back().first * t.stts.back().second;
            }
        t.mediaDuration = t.duration = mediaDuration + pick(300);
        t.stszConstant = pick(4) == 0 ? 1 + pick(50) : 0;
        t.stszSizes.clear();
        for (std::uint32_t i = 0; i < samples; ++i) t.stszSizes.push_back(1 + pick(50));
        t.stco.clear();
        for (std::uint32_t i = 0, n = 1 + pick(samples + 2); i < n; ++i) t.stco.push_back(1000 * (i + 1));
        if (pick(2)) t.co64 = Numbers(t.stco.begin(), t.stco.end());
        t.stsc.clear();
        for (std::uint32_t e = 0, entries = 1 + pick(4), first = pick(8) == 0 ? pick(3) : 1; e < entries; ++e) {
            t.stsc.push_back({first, pick(10) == 0 ? 0 : 1 + pick(4), 1});
            first = pick(10) == 0 ? first - 1 : first + pick(4);
        }
        if (pick(3)) {
            t.stss.emplace();
            for (std::uint32_t s = 1; s <= samples; ++s)
                if (pick(3) == 0) t.stss->push_back(s);
            if (pick(8) == 0) t.stss->insert(t.stss->begin(), pick(samples + 1));
        }
        if (pick(2) && mediaDuration > 0) t.edits = Edits{{pick(mediaDuration + 1), pick(mediaDuration), 0x10000}};
        const bool ignoreEdits = pick(4) == 0;
        const std::uint32_t maxEntries = pick(3) == 0 ? pick(samples + 1) : 0xffffffffu;
        SCOPED_TRACE(round);
        const OpenedTrack opened = OpenTrackOf(t);
        const auto& track = opened.track;
        ASSERT_TRUE(track);
        Table ours, expected;
        ASSERT_EQ(track->MakeVideoSampleTable(false, ignoreEdits, maxEntries, ours), Model(t, ignoreEdits, maxEntries, expected));
        ASSERT_EQ(ours.size(), expected.size());
        for (const char* f : {"offset", "size", "duration", "time"}) EXPECT_EQ(Column(ours, f), Column(expected, f));
        for (std::size_t i = 0; i < ours.size(); ++i) EXPECT_EQ(ours[i].mIsKeyFrame, expected[i].mIsKeyFrame) << i;
    }
}

} // namespace
