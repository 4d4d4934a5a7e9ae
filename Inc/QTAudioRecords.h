// Records a sound track fills for the host: file ranges of its frames, and
// the order of its channels.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "vellum/vellum.h"

namespace QT {

// One stretch of the file that holds consecutive frames of the track's sound.
// `mSampleCount` frames of all channels lie at `mOffsetInFile`.
struct AudioSampleRange {
    std::uint64_t mSampleCount = 0;    // frames in the range; never 0
    std::uint64_t mOutputPosition = 0; // frames of the edit that come before this range
    std::uint64_t mOffsetInFile = 0;   // file offset of the range's first frame
};

// Ranges keyed by output position or by file offset, as the host asks.
using AudioSampleRangeMap =
    std::map<std::uint64_t, AudioSampleRange, std::less<std::uint64_t>,
             vellum::utility::SmallBlockAllocator<std::pair<const std::uint64_t, AudioSampleRange>>>;

// Element k is the position, counted from 0, in the file's channel order of
// the channel with role k: 0 left, 1 right, 2 center, 3 low frequency
// effects, 4 left surround, 5 right surround. -1 marks a role the file lacks.
using ChannelOrderMap = std::vector<std::int32_t>;

} // namespace QT
