// Video tracks: image descriptions (fields at their limits, the search for
// extension atoms, the descriptions handed out as bytes) and the display order
// and frame dependencies from `ctts`, `sdtp` and the first `stts` duration, with
// the trace lines of a table found invalid. The frame table has its own file.

#include "Tests/Support/Open.h"

namespace {

constexpr QT::ResultCode kOk = QT::kResultSuccess, kNoItem = QT::kResultImageDescriptionItem;

Bytes Ext(const char* type, const Bytes& payload, std::optional<std::uint32_t> size = {})
{
    return Atom(type, payload).Sized(size).Serialize();
}
Bytes Join(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}
Bytes Pasp(std::uint32_t h, std::uint32_t v) { return Ext("pasp", ByteWriter().U32(h).U32(v)); }
Bytes Fiel(std::uint8_t count, std::uint8_t ordering) { return Ext("fiel", ByteWriter().U8(count).U8(ordering)); }
Bytes Colr(const char* type, std::uint16_t p) { return Ext("colr", ByteWriter().Code(type).U16(p).U16(p).U16(p)); }
Bytes ToBytes(const Pelt::BinaryData& data) { return Bytes(data.Data(), data.Data() + data.Size()); }

Tessel::InterfaceRef<QT::IQTTrack> Open(std::vector<Bytes> descriptions)
{
    return OpenTrackOf(TrackPlan{.descriptions = std::move(descriptions)}).track;
}

TEST(VideoDescription, SignedSizesAndANameCutAtTheEnd)
{
    // 255 claimed, 35 there: the name runs over the depth and colour table id to the description's end.
    auto track = Open({ImageDescription({.width = 0xffff, .height = 0x8000, .name = std::string(31, 'y'),
                                         .nameLength = 255, .depth = 0x4344, .colorTableId = 0x4546})});
    ASSERT_TRUE(track);
    EXPECT_EQ(std::pair(track->GetVideoMediaWidth(0), track->GetVideoMediaHeight(0)), std::pair(-1, -32768));
    // A negative index names no description: every field reads 0.
    EXPECT_EQ(std::vector<std::int64_t>({track->GetVideoMediaWidth(-1), track->GetVideoMediaHeight(-1),
                                         track->GetVideoMediaDepth(-1), track->GetVideoMediaCompressionFourCC(-1),
                                         track->GetVideoMediaVendorFourCC(-1)}),
              std::vector<std::int64_t>(5, 0));
    QT::String16 name;
    EXPECT_EQ(track->GetVideoMediaCodecName(0, name), kOk);
    EXPECT_EQ(name, ToString16(std::string(31, 'y') + "CDEF"));
}

// `nclc` values not known become 2, unspecified: primaries 1, 5, 6; transfer 1, 7; matrix 1, 6, 7 pass.
TEST(VideoDescription, ColorInfoPassesKnownValues)
{
    const std::array<std::uint16_t, 4> cases[] = {{1, 1, 1, 1}, {5, 5, 2, 2}, {6, 6, 2, 6}, {7, 2, 7, 7}, {9, 2, 2, 2}};
    std::vector<Bytes> descriptions;
    for (const auto& c : cases) descriptions.push_back(ImageDescription({.extensions = Colr("nclc", c[0])}));
    auto track = Open(descriptions);
    for (int i = 0; i < 5; ++i) {
        std::uint32_t p = 0, t = 0, m = 0;
        EXPECT_EQ(track->GetVideoMediaColorInfo(i, p, t, m), kOk);
        EXPECT_EQ(std::tuple(p, t, m), std::tuple(std::uint32_t{cases[i][1]}, std::uint32_t{cases[i][2]},
                                                  std::uint32_t{cases[i][3]})) << cases[i][0];
    }
}

TEST(VideoDescription, ExtensionSearch)
{
    const Bytes all = Join({Pasp(16, 11), Ext("clap", Bytes(32, 1)), Fiel(2, 9), Colr("nclc", 1)});
    const std::tuple<const char*, Bytes, std::optional<std::uint32_t>, std::string> cases[] = {
        {"all four in a description cut to 80 bytes", all, 80, ""},
        {"the first pasp decides, and its payload is not 8 bytes", Join({Ext("pasp", Bytes(12, 1)), all}), {},
         "clap fiel colr"},
        {"colr of type nclx", Colr("nclx", 1), {}, ""},
        {"size 0 ends the search", Join({Fiel(1, 0), Ext("junk", {}, 0), Pasp(1, 1)}), {}, "fiel"},
        {"an empty fiel as the last 8 bytes is not found", Join({Pasp(1, 1), Ext("fiel", {})}), {}, "pasp"},
        // Its payload would end 4 bytes behind the description.
        {"pasp claiming bytes past the description", Join({Fiel(1, 0), Ext("pasp", ByteWriter().U32(1), 16)}), {},
         "fiel"},
        {"field count 3", Fiel(3, 0), {}, ""},
        {"field ordering 5", Fiel(2, 5), {}, ""},
    };
    for (const auto& [what, extensions, size, found] : cases) {
        SCOPED_TRACE(what);
        auto track = Open({ImageDescription({.extensions = extensions, .size = size})});
        ASSERT_TRUE(track);
        const auto expect = [&found = found](const char* atom) {
            return found.find(atom) != std::string::npos ? kOk : kNoItem;
        };
        std::uint32_t v[8] = {};
        EXPECT_EQ(track->GetVideoMediaPixelAspect(0, v[0], v[1]), expect("pasp"));
        EXPECT_EQ(track->GetVideoMediaCleanAperture(0, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]), expect("clap"));
        EXPECT_EQ(track->GetVideoMediaFieldInfo(0, v[0], v[1]), expect("fiel"));
        EXPECT_EQ(track->GetVideoMediaColorInfo(0, v[0], v[1], v[2]), expect("colr"));
    }
}

