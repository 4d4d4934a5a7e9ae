// The one checked reader of the movie atom copy, and the atom step.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Inc/QTTableExtent.h"

namespace QT {

// Place of an atom, or of its content, in the movie atom copy; null where absent.
// Offsets of the copy stay below 2^27, so all ones marks null.
class AtomPtr {
public:
    constexpr AtomPtr() noexcept = default;
    static constexpr AtomPtr At(std::uint32_t offset) noexcept { return AtomPtr(offset); }

    constexpr explicit operator bool() const noexcept { return mOffset != kNull; }
    constexpr bool operator==(const AtomPtr&) const noexcept = default;
    // Offset of the place in the copy.
    constexpr std::uint32_t Offset() const noexcept { return mOffset; }
    // Offset of a field `rel` bytes further on; 64-bit, so it cannot wrap.
    constexpr std::uint64_t Field(std::uint64_t rel) const noexcept { return std::uint64_t{mOffset} + rel; }

private:
    static constexpr std::uint32_t kNull = 0xFFFFFFFFu;
    constexpr explicit AtomPtr(std::uint32_t offset) noexcept : mOffset(offset) {}
    std::uint32_t mOffset = kNull;
};

// Big-endian reads at offsets of the copy. A read that would pass the end is
// refused: the checked forms return false, the `...Or` forms the fallback.
// The bounds test is `count <= size - offset`, which cannot overflow.
class AtomReader {
public:
    constexpr AtomReader() noexcept = default;
    constexpr AtomReader(const std::uint8_t* data, std::uint32_t size) noexcept
        : mData(data), mSize(data ? size : 0) {}

    constexpr std::uint32_t Size() const noexcept { return mSize; }

    constexpr bool Has(std::uint64_t offset, std::uint64_t count) const noexcept
    {
        return offset <= mSize && count <= mSize - offset;
    }

    [[nodiscard]] bool U8(std::uint64_t offset, std::uint8_t& out) const noexcept
    {
        if (!Has(offset, 1)) return false;
        out = mData[offset];
        return true;
    }
    [[nodiscard]] bool U16(std::uint64_t offset, std::uint16_t& out) const noexcept
    {
        if (!Has(offset, 2)) return false;
        const std::uint8_t* p = mData + offset;
        out = static_cast<std::uint16_t>((p[0] << 8) | p[1]);
        return true;
    }
    [[nodiscard]] bool U32(std::uint64_t offset, std::uint32_t& out) const noexcept
    {
        if (!Has(offset, 4)) return false;
        out = LoadBigEndian32(mData + offset);
        return true;
    }
    [[nodiscard]] bool U64(std::uint64_t offset, std::uint64_t& out) const noexcept
    {
        if (!Has(offset, 8)) return false;
        out = LoadBigEndian64(mData + offset);
        return true;
    }
    [[nodiscard]] bool S16(std::uint64_t offset, std::int16_t& out) const noexcept
    {
        std::uint16_t v = 0;
        if (!U16(offset, v)) return false;
        out = static_cast<std::int16_t>(v);
        return true;
    }
    [[nodiscard]] bool S32(std::uint64_t offset, std::int32_t& out) const noexcept
    {
        std::uint32_t v = 0;
        if (!U32(offset, v)) return false;
        out = static_cast<std::int32_t>(v);
        return true;
    }
    [[nodiscard]] bool F64(std::uint64_t offset, double& out) const noexcept
    {
        std::uint64_t v = 0;
        if (!U64(offset, v)) return false;
        std::memcpy(&out, &v, sizeof out);
        return true;
    }
    [[nodiscard]] bool F32(std::uint64_t offset, float& out) const noexcept
    {
        std::uint32_t v = 0;
        if (!U32(offset, v)) return false;
        std::memcpy(&out, &v, sizeof out);
        return true;
    }

