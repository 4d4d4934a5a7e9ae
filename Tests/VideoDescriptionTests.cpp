// Image descriptions of video tracks: fixed fields, extension atoms, the
// comparisons, track apertures and frame structure facts.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "Src/QTTrack.h"
#include "Tests/Support/OpenTrack.h"

using namespace testsupport;

namespace {

constexpr QT::ResultCode kOk = QT::kResultSuccess;
constexpr QT::ResultCode kNoItem = QT::kResultImageDescriptionItem;

Bytes Ext(const char* type, const Bytes& payload, std::optional<std::uint32_t> size = {})
{
    Atom atom(type, payload);
    atom.size = size;
    return atom.Serialize();
}
Bytes Pasp(std::uint32_t h, std::uint32_t v) { return Ext("pasp", ByteWriter().U32(h).U32(v)); }
Bytes Clap(const std::array<std::uint32_t, 8>& values)
{
    ByteWriter w;
    for (std::uint32_t v : values) w.U32(v);
    return Ext("clap", w);
}
Bytes Fiel(std::uint8_t count, std::uint8_t ordering) { return Ext("fiel", ByteWriter().U8(count).U8(ordering)); }
Bytes Colr(const char* type, std::uint16_t p, std::uint16_t t, std::uint16_t m)
{
    return Ext("colr", ByteWriter().Code(type).U16(p).U16(t).U16(m));
}
Bytes Join(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

TrackSpec VideoTrack(std::vector<Bytes> descriptions)
{
    TrackSpec t;
    t.descriptions = std::move(descriptions);
    return t;
}

Tessel::InterfaceRef<QT::IQTTrack> OpenDescriptions(std::vector<Bytes> descriptions)
{
    return OpenTrack(VideoTrack(std::move(descriptions)));
}

Tessel::InterfaceRef<QT::IQTTrack> OpenDescription(const ImageDescriptionSpec& plan)
{
    return OpenDescriptions({ImageDescription(plan)});
}

// Runs `call` and gives the function named by the contract it broke, or "".
template <typename F>
std::string BrokenContract(F&& call)
{
    try {
        call();
    } catch (const vellum::config::Error& e) {
        return e.Function() + ": " + e.Condition();
    }
    return "";
}

TEST(VideoDescription, FixedFieldsAsStored)
{
    ImageDescriptionSpec plan;
    plan.format = "apch";
    plan.vendor = "FFMP";
    plan.width = 0xffff;   // -1
    plan.height = 0x8000;  // -32768
    plan.depth = 0xffff;   // 65535, not sign-extended
    plan.temporalQuality = 0x200;
    plan.spatialQuality = 0x300;
    plan.name = "Lavc libx264";
    auto track = OpenDescription(plan);
    ASSERT_TRUE(track);
    EXPECT_EQ(track->GetVideoMediaCompressionFourCC(0), QT::MakeFourCC("apch"));
    EXPECT_EQ(track->GetVideoMediaVendorFourCC(0), QT::MakeFourCC("FFMP"));
    EXPECT_EQ(track->GetVideoMediaWidth(0), -1);
    EXPECT_EQ(track->GetVideoMediaHeight(0), -32768);
    EXPECT_EQ(track->GetVideoMediaDepth(0), 65535u);
    std::uint32_t temporal = 0, spatial = 0;
    EXPECT_EQ(track->GetVideoMediaQuality(0, temporal, spatial), kOk);
    EXPECT_EQ(temporal, 0x200u);
    EXPECT_EQ(spatial, 0x300u);
    QT::String16 name;
    EXPECT_EQ(track->GetVideoMediaCodecName(0, name), kOk);
    EXPECT_EQ(name, ToString16("Lavc libx264"));
}

TEST(VideoDescription, CodecNames)
{
    struct Case {
        const char* what;
        ImageDescriptionSpec plan;
        std::string expected;
    };
    ImageDescriptionSpec empty;
    empty.name = "ignored";
    empty.nameLength = 0;
    ImageDescriptionSpec embeddedNul;
    embeddedNul.name = std::string("ab\0cd", 5);
    ImageDescriptionSpec pastField; // 33 bytes: the whole field, then the depth's two bytes
    pastField.name = std::string(31, 'x');
    pastField.nameLength = 33;
    pastField.depth = 0x4142;
    ImageDescriptionSpec pastDescription; // 255 claimed, 35 there: cut at the description's end
    pastDescription.name = std::string(31, 'y');
    pastDescription.nameLength = 255;
    pastDescription.depth = 0x4344;
    pastDescription.colorTableId = 0x4546;
    const Case cases[] = {
        {"length 0", empty, ""},
        {"embedded NUL", embeddedNul, "ab"},
        {"past the field", pastField, std::string(31, 'x') + "AB"},
        {"past the description", pastDescription, std::string(31, 'y') + "CDEF"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto track = OpenDescription(c.plan);
        ASSERT_TRUE(track);
        QT::String16 name = ToString16("previous");
        EXPECT_EQ(track->GetVideoMediaCodecName(0, name), kOk);
        EXPECT_EQ(name, ToString16(c.expected));
    }
}

TEST(VideoDescription, NoDescriptionForNegativeIndex)
{
    auto track = OpenDescription(ImageDescriptionSpec{.extensions = Join({Pasp(1, 1), Fiel(1, 0)})});
    ASSERT_TRUE(track);
    EXPECT_EQ(track->GetVideoMediaCompressionFourCC(-1), 0u);
    EXPECT_EQ(track->GetVideoMediaVendorFourCC(-1), 0u);
    EXPECT_EQ(track->GetVideoMediaWidth(-1), 0);
    EXPECT_EQ(track->GetVideoMediaHeight(-1), 0);
    EXPECT_EQ(track->GetVideoMediaDepth(-1), 0u);
    std::uint32_t a = 7, b = 7;
    EXPECT_EQ(track->GetVideoMediaPixelAspect(-1, a, b), kNoItem);
    EXPECT_EQ(track->GetVideoMediaFieldInfo(-1, a, b), kNoItem);
    EXPECT_EQ(track->GetVideoMediaQuality(-1, a, b), kNoItem);
    EXPECT_EQ(a, 7u);
    EXPECT_EQ(b, 7u);
    QT::String16 name = ToString16("kept");
    EXPECT_EQ(track->GetVideoMediaCodecName(-1, name), kNoItem);
    EXPECT_EQ(name, ToString16("kept"));
}

TEST(VideoDescription, ContractChecks)
{
    auto video = OpenDescription(ImageDescriptionSpec{});
    ASSERT_TRUE(video);
    EXPECT_EQ(BrokenContract([&] { video->GetVideoMediaWidth(1); }),
              "QT::QTTrack::GetNthSampleDescriptionPtr: inSampleDescriptionIndex < numDescriptions");

    TrackSpec sound;
    sound.mediaType = "soun";
    auto audio = OpenTrack(sound);
    ASSERT_TRUE(audio);
    EXPECT_EQ(BrokenContract([&] { audio->GetVideoMediaWidth(0); }),
              "QT::QTTrack::GetVideoMediaWidth: GetTrackMediaType() == kVideoMediaType");
    float w = 0, h = 0;
    EXPECT_EQ(BrokenContract([&] { audio->GetTrackCleanApertureDimensions(w, h); }),
              "QT::QTTrack::GetTrackCleanApertureDimensions: GetTrackMediaType() == kVideoMediaType");
    EXPECT_EQ(BrokenContract([&] { audio->GetAllImageDescriptionsEquivalent(true); }),
              "QT::QTTrack::GetAllImageDescriptionsEquivalent: GetTrackMediaType() == kVideoMediaType");
    EXPECT_EQ(BrokenContract([&] { audio->VideoTrackContainsDeltaFrames(); }),
              "QT::QTTrack::VideoTrackContainsDeltaFrames: GetTrackMediaType() == kVideoMediaType");
    // These have no media type check.
    EXPECT_EQ(BrokenContract([&] {
                  audio->GetAllSampleDescriptionsEquivalent();
                  audio->GetTrackProductionApertureDimensions(w, h);
                  audio->GetTrackEncodedPixelsDimensions(w, h);
                  audio->VideoTrackHasTemporalReferenceData();
                  audio->VideoTrackHasEarlierDisplayKeyFrames();
              }),
              "");
}

// The result of each extension getter over one set of extension atoms.
struct ExtensionCase {
    const char* what;
    Bytes extensions;
    QT::ResultCode pasp, clap, fiel, colr;
    std::uint16_t colorTableId = 0xffff;
    std::optional<std::uint32_t> size = {};
};

TEST(VideoDescription, ExtensionGetters)
{
    const std::array<std::uint32_t, 8> clapValues = {160, 1, 120, 1, 0xfffffffe, 2, 0, 1};
    const Bytes all = Join({Pasp(16, 11), Clap(clapValues), Fiel(2, 9), Colr("nclc", 1, 1, 1)});
    const ExtensionCase cases[] = {
        {"all four", all, kOk, kOk, kOk, kOk},
        {"none: exactly 86 bytes", {}, kNoItem, kNoItem, kNoItem, kNoItem},
        {"shorter than 86 bytes", all, kNoItem, kNoItem, kNoItem, kNoItem, 0xffff, 80},
        {"pasp payload of 12", Join({Ext("pasp", Bytes(12, 1)), Pasp(1, 1), Fiel(1, 0)}), kNoItem, kNoItem, kOk,
         kNoItem},
        {"colr payload of 11", Ext("colr", ByteWriter().Code("nclc").U16(1).U16(1).U16(1).U8(0)), kNoItem, kNoItem,
         kNoItem, kNoItem},
        {"colr of type nclx", Colr("nclx", 1, 1, 1), kNoItem, kNoItem, kNoItem, kNoItem},
        {"size 0 ends the search", Join({Fiel(1, 0), Ext("junk", {}, 0), Pasp(1, 1)}), kNoItem, kNoItem, kOk, kNoItem},
        {"size 4 ends the search", Join({Ext("junk", {}, 4), Pasp(1, 1)}), kNoItem, kNoItem, kNoItem, kNoItem},
        {"empty pasp in front is found and refused", Join({Ext("pasp", {}), Pasp(1, 1)}), kNoItem, kNoItem, kNoItem,
         kNoItem},
        {"empty fiel as the last 8 bytes is not found", Join({Pasp(1, 1), Ext("fiel", {})}), kOk, kNoItem, kNoItem,
         kNoItem},
        // Its 8-byte payload would end 4 bytes behind the description.
        {"pasp claiming bytes past the description", Join({Fiel(1, 0), Ext("pasp", ByteWriter().U32(1), 16)}), kNoItem,
         kNoItem, kOk, kNoItem},
        {"unknown atoms are passed", Join({Ext("gama", ByteWriter().U32(0x23333)), Pasp(1, 1)}), kOk, kNoItem,
         kNoItem, kNoItem},
        {"clut behind the fixed part is stepped over",
         Join({Ext("clut", Bytes(16, 0)), Pasp(1, 1)}), kOk, kNoItem, kNoItem, kNoItem, 0},
    };
    for (const ExtensionCase& c : cases) {
        SCOPED_TRACE(c.what);
        ImageDescriptionSpec plan;
        plan.extensions = c.extensions;
        plan.colorTableId = c.colorTableId;
        plan.size = c.size;
        auto track = OpenDescription(plan);
        ASSERT_TRUE(track);
        std::uint32_t v[8] = {};
        EXPECT_EQ(track->GetVideoMediaPixelAspect(0, v[0], v[1]), c.pasp);
        EXPECT_EQ(track->GetVideoMediaCleanAperture(0, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]), c.clap);
        EXPECT_EQ(track->GetVideoMediaFieldInfo(0, v[0], v[1]), c.fiel);
        EXPECT_EQ(track->GetVideoMediaColorInfo(0, v[0], v[1], v[2]), c.colr);
    }
}

TEST(VideoDescription, ExtensionValues)
{
    const std::array<std::uint32_t, 8> clapValues = {160, 1, 120, 1, 0xfffffffe, 2, 0, 1};
    auto track = OpenDescription(
        ImageDescriptionSpec{.extensions = Join({Pasp(16, 11), Clap(clapValues), Fiel(2, 14), Colr("nclc", 6, 7, 6)})});
    ASSERT_TRUE(track);
    std::uint32_t h = 0, v = 0;
    ASSERT_EQ(track->GetVideoMediaPixelAspect(0, h, v), kOk);
    EXPECT_EQ(h, 16u);
    EXPECT_EQ(v, 11u);
    std::array<std::uint32_t, 8> c{};
    ASSERT_EQ(track->GetVideoMediaCleanAperture(0, c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7]), kOk);
    EXPECT_EQ(c, clapValues);
    std::uint32_t count = 0, ordering = 0;
    ASSERT_EQ(track->GetVideoMediaFieldInfo(0, count, ordering), kOk);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(ordering, 14u);
    std::uint32_t p = 0, t = 0, m = 0;
    ASSERT_EQ(track->GetVideoMediaColorInfo(0, p, t, m), kOk);
    EXPECT_EQ((std::array<std::uint32_t, 3>{p, t, m}), (std::array<std::uint32_t, 3>{6, 7, 6}));
}

TEST(VideoDescription, FieldInfoRefusals)
{
    struct Case {
        std::uint8_t count, ordering;
        QT::ResultCode result;
        std::uint32_t countOut, orderingOut;
    };
    const Case cases[] = {
        {1, 0, kOk, 1, 0},       {1, 1, kOk, 1, 1},          {2, 6, kOk, 2, 6},     {2, 9, kOk, 2, 9},
        {3, 0, kNoItem, 77, 77}, // nothing written
        {0, 1, kNoItem, 77, 77}, {2, 5, kNoItem, 2, 77}, // the count is already written
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << int(c.count) << "/" << int(c.ordering));
        auto track = OpenDescription(ImageDescriptionSpec{.extensions = Fiel(c.count, c.ordering)});
        ASSERT_TRUE(track);
        std::uint32_t count = 77, ordering = 77;
        EXPECT_EQ(track->GetVideoMediaFieldInfo(0, count, ordering), c.result);
        EXPECT_EQ(count, c.countOut);
        EXPECT_EQ(ordering, c.orderingOut);
    }
}

