// Image descriptions of video tracks, on built descriptions: fixed fields at
// their limits, the search for extension atoms, the comparisons, track
// apertures, frame structure, and the descriptions handed out as bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "Src/QTTrack.h"
#include "Tests/Support/OpenTrack.h"

using namespace testsupport;

namespace {

constexpr QT::ResultCode kOk = QT::kResultSuccess, kNoItem = QT::kResultImageDescriptionItem;

Bytes Ext(const char* type, const Bytes& payload, std::optional<std::uint32_t> size = {})
{
    Atom atom(type, payload);
    atom.size = size;
    return atom.Serialize();
}
Bytes Join(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}
Bytes Pasp(std::uint32_t h, std::uint32_t v) { return Ext("pasp", ByteWriter().U32(h).U32(v)); }
Bytes Fiel(std::uint8_t count, std::uint8_t ordering) { return Ext("fiel", ByteWriter().U8(count).U8(ordering)); }
Bytes Colr(const char* type, std::uint16_t p, std::uint16_t t, std::uint16_t m)
{
    return Ext("colr", ByteWriter().Code(type).U16(p).U16(t).U16(m));
}
Bytes ToBytes(const Pelt::BinaryData& data) { return Bytes(data.Data(), data.Data() + data.Size()); }

Tessel::InterfaceRef<QT::IQTTrack> Open(std::vector<Bytes> descriptions, const char* mediaType = "vide")
{
    TrackSpec t;
    t.mediaType = mediaType;
    t.descriptions = std::move(descriptions);
    return OpenTrack(t);
}

// The function and condition of the contract that `call` broke, or "".
std::string BrokenContract(const std::function<void()>& call)
{
    try {
        call();
    } catch (const vellum::config::Error& e) {
        return e.Function() + ": " + e.Condition();
    }
    return "";
}

TEST(VideoDescription, FixedFieldsAndNames)
{
    auto track = Open({
        ImageDescription({.temporalQuality = 0x200, .spatialQuality = 0x300, .width = 0xffff, .height = 0x8000,
                          .depth = 0xffff}),
        ImageDescription({.name = "ignored", .nameLength = 0}),
        ImageDescription({.name = std::string("ab\0cd", 5)}),
        // 255 claimed, 35 there: the name runs over the depth and colour table id.
        ImageDescription({.name = std::string(31, 'y'), .nameLength = 255, .depth = 0x4344, .colorTableId = 0x4546}),
    });
    ASSERT_TRUE(track);
    EXPECT_EQ(track->GetVideoMediaWidth(0), -1); // signed
    EXPECT_EQ(track->GetVideoMediaHeight(0), -32768);
    EXPECT_EQ(track->GetVideoMediaDepth(0), 65535u); // not
    std::uint32_t temporal = 0, spatial = 0;
    EXPECT_EQ(track->GetVideoMediaQuality(0, temporal, spatial), kOk);
    EXPECT_EQ(std::pair(temporal, spatial), std::pair(0x200u, 0x300u));
    const std::string names[] = {"", "ab", std::string(31, 'y') + "CDEF"};
    for (int i = 0; i < 3; ++i) {
        QT::String16 name = ToString16("previous");
        EXPECT_EQ(track->GetVideoMediaCodecName(i + 1, name), kOk);
        EXPECT_EQ(name, ToString16(names[i]));
    }
    // No description at a negative index: zeros, and the outputs left alone.
    EXPECT_EQ(track->GetVideoMediaCompressionFourCC(-1), 0u);
    EXPECT_EQ(track->GetVideoMediaWidth(-1), 0);
    QT::String16 name = ToString16("kept");
    EXPECT_EQ(track->GetVideoMediaCodecName(-1, name), kNoItem);
    EXPECT_EQ(track->GetVideoMediaQuality(-1, temporal, spatial), kNoItem);
    EXPECT_EQ(name, ToString16("kept"));
    EXPECT_EQ(std::pair(temporal, spatial), std::pair(0x200u, 0x300u));
}

TEST(VideoDescription, ContractChecks)
{
    auto video = Open({ImageDescription({})});
    ASSERT_TRUE(video);
    EXPECT_EQ(BrokenContract([&] { video->GetVideoMediaWidth(1); }),
              "QT::QTTrack::GetNthSampleDescriptionPtr: inSampleDescriptionIndex < numDescriptions");
    auto audio = Open({}, "soun");
    ASSERT_TRUE(audio);
    float w = 0, h = 0;
    std::vector<QT::VideoSampleRecord> frames;
    std::vector<QT::VideoTemporalReference> references;
    const std::pair<std::string, std::function<void()>> videoOnly[] = {
        {"GetVideoMediaWidth", [&] { audio->GetVideoMediaWidth(0); }},
        {"GetTrackCleanApertureDimensions", [&] { audio->GetTrackCleanApertureDimensions(w, h); }},
        {"GetAllImageDescriptionsEquivalent", [&] { audio->GetAllImageDescriptionsEquivalent(true); }},
        {"VideoTrackContainsDeltaFrames", [&] { audio->VideoTrackContainsDeltaFrames(); }},
        {"MakeVideoSampleTable", [&] { audio->MakeFullVideoSampleTable(false, false, frames); }},
        {"MakeVideoTemporalReferenceTable", [&] { audio->MakeVideoTemporalReferenceTable(references); }},
    };
    for (const auto& [function, call] : videoOnly) {
        EXPECT_EQ(BrokenContract(call), "QT::QTTrack::" + function + ": GetTrackMediaType() == kVideoMediaType");
    }
    EXPECT_TRUE(frames.empty() && references.empty());
    EXPECT_EQ(BrokenContract([&] { // these ask any track
                  audio->GetAllSampleDescriptionsEquivalent();
                  audio->GetTrackProductionApertureDimensions(w, h);
                  audio->GetTrackEncodedPixelsDimensions(w, h);
                  audio->VideoTrackHasTemporalReferenceData();
                  audio->VideoTrackHasEarlierDisplayKeyFrames();
              }),
              "");
}

TEST(VideoDescription, ExtensionSearch)
{
    const Bytes clap = Ext("clap", Bytes(32, 1));
    const Bytes all = Join({Pasp(16, 11), clap, Fiel(2, 9), Colr("nclc", 1, 1, 1)});
    const std::tuple<const char*, Bytes, std::optional<std::uint32_t>, std::string> cases[] = {
        {"none: exactly 86 bytes", {}, {}, ""},
        {"all four in a description cut to 80 bytes", all, 80, ""},
        {"the first pasp decides, and its payload is not 8 bytes", Join({Ext("pasp", Bytes(12, 1)), all}), {}, "clap fiel colr"},
        {"colr of type nclx", Colr("nclx", 1, 1, 1), {}, ""},
        {"size 0 ends the search", Join({Fiel(1, 0), Ext("junk", {}, 0), Pasp(1, 1)}), {}, "fiel"},
        {"an empty fiel as the last 8 bytes is not found", Join({Pasp(1, 1), Ext("fiel", {})}), {}, "pasp"},
        // Its payload would end 4 bytes behind the description.
        {"pasp claiming bytes past the description", Join({Fiel(1, 0), Ext("pasp", ByteWriter().U32(1), 16)}), {}, "fiel"},
    };
    for (const auto& [what, extensions, size, found] : cases) {
        SCOPED_TRACE(what);
        auto track = Open({ImageDescription({.extensions = extensions, .size = size})});
        ASSERT_TRUE(track);
        const auto expect = [&](const char* atom) { return found.find(atom) != std::string::npos ? kOk : kNoItem; };
        std::uint32_t v[8] = {};
        EXPECT_EQ(track->GetVideoMediaPixelAspect(0, v[0], v[1]), expect("pasp"));
        EXPECT_EQ(track->GetVideoMediaCleanAperture(0, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]), expect("clap"));
        EXPECT_EQ(track->GetVideoMediaFieldInfo(0, v[0], v[1]), expect("fiel"));
        EXPECT_EQ(track->GetVideoMediaColorInfo(0, v[0], v[1], v[2]), expect("colr"));
    }
    // A description whose size claims more than the buffer holds: nothing is read beyond it.
    Bytes claimsMore = ImageDescription({.extensions = Pasp(3, 4)});
    claimsMore[0] = 0x7f;
    const QT::AtomReader reader(claimsMore.data(), static_cast<std::uint32_t>(claimsMore.size()));
    QT::AtomPtr payload;
    std::uint32_t size = 0;
    const auto find = [&](const char (&type)[5]) {
        return QT::QTTrack::FindImageDescriptionExtension(reader, QT::AtomPtr::At(0), QT::MakeFourCC(type), payload, size);
    };
    EXPECT_FALSE(find("fiel"));
    EXPECT_TRUE(find("pasp"));
    EXPECT_EQ(std::pair(payload.Offset(), size), std::pair(94u, 8u));
}

