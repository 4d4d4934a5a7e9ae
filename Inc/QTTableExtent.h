// The entries of a sample table in the movie atom copy, proven once to lie
// inside it, and the big-endian loads that read them.
#pragma once

#include <cstdint>

namespace QT {

// Big-endian numbers at `p`; the caller has proven the bytes there.
constexpr std::uint32_t LoadBigEndian32(const std::uint8_t* p) noexcept
{
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}
constexpr std::uint64_t LoadBigEndian64(const std::uint8_t* p) noexcept
{
    return (std::uint64_t{LoadBigEndian32(p)} << 32) | LoadBigEndian32(p + 4);
}

class AtomReader;

// `Count()` entries of `Width` bytes. The reader of the copy makes an extent
// only after it has proven that all of them lie inside their atom and the
// copy, so the reads below carry no test: an index below `Count()` is the
// caller's part, which a loop up to `Count()` or a contract check keeps.
template <std::uint32_t Width>
class TableExtent {
public:
    constexpr TableExtent() noexcept = default;

    std::uint32_t Count() const noexcept { return mCount; }
    // The table's stored count was more than its atom or the copy holds.
    bool IsCut() const noexcept { return mCut; }

    // Fields of entry `i`, at byte `Rel` of the entry.
    template <std::uint32_t Rel = 0>
    std::uint8_t U8(std::uint64_t i) const noexcept
    {
        static_assert(Rel + 1 <= Width);
        return Entry(i)[Rel];
    }
    template <std::uint32_t Rel = 0>
    std::uint32_t U32(std::uint64_t i) const noexcept
    {
        static_assert(Rel + 4 <= Width);
        return LoadBigEndian32(Entry(i) + Rel);
    }
    template <std::uint32_t Rel = 0>
    std::uint64_t U64(std::uint64_t i) const noexcept
    {
        static_assert(Rel + 8 <= Width);
        return LoadBigEndian64(Entry(i) + Rel);
    }

private:
    friend class AtomReader;
    constexpr TableExtent(const std::uint8_t* first, std::uint32_t count, bool cut) noexcept
        : mFirst(first), mCount(count), mCut(cut) {}
    const std::uint8_t* Entry(std::uint64_t i) const noexcept { return mFirst + i * Width; }

    const std::uint8_t* mFirst = nullptr;
    std::uint32_t mCount = 0;
    bool mCut = false;
};

} // namespace QT