// Reverses the bytes of [at, at + width) of `b`.
void Flip(Bytes& b, std::size_t at, std::size_t width) { std::reverse(b.begin() + at, b.begin() + at + width); }

// The fixed part turned by hand, as the platform form must have it.
Bytes FlipFixedPart(Bytes b)
{
    for (std::size_t at : {0, 4, 8, 20, 24, 28, 36, 40, 44}) Flip(b, at, 4);
    for (std::size_t at : {12, 14, 16, 18, 32, 34, 48, 82, 84}) Flip(b, at, 2);
    return b;
}

TEST(VideoDescriptionExport, OneExtension)
{
    const Bytes pasp = ByteWriter().U32(16).U32(11), clut = Ext("clut", Bytes(8, 0xcc));
    auto track = Open({ImageDescription({.extensions = Join({Ext("pasp", pasp), Ext("gama", {})})}),
                       ImageDescription({.colorTableId = 0, .extensions = Join({clut, Fiel(1, 0)})}),
                       ImageDescription({.colorTableId = 8, .extensions = clut})});
    ASSERT_TRUE(track);
    // An empty payload, an absent type, a missing description and a colour
    // table behind a fixed part whose colour table id is 0 (which the search
    // steps over) fail, and leave the output as it was.
    const std::tuple<int, QT::FourCC, QT::ResultCode, Bytes> cases[] = {
        {0, QT::MakeFourCC("pasp"), kOk, pasp},
        {0, QT::MakeFourCC("gama"), QT::kResultNotFound, pasp},
        {0, QT::MakeFourCC("colr"), QT::kResultNotFound, pasp},
        {-1, QT::MakeFourCC("pasp"), QT::kResultNotFound, pasp},
        {1, QT::MakeFourCC("clut"), QT::kResultNotFound, pasp},
        {1, QT::MakeFourCC("fiel"), kOk, {1, 0}},
        {2, QT::MakeFourCC("clut"), kOk, Bytes(8, 0xcc)},
    };
    Pelt::BinaryData out;
    for (const auto& [index, type, result, bytes] : cases) {
        EXPECT_EQ(track->GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(index, type, out), result);
        EXPECT_EQ(ToBytes(out), bytes);
    }
}

