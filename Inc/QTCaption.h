// Where the data of a caption track lie in the file.
#pragma once

#include <cstdint>
#include <map>

namespace QT {

// One run of caption bytes (two for the fixed 20-byte `c608` form) and the
// media time at which it applies.
struct CaptionSampleRecord {
    std::uint64_t mTime = 0;         // media time, in media time units
    std::uint64_t mOffset = 0;       // file position of the first bytes
    std::uint32_t mLength = 0;
    bool mHasSecondData = false;
    std::uint64_t mSecondOffset = 0; // 0 without second data
    std::uint32_t mSecondLength = 0; // 0 without second data

    bool operator==(const CaptionSampleRecord&) const = default;
};

// Keyed by `mTime` or by `mOffset`, as the caller asks. The caller owns the
// map; a record whose key is already there is dropped.
using CaptionSampleMap = std::map<std::uint64_t, CaptionSampleRecord>;

} // namespace QT