TEST(VideoDescription, FieldAndColourValues)
{
    // Counts other than 1 and 2 write nothing; orderings outside 0, 1, 6, 9, 14 only the count.
    const std::tuple<std::uint8_t, std::uint8_t, QT::ResultCode, std::uint32_t, std::uint32_t> fields[] = {
        {2, 14, kOk, 2, 14}, {3, 0, kNoItem, 77, 77}, {0, 1, kNoItem, 77, 77}, {2, 5, kNoItem, 2, 77}};
    for (const auto& [count, ordering, result, countOut, orderingOut] : fields) {
        auto track = Open({ImageDescription({.extensions = Fiel(count, ordering)})});
        std::uint32_t c = 77, o = 77;
        EXPECT_EQ(track->GetVideoMediaFieldInfo(0, c, o), result);
        EXPECT_EQ(std::pair(c, o), std::pair(countOut, orderingOut));
    }
    // Primaries, transfer and matrix values not known here become 2, unspecified.
    const std::pair<std::array<std::uint16_t, 3>, std::array<std::uint32_t, 3>> colours[] = {
        {{9, 1, 6}, {2, 1, 6}}, {{1, 7, 7}, {1, 7, 7}}, {{5, 6, 1}, {5, 2, 1}}, {{0, 0, 0}, {2, 2, 2}}, {{6, 2, 9}, {6, 2, 2}}};
    for (const auto& [stored, expected] : colours) {
        auto track = Open({ImageDescription({.extensions = Colr("nclc", stored[0], stored[1], stored[2])})});
        std::array<std::uint32_t, 3> out{};
        EXPECT_EQ(track->GetVideoMediaColorInfo(0, out[0], out[1], out[2]), kOk);
        EXPECT_EQ(out, expected);
    }
}