TEST(VideoDescription, ColorValuesOutsideTheKnownOnesBecomeUnspecified)
{
    struct Case {
        std::uint16_t p, t, m;
        std::array<std::uint32_t, 3> expected;
    };
    const Case cases[] = {
        {9, 1, 6, {2, 1, 6}}, {1, 7, 7, {1, 7, 7}}, {5, 6, 1, {5, 2, 1}}, {0, 0, 0, {2, 2, 2}}, {6, 2, 9, {6, 2, 2}},
    };
    for (const Case& c : cases) {
        auto track = OpenDescription(ImageDescriptionSpec{.extensions = Colr("nclc", c.p, c.t, c.m)});
        ASSERT_TRUE(track);
        std::array<std::uint32_t, 3> out{};
        EXPECT_EQ(track->GetVideoMediaColorInfo(0, out[0], out[1], out[2]), kOk);
        EXPECT_EQ(out, c.expected);
    }
}

TEST(VideoDescription, SearchDirectly)
{
    // Two descriptions in one buffer: the search keeps to the first one.
    const Bytes first = ImageDescription(ImageDescriptionSpec{.extensions = Fiel(1, 0)});
    const Bytes second = ImageDescription(ImageDescriptionSpec{.extensions = Pasp(3, 4)});
    const Bytes both = Join({first, second});
    const QT::AtomReader reader(both.data(), static_cast<std::uint32_t>(both.size()));
    QT::AtomPtr payload;
    std::uint32_t size = 0;
    EXPECT_FALSE(QT::QTTrack::FindImageDescriptionExtension(reader, QT::AtomPtr::At(0), QT::MakeFourCC("pasp"),
                                                            payload, size));
    ASSERT_TRUE(QT::QTTrack::FindImageDescriptionExtension(reader, QT::AtomPtr::At(0), QT::MakeFourCC("fiel"),
                                                           payload, size));
    EXPECT_EQ(payload.Offset(), 86u + 8u);
    EXPECT_EQ(size, 2u);
    const auto at = QT::AtomPtr::At(static_cast<std::uint32_t>(first.size()));
    ASSERT_TRUE(QT::QTTrack::FindImageDescriptionExtension(reader, at, QT::MakeFourCC("pasp"), payload, size));
    EXPECT_EQ(payload.Offset(), first.size() + 86 + 8);
    EXPECT_EQ(size, 8u);
    EXPECT_FALSE(QT::QTTrack::FindImageDescriptionExtension(reader, QT::AtomPtr(), QT::MakeFourCC("pasp"), payload,
                                                            size));
    // A size field that claims more than the buffer holds reads nothing beyond it.
    Bytes claimsMore = ImageDescription(ImageDescriptionSpec{.extensions = Pasp(3, 4)});
    claimsMore[0] = 0x7f;
    const QT::AtomReader shortReader(claimsMore.data(), static_cast<std::uint32_t>(claimsMore.size()));
    EXPECT_TRUE(QT::QTTrack::FindImageDescriptionExtension(shortReader, QT::AtomPtr::At(0), QT::MakeFourCC("pasp"),
                                                           payload, size));
    EXPECT_FALSE(QT::QTTrack::FindImageDescriptionExtension(shortReader, QT::AtomPtr::At(0), QT::MakeFourCC("fiel"),
                                                            payload, size));
}

