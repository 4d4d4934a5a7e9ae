// Entry points for atomscan's own command and Python package. They are linked
// from the static library; the shared library does not export them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Inc/AtomscanTypes.h"
#include "Inc/IQTMovie.h"

namespace QT::internal {

// The open.

// Why an open refused a file, as the load of its movie atom and the walk of
// that atom found it where they stopped.
struct OpenRefusal {
    std::string rule;                    // a short sentence for a person; empty when the movie opened
    std::optional<std::uint32_t> track;  // the track being walked (0-based); none outside a track
    std::optional<FourCC> atom;          // the atom where the open stopped
    std::optional<std::uint64_t> offset; // that atom's offset in the file
};

// Runs the open sequence of OpenMovie on a new parser (the same code) and,
// when it refuses the file, tells why in `outRefusal`, which is reset first.
// The result and `outMovie` are those of OpenMovie.
ResultCode OpenMovieExplained(const String16& path, Tessel::InterfaceRef<IQTMovie>& outMovie, OpenRefusal& outRefusal);

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