    std::uint8_t U8Or(std::uint64_t offset, std::uint8_t fallback = 0) const noexcept
    {
        return Or<&AtomReader::U8>(offset, fallback);
    }
    std::uint16_t U16Or(std::uint64_t offset, std::uint16_t fallback = 0) const noexcept
    {
        return Or<&AtomReader::U16>(offset, fallback);
    }
    std::uint32_t U32Or(std::uint64_t offset, std::uint32_t fallback = 0) const noexcept
    {
        return Or<&AtomReader::U32>(offset, fallback);
    }
    std::uint64_t U64Or(std::uint64_t offset, std::uint64_t fallback = 0) const noexcept
    {
        return Or<&AtomReader::U64>(offset, fallback);
    }
    std::int16_t S16Or(std::uint64_t offset, std::int16_t fallback = 0) const noexcept
    {
        return Or<&AtomReader::S16>(offset, fallback);
    }
    std::int32_t S32Or(std::uint64_t offset, std::int32_t fallback = 0) const noexcept
    {
        return Or<&AtomReader::S32>(offset, fallback);
    }

    // The entries of the table in the atom at `atom`: `storedCount` entries of
    // `Width` bytes from byte `first` of the atom, cut to those that lie inside
    // both the atom (by its size field) and the copy. The one place where a
    // table's extent is proven.
    template <std::uint32_t Width>
    TableExtent<Width> Table(AtomPtr atom, std::uint32_t first, std::uint64_t storedCount) const noexcept
    {
        std::uint32_t atomSize = 0;
        if (!atom || !U32(atom.Offset(), atomSize)) return {};
        const std::uint64_t end = std::min<std::uint64_t>(atom.Field(atomSize), mSize);
        const std::uint64_t begin = atom.Field(first);
        const std::uint64_t room = begin < end ? (end - begin) / Width : 0;
        const std::uint64_t count = std::min(storedCount, room);
        return TableExtent<Width>(count != 0 ? mData + begin : nullptr, static_cast<std::uint32_t>(count),
                                  storedCount > room);
    }

    // The `count` bytes at `offset`, or null when they are not all inside the copy.
    const std::uint8_t* Bytes(std::uint64_t offset, std::uint64_t count) const noexcept
    {
        return Has(offset, count) && mData ? mData + offset : nullptr;
    }

private:
    // The checked read `Read`, or `fallback` where it is refused.
    template <auto Read, typename T>
    T Or(std::uint64_t offset, T fallback) const noexcept
    {
        T v{};
        return (this->*Read)(offset, v) ? v : fallback;
    }

    const std::uint8_t* mData = nullptr;
    std::uint32_t mSize = 0;
};

// Header of one atom in the copy, as the step reads it.
struct AtomHeader {
    std::uint32_t size = 0;
    std::uint32_t type = 0;
    std::uint32_t next = 0; // offset + size; valid only for a good step
};

// The head that every atom opens with, in the copy or in the file: size and
// type, big-endian. False when the 8 bytes at `offset` are not all there.
[[nodiscard]] inline bool ReadAtomHead(const AtomReader& reader, std::uint64_t offset, AtomHeader& out) noexcept
{
    return reader.U32(offset, out.size) && reader.U32(offset + 4, out.type);
}

enum class StepResult {
    kNoRoom,  // fewer than `guard` bytes before `limit`: nothing was read
    kRefused, // size 0, or the atom runs beyond `limit`: size and type were read
    kGood,    // the atom lies within `limit`; `next` is where the step goes on
};

// The atom step, the one rule by which every walker moves through the copy.
// Sizes 1 to 7 are taken as they stand; a size whose sum with `offset` passes
// `limit` (or 2^32) is refused rather than wrapped.
StepResult StepAtom(const AtomReader& reader, std::uint32_t offset, std::uint32_t limit, std::uint32_t guard,
                    AtomHeader& out) noexcept;

// The step with guard 9 over the whole copy: true for a good atom. On kNoRoom
// nothing is set; on a refusal size and type are set and the result is false.
bool ReadAtomHeaderInMemory(const AtomReader& reader, std::uint32_t offset, std::uint32_t end,
                            std::uint32_t& outSize, std::uint32_t& outType, std::uint32_t& outNext) noexcept;

} // namespace QT
