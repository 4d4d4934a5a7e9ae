// Key/value metadata read at the open: values by data type, which item a key
// gets, and layouts or entries too short to be read.
#include <sstream>

#include <gtest/gtest.h>

#include "Tests/Support/Corpus.h"
#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

struct Item { std::int32_t keyIndex; std::uint32_t dataType; Bytes value; };

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
    for (const Item& i : items)
        w.U32(24 + i.value.size()).U32(i.keyIndex).U32(16 + i.value.size()).Code("data").U32(i.dataType).U32(0).Raw(i.value);
    return Atom("ilst", w.Take());
}

Atom Meta(std::vector<Atom> children) { return Atom("meta", std::move(children)); }
Atom Hdlr() { return Atom("hdlr", HdlrPayload("mdta")); }
Atom One(std::uint32_t type, Bytes value) { return Meta({Hdlr(), Keys({"k"}), Ilst({{1, type, std::move(value)}})}); }

// "data type/alternative:value" (for numbers and text), or "" when the key has no value.
std::string Lookup(const Atom& meta, const std::string& key)
{
    MovieSpec plan;
    plan.extraMoov.push_back(meta);
    const OpenResult r = OpenSpec(plan);
    EXPECT_EQ(r.code, QT::kResultSuccess);
    QT::MetadataValue v;
    v.mDataType = 99;
    if (!r.movie || !r.movie->GetMetadataValue(key, v)) return v.mDataType == 99 ? "" : "changed on a miss";
    std::ostringstream os;
    os << v.mDataType << '/' << v.mValue.which() << ':';
    boost::apply_visitor([&]<typename T>(const T& x) { if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, std::string>) os << x; }, v.mValue);
    return os.str();
}

// Integers by their length; the other data types are read in the tool's dump
// tests. A length or a type without an alternative makes no entry.
TEST(Metadata, IntegersByLength)
{
    const std::tuple<const char*, std::uint32_t, Bytes, std::string> cases[] = {
        {"signed 8", 21, {0xFF}, "21/3:-1"}, {"signed 32", 21, {0xFF, 0xFF, 0xFF, 0xFE}, "21/3:-2"},
        {"signed 24", 21, {1, 2, 3}, ""}, {"unsigned 8", 22, {0xFF}, "22/3:255"},
        {"unsigned 16", 22, {0xFF, 0xFE}, "22/3:65534"}, {"unsigned 64", 22, Bytes(8, 1), ""},
        {"unknown type", 13, {1}, ""}, {"type above 24", 25, {1}, ""}, {"no value", 1, {}, ""},
    };
    for (const auto& [name, type, value, expected] : cases) EXPECT_EQ(Lookup(One(type, value), "k"), expected) << name;
}

TEST(Metadata, WhichItemAKeyGets)
{
    // Items for key 0 and 9 match nothing; of two items for key 2 the first
    // stands; keys 1 and 3 share their text; no more items than keys are read.
    const Atom meta = Meta({Hdlr(), Keys({"a", "b", "a", "c", "d"}), Ilst({{0, 1, {'z'}}, {9, 1, {'z'}}, {2, 1, {'1'}},
                                                                           {2, 1, {'2'}}, {3, 1, {'3'}}, {4, 1, {'4'}}})});
    for (const auto& [key, expected] : {std::pair{"b", "1/1:1"}, {"a", "1/1:3"}, {"c", ""}, {"d", ""}, {"A", ""}})
        EXPECT_EQ(Lookup(meta, key), expected) << key;
}

TEST(Metadata, BrokenLayoutsAndShortEntries)
{
    const Item item{1, 1, {'v'}};
    Atom versioned = Meta({Hdlr(), Keys({"k"}), Ilst({item})});
    versioned.payload = {0, 0, 0, 0}; // the version word of the other layout
    const std::tuple<const char*, Atom, std::string> cases[] = {
        {"without hdlr", Meta({Keys({"k"}), Ilst({item})}), ""},
        {"atom between keys and ilst", Meta({Hdlr(), Keys({"k"}), Atom("free"), Ilst({item})}), ""},
        {"with a version word", versioned, ""},
        {"negative key count", Meta({Hdlr(), Keys({"k"}, -1), Ilst({item})}), ""},
        {"key count beyond the keys", Meta({Hdlr(), Keys({"k"}, 0x7FFFFFFF), Ilst({item})}), "1/1:v"},
        {"item of size 0", Meta({Hdlr(), Keys({"k"}, 0x7FFFFFFF), Atom("ilst", ByteWriter().U32(0).U32(1).U32(0).Code("data").U32(1).U32(0))}), ""},
        {"item past the copy", Meta({Hdlr(), Keys({"k"}), Atom("ilst", ByteWriter().U32(0x7FFFFFF0).U32(1).U32(0).Code("data").U32(0).U32(0))}), ""},
        {"float of one byte at the end", Meta({Hdlr(), Keys({"k"}), Atom("ilst", ByteWriter().U32(25).U32(1).U32(0).Code("data").U32(23).U32(0).U8(0x3F))}), ""},
        {"key entry past the copy", Meta({Hdlr(), Atom("keys", ByteWriter().U32(0).U32(1).U32(0x100).Code("mdta").Text("k")), Ilst({item})}), ""},
        {"key entry below 8 bytes", Meta({Hdlr(), Atom("keys", ByteWriter().U32(0).U32(1).U32(7).Code("mdta").Text("k")), Ilst({item})}), ""},
    };
    for (const auto& [name, meta, expected] : cases) EXPECT_EQ(Lookup(meta, "k"), expected) << name;
}

// This writer puts `meta` inside the movie's `udta`, with a version word: it
// is user data, not metadata.
TEST(Metadata, CorpusMetaInsideUserData)
{
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    ASSERT_EQ(QT::MakeParser()->OpenMovie(ToString16(CorpusMovie("meta_mdta_keys").string()), movie), QT::kResultSuccess);
    QT::MetadataValue v;
    EXPECT_FALSE(movie->GetMetadataValue("title", v));
    Pelt::BinaryData meta;
    ASSERT_TRUE(movie->GetUserDataByType(QT::MakeFourCC("meta"), meta));
    EXPECT_EQ(meta.Size(), 355u - 8u);
}

} // namespace
