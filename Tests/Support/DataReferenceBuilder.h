// Builds `dinf`/`dref` atoms and their entries byte by byte: `alis` records
// with a volume name, a file name and tagged fields, `url ` and `hndl` entries.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Support/MovieBuilder.h"

namespace testsupport {

// One `alis` record, laid out as the record of a file on a volume: volume
// name at 10, file name at 50, directory level counts at 130 and 132, the
// tagged fields from 150.
struct AliasRecordSpec {
    std::string volumeName = "Media";
    std::string fileName = "clip.mov";
    std::vector<std::pair<std::int16_t, std::string>> tags; // each tag and its text, in order
    bool closeTags = true;                                  // the closing tag -1
    std::uint8_t flags = 0;                                 // low byte of the entry's flags
    std::optional<std::uint16_t> recordSize;                // replaces the true record size
    std::optional<std::uint8_t> fileNameLength;             // replaces the true length byte
    std::uint16_t levelsFrom = 1, levelsTo = 1;
};

inline AliasRecordSpec Alias(std::string fileName, std::vector<std::pair<std::int16_t, std::string>> tags = {})
{
    AliasRecordSpec plan;
    plan.fileName = std::move(fileName);
    plan.tags = std::move(tags);
    return plan;
}

// The whole `dref` entry: size, `alis`, version and flags, the record.
inline Bytes AliasEntry(const AliasRecordSpec& plan)
{
    ByteWriter record;
    record.U32(0).U16(0); // user type; the record size is written below
    record.U16(2).U16(0); // version, kind: a file
    record.U8(static_cast<std::uint32_t>(plan.volumeName.size())).Text(plan.volumeName);
    record.Zeros(27 - plan.volumeName.size());
    record.U32(0).U16(0x482b).U16(0).U32(16); // volume date, file system, drive type, parent directory
    record.U8(plan.fileNameLength.value_or(static_cast<std::uint8_t>(plan.fileName.size())))
        .Text(plan.fileName)
        .Zeros(63 - plan.fileName.size());
    record.U32(42).U32(0).Code("MooV").Code("TVOD"); // file number, date, type, creator
    record.U16(plan.levelsFrom).U16(plan.levelsTo).U32(0).U16(0).Zeros(10);
    for (const auto& [tag, text] : plan.tags) {
        record.U16(static_cast<std::uint16_t>(tag)).U16(static_cast<std::uint32_t>(text.size())).Text(text);
        if (text.size() % 2) record.U8(0);
    }
    if (plan.closeTags) record.U16(0xffff).U16(0);
    Bytes data = record.Take();
    const auto size = static_cast<std::uint16_t>(plan.recordSize.value_or(static_cast<std::uint16_t>(data.size())));
    data[4] = static_cast<std::uint8_t>(size >> 8);
    data[5] = static_cast<std::uint8_t>(size);
    ByteWriter entry;
    entry.U32(static_cast<std::uint32_t>(12 + data.size())).Code("alis").U16(0).U8(0).U8(plan.flags).Raw(data);
    return entry.Take();
}

// An entry of any type with its data as given.
inline Bytes ReferenceEntry(const char* type, std::uint8_t flags, const Bytes& data = {},
                                std::optional<std::uint32_t> size = {})
{
    ByteWriter entry;
    entry.U32(size.value_or(static_cast<std::uint32_t>(12 + data.size()))).Code(type).U16(0).U8(0).U8(flags);
    return entry.Raw(data).Take();
}

// A `hndl` entry: 5 unread bytes, then an inner `data` atom holding `payload`.
inline Bytes HandleEntry(const Bytes& payload, std::optional<std::uint32_t> innerSize = {},
                         const char* innerType = "data", std::optional<std::uint32_t> entrySize = {})
{
    ByteWriter data;
    data.Zeros(5).U32(innerSize.value_or(static_cast<std::uint32_t>(8 + payload.size()))).Code(innerType).Raw(payload);
    return ReferenceEntry("hndl", 0, data.Take(), entrySize);
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
