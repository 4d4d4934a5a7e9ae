// Entry points for atomscan's own command and Python package. They are linked
// from the static library; the shared library does not export them.
#pragma once

#include <cstdint>

#include "Inc/AtomscanTypes.h"

namespace QT::internal {

// The repair.

// Where the chunk offset table that the repair examined lies in the file.
struct RepairTablePlace {
    bool found = false;              // the repair found a track whose table it examined
    std::uint32_t track = 0;         // that track's index in the movie
    bool wide = false;               // co64
    std::uint64_t entriesOffset = 0; // file offset of entry 0
    std::uint32_t count = 0;         // entries it could examine
};

// Runs the library's repair (exactly FixMovie) on `path`, then tells where the
// table it examined lies. `outPlace` is reset first; it stays unfound when the
// movie does not open for the repair or has no enabled video track.
ResultCode FixMovieAndLocate(const String16& path, RepairTablePlace& outPlace);

} // namespace QT::internal
