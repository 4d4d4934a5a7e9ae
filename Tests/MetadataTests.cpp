// Key/value metadata read at the open: integer values by length, which item a
// key gets, and layouts or entries too short to be read. (The corpus movie's
// `meta` inside `udta` is user data, as its dump shows.)
#include <sstream>

#include "Tests/Support/Open.h"

namespace {

Atom Meta(std::vector<Atom> children) { return Atom("meta", std::move(children)); }
Atom Hdlr() { return Atom("hdlr", HdlrPayload("mdta")); }
// One item for key 1 or one key entry, with the sizes as given.
Atom RawIlst(std::uint32_t size, std::uint32_t type, Bytes tail = {})
{
    return Atom("ilst", ByteWriter().U32(size).U32(1).U32(0).Code("data").U32(type).U32(0).Raw(tail));
}
Atom RawKeys(std::uint32_t size) { return Atom("keys", ByteWriter().U32(0).U32(1).U32(size).Code("mdta").Text("k")); }
Atom One(std::uint32_t type, Bytes value) { return Meta({Hdlr(), Keys({"k"}), Ilst({{1, type, std::move(value)}})}); }

// "data type/alternative:value" (for numbers and text), or "" when the key has no value.
std::string Lookup(const Atom& meta, const std::string& key)
{
    const OpenResult r = OpenBytes(BuildMovieFile(MoviePlan{.extraMoov = {meta}}));
    EXPECT_EQ(r.code, QT::kResultSuccess);
    QT::MetadataValue v;
    v.mDataType = 99;
    if (!r.movie || !r.movie->GetMetadataValue(key, v)) return v.mDataType == 99 ? "" : "changed on a miss";
    std::ostringstream os;
    os << v.mDataType << '/' << v.mValue.which() << ':';
    boost::apply_visitor([&]<typename T>(const T& x) {
        if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, std::string>) os << x;
    }, v.mValue);
    return os.str();
}

TEST(Metadata, ValuesOfKeys)
{
    const MetadataItem item{1, 1, {'v'}};
    Atom versioned = Meta({Hdlr(), Keys({"k"}), Ilst({item})});
    versioned.payload = {0, 0, 0, 0}; // the version word of the other layout
    // Items for key 0 and 9 match nothing; of two items for key 2 the first
    // stands; keys 1 and 3 share their text; no more items than keys are read.
    const Atom five = Meta({Hdlr(), Keys({"a", "b", "a", "c", "d"}), Ilst({{0, 1, {'z'}}, {9, 1, {'z'}}, {2, 1, {'1'}},
                                                                          {2, 1, {'2'}}, {3, 1, {'3'}}, {4, 1, {'4'}}})});
    const std::tuple<const char*, Atom, const char*, std::string> cases[] = {
        // Integers by their length; the other data types are read in the
        // tool's dump tests. A length or type without an alternative makes no entry.
        {"signed 8", One(21, {0xFF}), "k", "21/3:-1"}, {"signed 32", One(21, {0xFF, 0xFF, 0xFF, 0xFE}), "k", "21/3:-2"},
        {"signed 24", One(21, {1, 2, 3}), "k", ""}, {"unsigned 8", One(22, {0xFF}), "k", "22/3:255"},
        {"unsigned 16", One(22, {0xFF, 0xFE}), "k", "22/3:65534"}, {"unsigned 64", One(22, Bytes(8, 1)), "k", ""},
        {"unknown type", One(13, {1}), "k", ""}, {"type above 24", One(25, {1}), "k", ""},
        {"no value", One(1, {}), "k", ""},
        {"second key", five, "b", "1/1:1"}, {"shared text", five, "a", "1/1:3"}, {"item not read", five, "c", ""},
        {"no item", five, "d", ""}, {"another case", five, "A", ""},
        {"without hdlr", Meta({Keys({"k"}), Ilst({item})}), "k", ""},
        {"atom between keys and ilst", Meta({Hdlr(), Keys({"k"}), Atom("free"), Ilst({item})}), "k", ""},
        {"with a version word", versioned, "k", ""},
        {"negative key count", Meta({Hdlr(), Keys({"k"}, -1), Ilst({item})}), "k", ""},
        {"key count beyond the keys", Meta({Hdlr(), Keys({"k"}, 0x7FFFFFFF), Ilst({item})}), "k", "1/1:v"},
        {"key entry past the copy", Meta({Hdlr(), RawKeys(0x100), Ilst({item})}), "k", ""},
        {"key entry below 8 bytes", Meta({Hdlr(), RawKeys(7), Ilst({item})}), "k", ""},
        {"item of size 0", Meta({Hdlr(), Keys({"k"}, 0x7FFFFFFF), RawIlst(0, 1)}), "k", ""},
        {"item past the copy", Meta({Hdlr(), Keys({"k"}), RawIlst(0x7FFFFFF0, 0)}), "k", ""},
        {"float of one byte at the end", Meta({Hdlr(), Keys({"k"}), RawIlst(25, 23, {0x3F})}), "k", ""},
    };
    const auto start = std::chrono::steady_clock::now();
    for (const auto& [name, meta, key, expected] : cases) EXPECT_EQ(Lookup(meta, key), expected) << name;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)); // counts of 2^31 end at once
}

} // namespace