TEST(VideoDescriptionExport, WholeDescriptions)
{
    // In platform order the fixed part and the first pasp, clap and nclc colr of their sizes are turned (the
    // corpus dumps show clap and nclc turned); a pasp of another size, one behind it, gama, nclx and the name are kept.
    const Bytes first = ImageDescription({.format = "apcn", .vendor = "FFMP", .temporalQuality = 0x01020304,
                                          .spatialQuality = 0x05060708, .width = 720, .height = 486,
                                          .dataSize = 0x0a0b0c0d, .name = "Lavc prores_ks", .colorTableId = 0xfffe,
                                          .extensions = Join({Ext("pasp", Bytes(12, 1)),
                                                              Ext("gama", ByteWriter().U32(0x23333)), Pasp(4, 3)})});
    const Bytes second = ImageDescription({.extensions = Join({Pasp(16, 11), Colr("nclx", 1)})});
    auto track = Open({first, second});
    ASSERT_TRUE(track);
    Bytes expected[] = {FlipFixedPart(first), FlipFixedPart(second)};
    Flip(expected[1], 86 + 8, 4);
    Flip(expected[1], 86 + 12, 4);
    Pelt::BinaryData out;
    for (int i : {0, 1}) {
        ASSERT_EQ(track->GetVideoMediaImageDescriptionAsPlatformBinary(i, out), kOk);
        EXPECT_EQ(ToBytes(out), expected[i]);
        ASSERT_EQ(track->GetVideoMediaImageDescriptionAsBinary(i, out), kOk); // as stored, unchanged
        EXPECT_EQ(ToBytes(out), i ? second : first);
    }
    // Spot checks of the hand-turned form: the size little-endian, the format backwards, the name as it was.
    EXPECT_EQ(Bytes(expected[0].begin(), expected[0].begin() + 8),
              Bytes({std::uint8_t(first.size()), 0, 0, 0, 'n', 'c', 'p', 'a'}));
    EXPECT_EQ(std::string(expected[0].begin() + 51, expected[0].begin() + 65), "Lavc prores_ks");
    // Two like descriptions are alike, these two are not (in size nor without it).
    EXPECT_TRUE(Open({second, second})->GetAllSampleDescriptionsEquivalent());
    Bytes sharper = second;
    ++sharper[36]; // the first byte of the horizontal resolution
    EXPECT_FALSE(Open({second, sharper})->GetAllSampleDescriptionsEquivalent());
    EXPECT_EQ(std::tuple(track->GetAllSampleDescriptionsEquivalent(), track->GetAllImageDescriptionsEquivalent(true)),
              std::tuple(false, false));
    EXPECT_EQ(track->GetVideoMediaImageDescriptionAsBinary(-1, out), QT::kResultNotFound);
    EXPECT_EQ(track->GetVideoMediaImageDescriptionAsPlatformBinary(-1, out), QT::kResultNotFound);
    EXPECT_EQ(ToBytes(out), second);
}

// Decode offset, earlier and later reference offsets, dependency flags.
using Rows = std::vector<std::tuple<int, int, int, unsigned>>;
using Offsets = std::vector<std::pair<std::uint32_t, std::int32_t>>;
using Lines = std::vector<std::string>;

const std::string kInvalidTable = "Invalid Quicktime sample table data detected.";

// `flags.size()` samples of one duration, with the given `sdtp` and `ctts`.
TrackPlan Frames(const Bytes& flags, const Offsets& ctts, std::uint32_t duration = 100)
{
    const auto n = static_cast<std::uint32_t>(flags.size());
    return {.stts = {{n, duration}}, .stsc = {{1, n, 1}}, .stszSizes = std::vector<std::uint32_t>(n, 1),
            .extraStbl = {Sdtp(flags), Ctts(ctts)}};
}

// I, P, B, B in decode order, shown as I, B, B, P.
const Bytes kIPBB = {0x60, 0x40, 0x08, 0x08};
const Offsets kIPBBOffsets = {{1, 0}, {1, 200}, {2, -100}};
const Rows kIPBBRows = {{0, 0, 0, 0x60}, {1, -1, 2, 0x40}, {1, -2, 1, 0x08}, {-2, -3, 0, 0x08}};