TEST(VideoDescription, Comparisons)
{
    const Bytes base = ImageDescription({.extensions = Pasp(1, 1)});
    Bytes unreachable = base;
    unreachable[3] = 4; // size below 8: the walk cannot reach past it
    const std::tuple<const char*, std::vector<Bytes>, bool, bool> cases[] = {
        // Vendor, name, quality and extensions are not compared; the size only when asked.
        {"vendor, name, quality, extensions differ",
         {base, ImageDescription({.vendor = "FFMP", .temporalQuality = 9, .name = "x", .extensions = Fiel(1, 0)})}, true, false},
        {"only the size differs", {base, ImageDescription({.extensions = Ext("pasp", Bytes(12, 0))})}, true, false},
        {"width differs", {base, ImageDescription({.width = 321, .extensions = Pasp(1, 1)})}, false, false},
        {"resolution differs", {base, ImageDescription({.verticalResolution = 0x480001, .extensions = Pasp(1, 1)})}, false, false},
        {"depth differs", {base, ImageDescription({.depth = 32, .extensions = Pasp(1, 1)})}, false, false},
        {"format differs in the third", {base, base, ImageDescription({.format = "hvc1", .extensions = Pasp(1, 1)})}, false, false},
        {"an unreachable description", {base, unreachable}, false, false},
    };
    for (const auto& [what, descriptions, ignoringSize, exactly] : cases) {
        SCOPED_TRACE(what);
        auto track = Open(descriptions);
        ASSERT_TRUE(track);
        EXPECT_EQ(track->GetAllSampleDescriptionsEquivalent(), ignoringSize);
        EXPECT_EQ(track->GetAllImageDescriptionsEquivalent(true), ignoringSize);
        EXPECT_EQ(track->GetAllImageDescriptionsEquivalent(false), exactly);
    }
    // 36-byte sound descriptions: the resolutions and depth lie beyond them,
    // and are alike; the width's place is within.
    const Bytes sound = SampleDescription("twos", ByteWriter().Zeros(8).U16(2).U16(16).Zeros(4).U32(48000u << 16));
    Bytes otherWidth = sound;
    otherWidth[33] = 1;
    EXPECT_TRUE(Open({sound, sound}, "soun")->GetAllSampleDescriptionsEquivalent());
    EXPECT_FALSE(Open({sound, otherWidth}, "soun")->GetAllSampleDescriptionsEquivalent());
}