TEST(VideoDescription, Comparisons)
{
    const ImageDescriptionSpec base{.extensions = Pasp(1, 1)};
    ImageDescriptionSpec otherVendor = base;
    otherVendor.vendor = "FFMP";
    otherVendor.name = "another name";
    otherVendor.temporalQuality = 9;
    otherVendor.extensions = Join({Pasp(4, 3), Fiel(1, 0)}); // a different size too
    ImageDescriptionSpec otherSize = base;
    otherSize.extensions = Ext("pasp", ByteWriter().U32(1).U32(1).U32(0));
    ImageDescriptionSpec otherWidth = base;
    otherWidth.width = 321;
    ImageDescriptionSpec otherDepth = base;
    otherDepth.depth = 32;
    ImageDescriptionSpec otherResolution = base;
    otherResolution.verticalResolution = 0x480001;
    ImageDescriptionSpec otherFormat = base;
    otherFormat.format = "hvc1";
    Bytes broken = ImageDescription(base);
    broken[3] = 4; // size below 8: the walk cannot reach past it

    struct Case {
        const char* what;
        std::vector<Bytes> descriptions;
        bool sample, imageIgnoringSize, image;
    };
    const Case cases[] = {
        {"one description", {ImageDescription(base)}, true, true, true},
        {"vendor, name, quality, extensions differ", {ImageDescription(base), ImageDescription(otherVendor)}, true,
         true, false},
        {"only the size differs", {ImageDescription(base), ImageDescription(otherSize)}, true, true, false},
        {"width differs", {ImageDescription(base), ImageDescription(otherWidth)}, false, false, false},
        {"depth differs", {ImageDescription(base), ImageDescription(otherDepth)}, false, false, false},
        {"resolution differs", {ImageDescription(base), ImageDescription(otherResolution)}, false, false, false},
        {"format differs in the third",
         {ImageDescription(base), ImageDescription(base), ImageDescription(otherFormat)}, false, false, false},
        {"an unreachable description", {ImageDescription(base), broken}, false, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto track = OpenDescriptions(c.descriptions);
        ASSERT_TRUE(track);
        EXPECT_EQ(track->GetAllSampleDescriptionsEquivalent(), c.sample);
        EXPECT_EQ(track->GetAllImageDescriptionsEquivalent(true), c.imageIgnoringSize);
        EXPECT_EQ(track->GetAllImageDescriptionsEquivalent(false), c.image);
    }
}

TEST(VideoDescription, SampleDescriptionsOfOtherMediaAreComparedAtTheSamePlaces)
{
    TrackSpec sound;
    sound.mediaType = "soun";
    // 36-byte sound descriptions: the resolutions and depth lie beyond them.
    const Bytes a = SampleDescription("twos", ByteWriter().Zeros(8).U16(2).U16(16).Zeros(4).U32(48000u << 16));
    Bytes b = a;
    b[33] = 1; // low byte of the width place
    sound.descriptions = {a, a};
    auto same = OpenTrack(sound);
    ASSERT_TRUE(same);
    EXPECT_TRUE(same->GetAllSampleDescriptionsEquivalent());
    sound.descriptions = {a, b};
    auto differ = OpenTrack(sound);
    ASSERT_TRUE(differ);
    EXPECT_FALSE(differ->GetAllSampleDescriptionsEquivalent());
}

TEST(VideoDescription, TrackApertures)
{
    auto aperture = [](const char* type, std::int32_t w, std::int32_t h) {
        return Atom(type, ByteWriter().U32(0).U32(static_cast<std::uint32_t>(w)).U32(static_cast<std::uint32_t>(h)));
    };
    TrackSpec plan = VideoTrack({ImageDescription({})});
    plan.beforeMdia = {Atom("tapt", std::vector<Atom>{aperture("clef", 0x00c2aaab, 144 << 16),
                                                        aperture("prof", 176 << 16, 144 << 16),
                                                        aperture("enof", -(1 << 16), 0x8000)})};
    auto track = OpenTrack(plan);
    ASSERT_TRUE(track);
    float w = 0, h = 0;
    ASSERT_TRUE(track->GetTrackCleanApertureDimensions(w, h));
    EXPECT_FLOAT_EQ(w, static_cast<float>(0x00c2aaab) * (1.0f / 65536.0f));
    EXPECT_FLOAT_EQ(h, 144.0f);
    ASSERT_TRUE(track->GetTrackProductionApertureDimensions(w, h));
    EXPECT_FLOAT_EQ(w, 176.0f);
    ASSERT_TRUE(track->GetTrackEncodedPixelsDimensions(w, h));
    EXPECT_FLOAT_EQ(w, -1.0f);
    EXPECT_FLOAT_EQ(h, 0.5f);

    // Absent atoms, and one too short to hold its height, leave the outputs alone.
    plan.beforeMdia = {Atom("tapt", std::vector<Atom>{Atom("clef", ByteWriter().U32(0).U32(1 << 16))})};
    auto bare = OpenTrack(plan);
    ASSERT_TRUE(bare);
    w = 5, h = 6;
    EXPECT_FALSE(bare->GetTrackCleanApertureDimensions(w, h));
    EXPECT_FALSE(bare->GetTrackProductionApertureDimensions(w, h));
    EXPECT_FALSE(bare->GetTrackEncodedPixelsDimensions(w, h));
    EXPECT_EQ(w, 5.0f);
    EXPECT_EQ(h, 6.0f);
}

TEST(VideoDescription, FrameStructure)
{
    struct Case {
        const char* what;
        std::optional<std::vector<std::uint32_t>> stss;
        std::vector<Atom> extra;
        bool delta, temporal, earlier;
    };
    const Case cases[] = {
        {"no stss, sdtp or ctts", std::nullopt, {}, false, false, false},
        {"stss with no entries", std::vector<std::uint32_t>{}, {}, true, false, false},
        {"stss listing each sample", std::vector<std::uint32_t>{1, 2, 3}, {}, false, false, false},
        {"stss listing some", std::vector<std::uint32_t>{1, 3}, {}, true, false, false},
        {"sdtp and ctts, an anchor without references", std::nullopt,
         {Sdtp({0x08, 0x60, 0x08}), Ctts({{3, 0}})}, false, true, true},
        {"sdtp without such an anchor", std::nullopt, {Sdtp({0x40, 0x20, 0x08}), Ctts({{3, 0}})}, false, true, false},
        {"sdtp alone", std::nullopt, {Sdtp({0x60, 0x08, 0x08})}, false, false, true},
        {"ctts alone", std::nullopt, {Ctts({{3, 0}})}, false, false, false},
        {"sdtp of 12 bytes holds no flags", std::nullopt, {Sdtp({}), Ctts({{3, 0}})}, false, true, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TrackSpec plan = VideoTrack({ImageDescription({})});
        plan.stts = {{3, 100}};
        plan.stsc = {{1, 3, 1}};
        plan.stszSizes = {1, 2, 3};
        plan.stss = c.stss;
        plan.extraStbl = c.extra;
        auto track = OpenTrack(plan);
        ASSERT_TRUE(track);
        EXPECT_EQ(track->VideoTrackContainsDeltaFrames(), c.delta);
        EXPECT_EQ(track->VideoTrackHasTemporalReferenceData(), c.temporal);
        EXPECT_EQ(track->VideoTrackHasEarlierDisplayKeyFrames(), c.earlier);
    }
}

} // namespace
