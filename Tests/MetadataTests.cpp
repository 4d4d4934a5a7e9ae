// Key/value metadata read at the open.
#include <functional>

#include <gtest/gtest.h>

#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

struct Item {
    std::int32_t keyIndex;
    std::uint32_t dataType;
    Bytes value;
};

Atom Keys(const std::vector<std::string>& keys, std::optional<std::int32_t> count = {})
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(count.value_or(static_cast<std::int32_t>(keys.size()))));
    for (const std::string& k : keys) w.U32(static_cast<std::uint32_t>(8 + k.size())).Code("mdta").Text(k);
    return Atom("keys", w.Take());
}

Atom Ilst(const std::vector<Item>& items)
{
    ByteWriter w;
    for (const Item& i : items) {
        w.U32(static_cast<std::uint32_t>(24 + i.value.size())).U32(static_cast<std::uint32_t>(i.keyIndex));
        w.U32(static_cast<std::uint32_t>(16 + i.value.size())).Code("data").U32(i.dataType).U32(0).Raw(i.value);
    }
    return Atom("ilst", w.Take());
}

Atom Meta(std::vector<Atom> children) { return Atom("meta", std::move(children)); }

Atom Hdlr() { return Atom("hdlr", HdlrPayload("mdta")); }

Tessel::InterfaceRef<QT::IQTMovie> MovieWith(const Atom& meta)
{
    MovieSpec plan;
    plan.extraMoov.push_back(meta);
    OpenResult r = OpenSpec(plan);
    EXPECT_EQ(r.code, QT::kResultSuccess);
    return r.movie;
}

struct ValueCase {
    const char* name;
    std::uint32_t dataType;
    Bytes value;
    int alternative; // -1: no entry
    std::function<void(const QT::MetadataVariant&)> check;
};

class MetadataValues : public ::testing::TestWithParam<ValueCase> {};

TEST_P(MetadataValues, DecodesByDataType)
{
    const ValueCase& c = GetParam();
    auto movie = MovieWith(Meta({Hdlr(), Keys({"k"}), Ilst({{1, c.dataType, c.value}})}));
    ASSERT_TRUE(movie);
    QT::MetadataValue v;
    const bool found = movie->GetMetadataValue("k", v);
    ASSERT_EQ(found, c.alternative >= 0);
    if (!found) return;
    EXPECT_EQ(v.mDataType, c.dataType);
    ASSERT_EQ(v.mValue.which(), c.alternative);
    c.check(v.mValue);
}

template <typename T>
std::function<void(const QT::MetadataVariant&)> Is(T expected)
{
    return [expected](const QT::MetadataVariant& v) { EXPECT_EQ(boost::get<T>(v), expected); };
}

const ValueCase kValueCases[] = {
    {"binary", 0, {1, 2, 3}, 0,
     [](const QT::MetadataVariant& v) {
         const auto& b = boost::get<Pelt::BinaryData>(v);
         ASSERT_EQ(b.Size(), 3u);
         EXPECT_EQ(b.Data()[2], 3);
     }},
    {"utf8", 1, {'h', 0xC3, 0xA9}, 1, Is<std::string>("h\xC3\xA9")},
    {"utf16 is taken as 8-bit text", 2, {'a', 'b'}, 2, Is<QT::String16>(u"ab")},
    {"signed 8", 21, {0xFF}, 3, Is<std::int32_t>(-1)},
    {"signed 16", 21, {0xFF, 0xFE}, 3, Is<std::int32_t>(-2)},
    {"signed 32", 21, {0xFF, 0xFF, 0xFF, 0xFF}, 3, Is<std::int32_t>(-1)},
    {"signed 24 makes no entry", 21, {1, 2, 3}, -1, nullptr},
    {"unsigned 8", 22, {0x05}, 3, Is<std::int32_t>(5)},
    {"unsigned 16", 22, {0xFF, 0xFE}, 3, Is<std::int32_t>(65534)},
    {"unsigned 32", 22, {0xFF, 0xFF, 0xFF, 0xFF}, 4, Is<std::uint32_t>(4294967295u)},
    {"unsigned 64 makes no entry", 22, Bytes(8, 1), -1, nullptr},
    {"float", 23, {0x3F, 0xC0, 0, 0}, 5, Is<float>(1.5f)},
    {"double", 24, {0x40, 0x09, 0x21, 0xFB, 0x54, 0x44, 0x2D, 0x18}, 6, Is<double>(3.141592653589793)},
    {"unknown type", 13, {1}, -1, nullptr},
    {"type above 24", 25, {1}, -1, nullptr},
    {"no value", 1, {}, -1, nullptr},
};