TEST(VideoDescription, TrackApertures)
{
    const auto aperture = [](const char* type, std::int32_t w, std::int32_t h) {
        return Atom(type, ByteWriter().U32(0).U32(static_cast<std::uint32_t>(w)).U32(static_cast<std::uint32_t>(h)));
    };
    TrackSpec plan;
    plan.beforeMdia = {Atom("tapt", std::vector<Atom>{aperture("clef", 0x00c2aaab, 144 << 16),
                                                        aperture("prof", 176 << 16, 144 << 16),
                                                        aperture("enof", -(1 << 16), 0x8000)})};
    auto track = OpenTrack(plan);
    ASSERT_TRUE(track);
    float w = 0, h = 0;
    ASSERT_TRUE(track->GetTrackCleanApertureDimensions(w, h));
    EXPECT_EQ(std::pair(w, h), std::pair(static_cast<float>(0x00c2aaab) / 65536.0f, 144.0f));
    ASSERT_TRUE(track->GetTrackProductionApertureDimensions(w, h));
    EXPECT_EQ(w, 176.0f);
    ASSERT_TRUE(track->GetTrackEncodedPixelsDimensions(w, h));
    EXPECT_EQ(std::pair(w, h), std::pair(-1.0f, 0.5f));
    // A clean aperture too short for its height counts as absent, as do the
    // missing two; the outputs are left alone.
    plan.beforeMdia = {Atom("tapt", std::vector<Atom>{Atom("clef", ByteWriter().U32(0).U32(1 << 16))})};
    auto bare = OpenTrack(plan);
    ASSERT_TRUE(bare);
    EXPECT_FALSE(bare->GetTrackCleanApertureDimensions(w, h) || bare->GetTrackProductionApertureDimensions(w, h) ||
                 bare->GetTrackEncodedPixelsDimensions(w, h));
    EXPECT_EQ(std::pair(w, h), std::pair(-1.0f, 0.5f));
}

