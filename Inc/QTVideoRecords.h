// The records of the two frame tables of a video track.
#pragma once

#include <cstdint>

namespace QT {

// One frame of a video track, in decode order.
struct VideoSampleRecord {
    std::uint64_t mOffset = 0;   // file position of the frame's first byte
    std::uint32_t mDuration = 0; // media time units, after the edit's trimming
    std::uint32_t mTime = 0;     // sum of the durations of the records before it in the call
    std::uint32_t mSize = 0;     // bytes
    bool mIsKeyFrame = false;    // sync sample
};

// Display order and dependencies of one frame. Record i is display index i
// for the three offsets and decode index i for the flags.
struct VideoTemporalReference {
    std::int8_t mDecodeOffset = 0;           // decode index of the frame shown at i, less i
    std::int8_t mEarlierReferenceOffset = 0; // earlier anchor's display index less i; 0 for none
    std::int8_t mLaterReferenceOffset = 0;   // later anchor's display index less i; 0 for none
    std::uint16_t mDependencyFlags = 0;      // `sdtp` byte of the frame decoded at i
};

} // namespace QT