// Keeps the messages traced, checking the thread, category and level in front and the line end.
class VideoTemporalTable : public testing::Test {
protected:
    void SetUp() override
    {
        vellum::debug::SetTraceSink([this](const std::string& line) {
            std::string prefix = "<"; // built step by step: g++ 12 -O3 misreads "<" + std::string
            prefix += std::to_string(vellum::threads::GetCurrentThreadID());
            prefix += "> <Atomscan> <5> ";
            EXPECT_EQ(line.substr(0, prefix.size()) + line.substr(line.size() - 2), prefix + "\r\n") << line;
            mMessages.push_back(line.substr(prefix.size(), line.size() - prefix.size() - 2));
        });
        vellum::debug::SetTraceLevel("Atomscan", 5);
    }
    void TearDown() override { vellum::debug::ClearTraceLevels(); vellum::debug::SetTraceSink(nullptr); }
    Rows Make(const TrackPlan& plan, QT::ResultCode expected)
    {
        auto track = OpenTrackOf(plan).track;
        std::vector<QT::VideoTemporalReference> table;
        EXPECT_EQ(track ? track->MakeVideoTemporalReferenceTable(table) : QT::kResultNotFound, expected);
        Rows rows;
        for (const auto& r : table)
            rows.emplace_back(r.mDecodeOffset, r.mEarlierReferenceOffset, r.mLaterReferenceOffset, r.mDependencyFlags);
        return rows;
    }
    Lines mMessages;
};

TEST_F(VideoTemporalTable, DisplayOrderAndReferences)
{
    TrackPlan ipbb = Frames(kIPBB, kIPBBOffsets);
    ipbb.stts = {{1, 100}, {3, 50}}; // offsets are divided by the first duration only
    EXPECT_EQ(Make(ipbb, QT::kResultSuccess), kIPBBRows);
    // An open group: the first key frame is shown second, and the frame shown before it refers to it both ways.
    EXPECT_EQ(Make(Frames({0x60, 0x08}, {{1, 100}, {1, -100}}), QT::kResultSuccess),
              (Rows{{1, 1, 1, 0x60}, {-1, 0, 0, 0x08}}));
    // An anchor without references (0x40 and 0x20 together) is a key frame that may be shown before others.
    EXPECT_TRUE(OpenTrackOf(ipbb).track->VideoTrackHasEarlierDisplayKeyFrames());
    const TrackPlan noEarlier = Frames({0x40, 0x20, 0x08, 0x08}, kIPBBOffsets);
    EXPECT_FALSE(OpenTrackOf(noEarlier).track->VideoTrackHasEarlierDisplayKeyFrames());
    EXPECT_EQ(mMessages, Lines{});
}

TEST_F(VideoTemporalTable, InvalidTables)
{
    TrackPlan noSdtp = Frames(kIPBB, kIPBBOffsets), noCtts = noSdtp, shortSdtp = noSdtp;
    noSdtp.extraStbl = {Ctts(kIPBBOffsets)};
    noCtts.extraStbl = {Sdtp(kIPBB)};
    shortSdtp.extraStbl = {Sdtp({0x60, 0x40, 0x08}), Ctts(kIPBBOffsets)};
    // The records the table ends with, and the lines traced; more cases in Data/temporal-tables.json.
    std::vector<std::tuple<std::string, TrackPlan, std::size_t, Lines>> cases = {
        {"no sdtp: the table is left alone", noSdtp, 0, {}},
        {"no ctts", noCtts, 0, {}},
        // Refused before the table grows, so its size stays within what the file holds.
        {"fewer sdtp flags than samples", shortSdtp, 0, {kInvalidTable}},
    };
    for (const nlohmann::json& c : DataRows("temporal-tables.json"))
        cases.emplace_back(c[0].get<std::string>(), Frames(c[1].get<Bytes>(), c[2].get<Offsets>(), c[3]),
                           c[4].get<std::size_t>(), c[5].get<Lines>());
    ASSERT_EQ(cases.size(), 9u);
    for (const auto& [what, plan, records, messages] : cases) {
        SCOPED_TRACE(what);
        mMessages.clear();
        EXPECT_EQ(Make(plan, QT::kResultBadSampleTables).size(), records);
        EXPECT_EQ(mMessages, messages);
    }
}

} // namespace