TEST(VideoDescription, FrameStructure)
{
    const std::tuple<const char*, std::optional<std::vector<std::uint32_t>>, std::vector<Atom>, bool, bool, bool> cases[] = {
        {"stss with no entries", std::vector<std::uint32_t>{}, {}, true, false, false},
        {"stss listing each sample", std::vector<std::uint32_t>{1, 2, 3}, {}, false, false, false},
        {"sdtp and ctts, an anchor without references", {}, {Sdtp({0x08, 0x60, 0x08}), Ctts({{3, 0}})}, false, true, true},
        {"sdtp without such an anchor", {}, {Sdtp({0x40, 0x20, 0x08}), Ctts({{3, 0}})}, false, true, false},
        {"sdtp alone", {}, {Sdtp({0x60, 0x08, 0x08})}, false, false, true},
        {"sdtp of 12 bytes holds no flags", {}, {Sdtp({}), Ctts({{3, 0}})}, false, true, false},
    };
    for (const auto& [what, stss, extra, delta, temporal, earlier] : cases) {
        SCOPED_TRACE(what);
        TrackSpec plan;
        plan.stts = {{3, 100}};
        plan.stsc = {{1, 3, 1}};
        plan.stszSizes = {1, 2, 3};
        plan.stss = stss;
        plan.extraStbl = extra;
        auto track = OpenTrack(plan);
        ASSERT_TRUE(track);
        EXPECT_EQ(track->VideoTrackContainsDeltaFrames(), delta);
        EXPECT_EQ(track->VideoTrackHasTemporalReferenceData(), temporal);
        EXPECT_EQ(track->VideoTrackHasEarlierDisplayKeyFrames(), earlier);
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
    const Bytes pasp = ByteWriter().U32(16).U32(11);
    const Bytes clut = Ext("clut", Bytes(8, 0xcc));
    auto track = Open({ImageDescription({.extensions = Join({Ext("pasp", pasp), Ext("gama", {}), Fiel(1, 0)})}),
                       ImageDescription({.colorTableId = 0, .extensions = Join({clut, Fiel(1, 0)})}),
                       ImageDescription({.colorTableId = 8, .extensions = clut})});
    ASSERT_TRUE(track);
    Pelt::BinaryData out;
    const auto get = [&](int index, const char (&type)[5]) {
        return track->GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(index, QT::MakeFourCC(type), out);
    };
    ASSERT_EQ(get(0, "pasp"), kOk);
    EXPECT_EQ(ToBytes(out), pasp);
    // An empty payload, an absent type and a missing description fail and
    // leave the output as it was; so does a colour table behind a fixed part
    // whose colour table id is 0, since the search steps over it.
    EXPECT_EQ(get(0, "gama"), QT::kResultNotFound);
    EXPECT_EQ(get(0, "colr"), QT::kResultNotFound);
    EXPECT_EQ(get(-1, "pasp"), QT::kResultNotFound);
    EXPECT_EQ(get(1, "clut"), QT::kResultNotFound);
    EXPECT_EQ(ToBytes(out), pasp);
    ASSERT_EQ(get(1, "fiel"), kOk);
    EXPECT_EQ(ToBytes(out), Bytes({1, 0}));
    ASSERT_EQ(get(2, "clut"), kOk);
    EXPECT_EQ(ToBytes(out), Bytes(8, 0xcc));
}

TEST(VideoDescriptionExport, WholeDescriptions)
{
    // In file order, each description as stored.
    const Bytes first = ImageDescription({.name = "first", .extensions = Fiel(1, 0)});
    const Bytes second = ImageDescription({.format = "hvc1", .width = 720});
    // In platform order: the fixed part and the known extensions (the first
    // pasp, clap and nclc colr of their sizes) turned; the name and the rest kept.
    const Bytes paspWrong = Ext("pasp", ByteWriter().U32(1).U32(2).U32(3));
    const Bytes clap = Ext("clap", ByteWriter().U32(1).U32(2).U32(3).U32(4).U32(5).U32(6).U32(7).U32(8));
    const Bytes gama = Ext("gama", ByteWriter().U32(0x23333));
    const Bytes colr = Colr("nclc", 1, 6, 7);
    const Bytes third = ImageDescription({.format = "apcn", .vendor = "FFMP", .temporalQuality = 0x01020304,
                                          .spatialQuality = 0x05060708, .width = 720, .height = 486, .dataSize = 0x0a0b0c0d,
                                          .name = "Apple ProRes", .depth = 24, .colorTableId = 0xfffe,
                                          .extensions = Join({paspWrong, clap, gama, colr, Fiel(2, 9), Pasp(4, 3)})});
    const Bytes fourth = ImageDescription({.extensions = Join({Pasp(16, 11), Colr("nclx", 1, 1, 1)})});
    auto track = Open({first, second, third, fourth});
    ASSERT_TRUE(track);
    Pelt::BinaryData out;
    for (int i : {0, 1, 2, 3}) {
        ASSERT_EQ(track->GetVideoMediaImageDescriptionAsBinary(i, out), kOk);
        EXPECT_EQ(ToBytes(out), (std::vector<Bytes>{first, second, third, fourth}[i]));
    }
    EXPECT_EQ(track->GetVideoMediaImageDescriptionAsBinary(-1, out), QT::kResultNotFound);
    EXPECT_EQ(track->GetVideoMediaImageDescriptionAsPlatformBinary(-1, out), QT::kResultNotFound);
    EXPECT_EQ(ToBytes(out), fourth);

    Bytes expected = FlipFixedPart(third);
    std::size_t at = 86 + paspWrong.size();
    for (std::size_t i = 0; i < 8; ++i) Flip(expected, at + 8 + 4 * i, 4); // clap payload
    at += clap.size() + gama.size();
    Flip(expected, at + 8, 4); // nclc becomes clcn; the header type colr stays
    for (std::size_t i = 0; i < 3; ++i) Flip(expected, at + 12 + 2 * i, 2);
    ASSERT_EQ(track->GetVideoMediaImageDescriptionAsPlatformBinary(2, out), kOk);
    const Bytes platform = ToBytes(out);
    EXPECT_EQ(platform, expected);
    // Spot checks of the same: the size little-endian, the format backwards, the name as it was.
    EXPECT_EQ(Bytes(platform.begin(), platform.begin() + 8), Bytes({std::uint8_t(third.size()), 0, 0, 0, 'n', 'c', 'p', 'a'}));
    EXPECT_EQ(std::string(platform.begin() + 51, platform.begin() + 63), "Apple ProRes");
    expected = FlipFixedPart(fourth);
    Flip(expected, 86 + 8, 4);
    Flip(expected, 86 + 12, 4);
    ASSERT_EQ(track->GetVideoMediaImageDescriptionAsPlatformBinary(3, out), kOk);
    EXPECT_EQ(ToBytes(out), expected);
    ASSERT_EQ(track->GetVideoMediaImageDescriptionAsBinary(2, out), kOk); // the stored copy is unchanged
    EXPECT_EQ(ToBytes(out), third);
}

} // namespace
