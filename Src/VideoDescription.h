// Reading an image description in place.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Src/AtomReader.h"

namespace QT {

using Bytes = std::vector<std::uint8_t>;

// Places of the fixed part of an image description.
constexpr std::uint32_t kDescSize = 0;
constexpr std::uint32_t kDescFormat = 4;
constexpr std::uint32_t kDescVendor = 20;
constexpr std::uint32_t kDescTemporalQuality = 24;
constexpr std::uint32_t kDescSpatialQuality = 28;
constexpr std::uint32_t kDescWidth = 32;
constexpr std::uint32_t kDescHeight = 34;
constexpr std::uint32_t kDescHorizontalResolution = 36;
constexpr std::uint32_t kDescVerticalResolution = 40;
constexpr std::uint32_t kDescNameLength = 50;
constexpr std::uint32_t kDescName = 51;
constexpr std::uint32_t kDescDepth = 82;
constexpr std::uint32_t kDescColorTableId = 84;
constexpr std::uint32_t kDescFixedSize = 86; // extension atoms begin here

// The fields of one description, held against its own size field: a field
// that lies beyond the description (or the copy) is absent. A short
// description thus reports nothing for what it does not hold, rather than the
// bytes of whatever follows it.
class DescriptionFields {
public:
    DescriptionFields(const AtomReader& reader, AtomPtr description)
        : mReader(reader), mDescription(description), mSize(description ? reader.U32Or(description.Field(0)) : 0)
    {
    }

    explicit operator bool() const { return static_cast<bool>(mDescription); }
    AtomPtr Where() const { return mDescription; }
    std::uint32_t Size() const { return mSize; }

    std::optional<std::uint8_t> U8(std::uint32_t rel) const
    {
        std::uint8_t v = 0;
        if (Holds(rel, 1) && mReader.U8(mDescription.Field(rel), v)) return v;
        return std::nullopt;
    }
    std::optional<std::uint16_t> U16(std::uint32_t rel) const
    {
        std::uint16_t v = 0;
        if (Holds(rel, 2) && mReader.U16(mDescription.Field(rel), v)) return v;
        return std::nullopt;
    }
    std::optional<std::uint32_t> U32(std::uint32_t rel) const
    {
        std::uint32_t v = 0;
        if (Holds(rel, 4) && mReader.U32(mDescription.Field(rel), v)) return v;
        return std::nullopt;
    }

private:
    bool Holds(std::uint32_t rel, std::uint32_t width) const
    {
        return mDescription && rel <= mSize && width <= mSize - rel;
    }

    AtomReader mReader;
    AtomPtr mDescription;
    std::uint32_t mSize;
};

} // namespace QT
