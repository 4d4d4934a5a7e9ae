// How a timecode track counts.
#pragma once

#include <cstdint>

namespace QT {

// Filled from the track's first timecode description; the host hands it back
// to turn sample bytes into a frame number.
struct TimecodeInfo {
    bool mDropFrame = false;           // bit 0 of the description's flags
    std::uint32_t mTimeScale = 0;      // time units in a second
    std::uint32_t mTicksPerFrame = 0;  // time units in a frame
    std::uint8_t mNumberOfFrames = 0;  // frames in a second, as stored
    bool mHandleReference = false;     // the one data reference is `hndl`
};

} // namespace QT
