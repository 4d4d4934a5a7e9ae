// Image descriptions of video tracks, on built descriptions: fields at their
// limits, the search for extension atoms, and the descriptions handed out as
// bytes.
#include <gtest/gtest.h>

#include <algorithm>

#include "Tests/Support/Open.h"

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
Bytes Colr(const char* type, std::uint16_t p) { return Ext("colr", ByteWriter().Code(type).U16(p).U16(p).U16(p)); }
Bytes ToBytes(const Pelt::BinaryData& data) { return Bytes(data.Data(), data.Data() + data.Size()); }

Tessel::InterfaceRef<QT::IQTTrack> Open(std::vector<Bytes> descriptions)
{
    TrackPlan t;
    t.descriptions = std::move(descriptions);
    return OpenTrack(t);
}

TEST(VideoDescription, SignedSizesAndANameCutAtTheEnd)
{
    // 255 claimed, 35 there: the name runs over the depth and colour table id to the description's end.
    auto track = Open({ImageDescription({.width = 0xffff, .height = 0x8000, .name = std::string(31, 'y'),
                                         .nameLength = 255, .depth = 0x4344, .colorTableId = 0x4546})});
    ASSERT_TRUE(track);
    EXPECT_EQ(std::pair(track->GetVideoMediaWidth(0), track->GetVideoMediaHeight(0)), std::pair(-1, -32768));
    QT::String16 name;
    EXPECT_EQ(track->GetVideoMediaCodecName(0, name), kOk);
    EXPECT_EQ(name, ToString16(std::string(31, 'y') + "CDEF"));
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
    EXPECT_EQ(track->GetVideoMediaImageDescriptionAsBinary(-1, out), QT::kResultNotFound);
    EXPECT_EQ(track->GetVideoMediaImageDescriptionAsPlatformBinary(-1, out), QT::kResultNotFound);
    EXPECT_EQ(ToBytes(out), second);
}

} // namespace
