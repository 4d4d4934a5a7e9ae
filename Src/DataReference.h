// The `dref` atom of a track's `dinf`, read entry by entry, and the parser of
// its `alis` records.
#pragma once

#include <cstdint>

#include "Inc/ExternalReferences.h"
#include "Src/AtomReader.h"

namespace QT {

constexpr FourCC kAliasReferenceType = MakeFourCC("alis");
constexpr FourCC kUrlReferenceType = MakeFourCC("url ");
constexpr FourCC kHandleReferenceType = MakeFourCC("hndl");

// The 12-byte header of one `dref` entry.
struct DataReferenceEntry {
    std::uint32_t size = 0;
    FourCC type = 0;
    std::uint8_t flags = 0; // the low byte of the flags; 1 means the media is in the movie's own file
};

// The `dref` that opens a `dinf` (its type is not tested). Every read stops at
// its end: the lesser of the end its size gives, the end of `dinf` and the end
// of the copy. A field that passes the end is absent.
class DataReferenceAtom {
public:
    DataReferenceAtom(const AtomReader& reader, AtomPtr dinf);

    // The track has a `dinf`.
    bool Present() const { return mPresent; }
    std::uint64_t End() const { return mEnd; }
    // The stored entry count; 0 when the count itself passes the end.
    std::uint32_t EntryCount() const;
    std::uint64_t FirstEntry() const { return mStart + 16; }
    // The header of the entry at `at`; false when it passes the end.
    bool ReadEntry(std::uint64_t at, DataReferenceEntry& out) const;

    // True when `count` bytes from `at` lie before the end.
    bool Fits(std::uint64_t at, std::uint64_t count) const { return at <= mEnd && count <= mEnd - at; }
    [[nodiscard]] bool U8(std::uint64_t at, std::uint8_t& out) const { return Fits(at, 1) && mReader.U8(at, out); }
    [[nodiscard]] bool U16(std::uint64_t at, std::uint16_t& out) const { return Fits(at, 2) && mReader.U16(at, out); }
    [[nodiscard]] bool U32(std::uint64_t at, std::uint32_t& out) const { return Fits(at, 4) && mReader.U32(at, out); }
    // The `count` bytes at `at`, or null when they pass the end.
    const std::uint8_t* Bytes(std::uint64_t at, std::uint64_t count) const
    {
        return Fits(at, count) ? mReader.Bytes(at, count) : nullptr;
    }

private:
    const AtomReader& mReader;
    bool mPresent = false;
    std::uint64_t mStart = 0;
    std::uint64_t mEnd = 0;
};

// Parses the `alis` entry at `entry` into `out`, and gives in `outNext` where
// the next entry begins: behind the record by the record's own size, whatever
// the entry size says. False, with `out` untouched, when the fixed part of the
// record, the file name or a tagged field runs past the end of `dref`, or when
// the tag list reaches that end without its closing -1.
bool ParseAliasRecord(const DataReferenceAtom& dref, std::uint64_t entry, ExtRefData& out, std::uint64_t& outNext);

} // namespace QT
