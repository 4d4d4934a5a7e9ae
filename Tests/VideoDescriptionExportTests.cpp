// Image descriptions handed out as bytes: one extension, the whole
// description in file order, and the platform (little-endian) form.
#include <gtest/gtest.h>

#include <algorithm>

#include "Tests/Support/OpenTrack.h"

using namespace testsupport;

namespace {

constexpr QT::ResultCode kOk = QT::kResultSuccess;
constexpr QT::ResultCode kFailed = QT::kResultNotFound;

Bytes Ext(const char* type, const Bytes& payload)
{
    return Atom(type, payload).Serialize();
}
Bytes Join(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}
Bytes ToBytes(const Pelt::BinaryData& data) { return Bytes(data.Data(), data.Data() + data.Size()); }

Tessel::InterfaceRef<QT::IQTTrack> OpenDescriptions(std::vector<Bytes> descriptions)
{
    TrackSpec t;
    t.descriptions = std::move(descriptions);
    return OpenTrack(t);
}

// Reverses the bytes of [at, at + width) of `b`.
void Flip(Bytes& b, std::size_t at, std::size_t width) { std::reverse(b.begin() + at, b.begin() + at + width); }

// The fixed part turned by hand, as the platform form must have it.
void FlipFixedPart(Bytes& b)
{
    for (std::size_t at : {0, 4, 8, 20, 24, 28, 36, 40, 44}) Flip(b, at, 4);
    for (std::size_t at : {12, 14, 16, 18, 32, 34, 48, 82, 84}) Flip(b, at, 2);
}

TEST(VideoDescriptionExport, ExtensionPayloadInFileOrder)
{
    const Bytes pasp = ByteWriter().U32(16).U32(11);
    auto track = OpenDescriptions(
        {ImageDescription({.extensions = Join({Ext("pasp", pasp), Ext("gama", {}), Ext("fiel", {1, 0})})})});
    ASSERT_TRUE(track);
    Pelt::BinaryData out;
    ASSERT_EQ(track->GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(0, QT::MakeFourCC("pasp"), out), kOk);
    EXPECT_EQ(ToBytes(out), pasp);
    ASSERT_EQ(track->GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(0, QT::MakeFourCC("fiel"), out), kOk);
    EXPECT_EQ(ToBytes(out), Bytes({1, 0}));

    // An empty payload, an absent type and a missing description fail and
    // leave the output as it was.
    const std::pair<int, QT::FourCC> failing[] = {
        {0, QT::MakeFourCC("gama")}, {0, QT::MakeFourCC("colr")}, {-1, QT::MakeFourCC("pasp")}};
    for (const auto& [index, type] : failing) {
        SCOPED_TRACE(type);
        EXPECT_EQ(track->GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(index, type, out), kFailed);
        EXPECT_EQ(ToBytes(out), Bytes({1, 0}));
    }
}

TEST(VideoDescriptionExport, ClutBehindTheFixedPartCannotBeAskedFor)
{
    const Bytes clut = Ext("clut", Bytes(8, 0xcc));
    const Bytes fiel = Ext("fiel", {1, 0});
    Pelt::BinaryData out;
    auto skipped = OpenDescriptions({ImageDescription({.colorTableId = 0, .extensions = Join({clut, fiel})})});
    ASSERT_TRUE(skipped);
    EXPECT_EQ(skipped->GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(0, QT::MakeFourCC("clut"), out), kFailed);
    EXPECT_EQ(skipped->GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(0, QT::MakeFourCC("fiel"), out), kOk);
    // With another colour table id it is an extension like any other.
    auto plain = OpenDescriptions({ImageDescription({.colorTableId = 8, .extensions = Join({clut, fiel})})});
    ASSERT_TRUE(plain);
    ASSERT_EQ(plain->GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(0, QT::MakeFourCC("clut"), out), kOk);
    EXPECT_EQ(ToBytes(out), Bytes(8, 0xcc));
}

TEST(VideoDescriptionExport, WholeDescriptionInFileOrder)
{
    const Bytes first = ImageDescription({.name = "first", .extensions = Ext("fiel", {1, 0})});
    const Bytes second = ImageDescription({.format = "hvc1", .width = 720});
    auto track = OpenDescriptions({first, second});
    ASSERT_TRUE(track);
    Pelt::BinaryData out;
    ASSERT_EQ(track->GetVideoMediaImageDescriptionAsBinary(0, out), kOk);
    EXPECT_EQ(ToBytes(out), first);
    ASSERT_EQ(track->GetVideoMediaImageDescriptionAsBinary(1, out), kOk);
    EXPECT_EQ(ToBytes(out), second);
    EXPECT_EQ(track->GetVideoMediaImageDescriptionAsBinary(-1, out), kFailed);
    EXPECT_EQ(ToBytes(out), second);
    EXPECT_EQ(track->GetVideoMediaImageDescriptionAsPlatformBinary(-1, out), kFailed);
    EXPECT_EQ(ToBytes(out), second);
}

TEST(VideoDescriptionExport, PlatformFormOfTheFixedPart)
{
    const Bytes stored = ImageDescription({.format = "apcn",
                                           .vendor = "FFMP",
                                           .temporalQuality = 0x01020304,
                                           .spatialQuality = 0x05060708,
                                           .width = 720,
                                           .height = 486,
                                           .dataSize = 0x0a0b0c0d,
                                           .frameCount = 1,
                                           .name = "Apple ProRes",
                                           .depth = 24,
                                           .colorTableId = 0xfffe});
    auto track = OpenDescriptions({stored});
    ASSERT_TRUE(track);
    Pelt::BinaryData out;
    ASSERT_EQ(track->GetVideoMediaImageDescriptionAsPlatformBinary(0, out), kOk);
    const Bytes platform = ToBytes(out);
    ASSERT_EQ(platform.size(), 86u);
    Bytes expected = stored;
    FlipFixedPart(expected);
    EXPECT_EQ(platform, expected);
    // Spot checks of the same: size 86 little-endian, width 720 as d0 02,
    // the format backwards, the name untouched.
    EXPECT_EQ(Bytes(platform.begin(), platform.begin() + 4), Bytes({86, 0, 0, 0}));
    EXPECT_EQ(Bytes(platform.begin() + 32, platform.begin() + 34), Bytes({0xd0, 0x02}));
    EXPECT_EQ(std::string(platform.begin() + 4, platform.begin() + 8), "ncpa");
    EXPECT_EQ(std::string(platform.begin() + 51, platform.begin() + 63), "Apple ProRes");
}

TEST(VideoDescriptionExport, PlatformFormOfTheExtensions)
{
    const Bytes paspWrong = Ext("pasp", ByteWriter().U32(1).U32(2).U32(3)); // 12 bytes: stays
    const Bytes clap = Ext("clap", ByteWriter().U32(1).U32(2).U32(3).U32(4).U32(5).U32(6).U32(7).U32(8));
    const Bytes colr = Ext("colr", ByteWriter().Code("nclc").U16(1).U16(6).U16(7));
    const Bytes gama = Ext("gama", ByteWriter().U32(0x23333));
    const Bytes fiel = Ext("fiel", {2, 9});
    const Bytes pasp2 = Ext("pasp", ByteWriter().U32(4).U32(3)); // not the first pasp: stays
    const Bytes stored = ImageDescription({.extensions = Join({paspWrong, clap, gama, colr, fiel, pasp2})});
    auto track = OpenDescriptions({stored});
    ASSERT_TRUE(track);
    Pelt::BinaryData out;
    ASSERT_EQ(track->GetVideoMediaImageDescriptionAsPlatformBinary(0, out), kOk);

    Bytes expected = stored;
    FlipFixedPart(expected);
    std::size_t at = 86 + paspWrong.size();
    for (std::size_t i = 0; i < 8; ++i) Flip(expected, at + 8 + 4 * i, 4); // clap payload
    at += clap.size() + gama.size();
    Flip(expected, at + 8, 4); // nclc becomes clcn; the header type colr stays
    for (std::size_t i = 0; i < 3; ++i) Flip(expected, at + 12 + 2 * i, 2);
    EXPECT_EQ(ToBytes(out), expected);
    EXPECT_EQ(std::string(expected.begin() + at + 4, expected.begin() + at + 12), "colrclcn");

    // The stored description is unchanged by the conversion.
    ASSERT_EQ(track->GetVideoMediaImageDescriptionAsBinary(0, out), kOk);
    EXPECT_EQ(ToBytes(out), stored);
}

TEST(VideoDescriptionExport, PlatformFormKeepsWhatItDoesNotKnow)
{
    const Bytes paspFirst = Ext("pasp", ByteWriter().U32(16).U32(11));
    const Bytes nclx = Ext("colr", ByteWriter().Code("nclx").U16(1).U16(1).U16(1));
    const Bytes stored = ImageDescription({.extensions = Join({paspFirst, nclx})});
    auto track = OpenDescriptions({stored});
    ASSERT_TRUE(track);
    Pelt::BinaryData out;
    ASSERT_EQ(track->GetVideoMediaImageDescriptionAsPlatformBinary(0, out), kOk);
    Bytes expected = stored;
    FlipFixedPart(expected);
    Flip(expected, 86 + 8, 4);
    Flip(expected, 86 + 12, 4);
    EXPECT_EQ(ToBytes(out), expected);
}

} // namespace
