// Builds `dinf`/`dref` atoms and their entries byte by byte: `alis` records
// with a file name and tagged fields, `url ` and `hndl` entries.
#pragma once

#include "Tests/Support/MovieBuilder.h"

namespace testsupport {

// One `alis` record: the file name at 50, the tagged fields from 150; the
// rest of the fixed part is zero, as the reader skips it.
struct Alias {
    Alias(std::string name, std::vector<std::pair<std::int16_t, std::string>> tagged = {})
        : fileName(std::move(name)), tags(std::move(tagged)) {}
    std::string fileName;
    std::vector<std::pair<std::int16_t, std::string>> tags; // each tag and its text, in order
    bool closeTags = true;                                  // the closing tag -1
    std::uint8_t flags = 0;                                 // low byte of the entry's flags
    std::optional<std::uint8_t> fileNameLength;             // replaces the true length byte
};

// The whole `dref` entry: size, `alis`, version and flags, the record.
inline Bytes AliasEntry(const Alias& r)
{
    ByteWriter w; // the entry's size and the record's size are set below
    w.U32(0).Code("alis").U32(r.flags).U32(0).U16(0).Zeros(44);
    w.U8(r.fileNameLength.value_or(static_cast<std::uint8_t>(r.fileName.size()))).Text(r.fileName);
    w.Zeros(99 - r.fileName.size()); // the rest of the 63-byte name, then 36 bytes to the tags
    for (const auto& [tag, text] : r.tags) // text of odd length is padded to an even one
        w.U16(static_cast<std::uint16_t>(tag)).U16(static_cast<std::uint32_t>(text.size())).Text(text).Zeros(
            text.size() % 2);
    if (r.closeTags) w.U16(0xffff).U16(0);
    Bytes b = w.Take();
    for (int i = 0; i < 4; ++i) b[i] = static_cast<std::uint8_t>(b.size() >> (24 - 8 * i));
    b[16] = static_cast<std::uint8_t>((b.size() - 12) >> 8);
    b[17] = static_cast<std::uint8_t>(b.size() - 12);
    return b;
}

// An entry of any type with its data as given.
inline Bytes ReferenceEntry(const char* type, std::uint8_t flags, const Bytes& data = {},
                            std::optional<std::uint32_t> size = {})
{
    const std::uint32_t stored = size.value_or(static_cast<std::uint32_t>(12 + data.size()));
    return ByteWriter().U32(stored).Code(type).U32(flags).Raw(data);
}

// A `hndl` entry: 5 unread bytes, then an inner `data` atom holding `payload`.
inline Bytes HandleEntry(const Bytes& payload, std::optional<std::uint32_t> innerSize = {},
                         const char* innerType = "data", std::optional<std::uint32_t> entrySize = {})
{
    const std::uint32_t inner = innerSize.value_or(static_cast<std::uint32_t>(8 + payload.size()));
    return ReferenceEntry("hndl", 0, ByteWriter().Zeros(5).U32(inner).Code(innerType).Raw(payload), entrySize);
}

// `dinf` holding a `dref` with `entries`; the count and the size of `dref` may be set apart from them.
inline Atom DataInformation(const std::vector<Bytes>& entries, std::optional<std::uint32_t> count = {},
                            std::optional<std::uint32_t> drefSize = {})
{
    ByteWriter payload;
    payload.U32(0).U32(count.value_or(static_cast<std::uint32_t>(entries.size())));
    for (const Bytes& e : entries) payload.Raw(e);
    Atom dref("dref", payload.Take());
    dref.size = drefSize;
    return Atom("dinf", {dref});
}

} // namespace testsupport