INSTANTIATE_TEST_SUITE_P(Metadata, MetadataValues, ::testing::ValuesIn(kValueCases), [](const auto& info) {
    std::string n = info.param.name;
    for (char& ch : n)
        if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
    return n;
});

TEST(Metadata, KeysAndItems)
{
    auto movie = MovieWith(Meta({Hdlr(), Keys({"a", "b", "a", "c", "d"}),
                                 Ilst({{0, 1, {'z'}}, {9, 1, {'z'}}, {2, 1, {'1'}}, {2, 1, {'2'}}, {3, 1, {'3'}}, {4, 1, {'4'}}})}));
    ASSERT_TRUE(movie);
    QT::MetadataValue v;
    ASSERT_TRUE(movie->GetMetadataValue("b", v));
    EXPECT_EQ(boost::get<std::string>(v.mValue), "1"); // the first value of a key stands
    ASSERT_TRUE(movie->GetMetadataValue("a", v));
    EXPECT_EQ(boost::get<std::string>(v.mValue), "3"); // two keys of one text share an entry
    // At most as many items as keys are read: the sixth is never reached.
    EXPECT_FALSE(movie->GetMetadataValue("d", v));
    v.mDataType = 99;
    EXPECT_FALSE(movie->GetMetadataValue("c", v));
    EXPECT_EQ(v.mDataType, 99u);
    EXPECT_FALSE(movie->GetMetadataValue("A", v));
}

TEST(Metadata, BrokenLayoutsOpenWithoutValues)
{
    const Item item{1, 1, {'v'}};
    struct Case {
        const char* name;
        Atom meta;
    };
    Atom fullMeta = Meta({Hdlr(), Keys({"k"}), Ilst({item})});
    fullMeta.payload = {0, 0, 0, 0}; // the version word of the other layout
    const Case cases[] = {
        {"without hdlr", Meta({Keys({"k"}), Ilst({item})})},
        {"atom between keys and ilst", Meta({Hdlr(), Keys({"k"}), Atom("free"), Ilst({item})})},
        {"with a version word", fullMeta},
        {"negative key count", Meta({Hdlr(), Keys({"k"}, -1), Ilst({item})})},
    };
    for (const Case& c : cases) {
        auto movie = MovieWith(c.meta);
        ASSERT_TRUE(movie) << c.name;
        QT::MetadataValue v;
        EXPECT_FALSE(movie->GetMetadataValue("k", v)) << c.name;
    }
}

TEST(Metadata, HostileItemsStayInsideTheCopy)
{
    // A huge key count with a zero-sized item, and an item whose size runs
    // past the copy: the open ends quickly and reads nothing outside.
    ByteWriter ilst;
    ilst.U32(0).U32(1).U32(0).Code("data").U32(1).U32(0);
    auto movie = MovieWith(Meta({Hdlr(), Keys({"k"}, 0x7FFFFFFF), Atom("ilst", ilst.Take())}));
    ASSERT_TRUE(movie);
    // A key count beyond the entries: the keys that are there still serve.
    movie = MovieWith(Meta({Hdlr(), Keys({"k"}, 0x7FFFFFFF), Ilst({{1, 1, {'v'}}})}));
    ASSERT_TRUE(movie);
    QT::MetadataValue kv;
    EXPECT_TRUE(movie->GetMetadataValue("k", kv));
    ByteWriter big;
    big.U32(0x7FFFFFF0).U32(1).U32(0).Code("data").U32(0).U32(0);
    movie = MovieWith(Meta({Hdlr(), Keys({"k"}), Atom("ilst", big.Take())}));
    ASSERT_TRUE(movie);
    QT::MetadataValue v;
    EXPECT_FALSE(movie->GetMetadataValue("k", v));
    // A float item whose four bytes pass the copy makes no entry.
    ByteWriter shortFloat;
    shortFloat.U32(25).U32(1).U32(0).Code("data").U32(23).U32(0).U8(0x3F);
    movie = MovieWith(Meta({Hdlr(), Keys({"k"}), Atom("ilst", shortFloat.Take())}));
    ASSERT_TRUE(movie);
}

TEST(Metadata, CorpusMetaInsideUserData)
{
    // This writer puts `meta` inside the movie's `udta`, with a version word:
    // it is user data, not metadata.
    const auto path = TestDataDir() / "corpus" / "meta_mdta_keys.mov";
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    ASSERT_EQ(QT::MakeParser()->OpenMovie(ToString16(path.string()), movie), QT::kResultSuccess);
    QT::MetadataValue v;
    EXPECT_FALSE(movie->GetMetadataValue("title", v));
    Pelt::BinaryData meta;
    ASSERT_TRUE(movie->GetUserDataByType(QT::MakeFourCC("meta"), meta));
    EXPECT_EQ(meta.Size(), 355u - 8u);
}

} // namespace
