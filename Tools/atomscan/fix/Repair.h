// The repair of `atomscan fix` and of the Python package's fix(): the library's
// repair run on a movie whatever its parser says of it, and the chunk offsets
// it changed, found by comparing the table's bytes before and after. This is
// the one implementation of it (the static library `atomscan_fix`).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Inc/AtomscanInternal.h"
#include "Inc/AtomscanTypes.h"

namespace atomscan_tool {

struct FixOptions {
    std::string path;
    bool dryRun = false;  // mend a stand-in and tell what would change; the movie stays as it is
    std::string output;   // mend a copy that becomes this file; the movie stays as it is
    bool backup = false;  // keep a copy of the movie as MOVIE.orig, then mend it in place
};

// A chunk offset that the repair changed.
struct MendedEntry {
    std::uint32_t track = 0; // the track's index in the movie
    std::uint32_t index = 0; // the entry's index in its chunk offset table
    std::uint64_t before = 0;
    std::uint64_t after = 0;
};

struct FixReport {
    // The load of the movie atom: 0, or kResultCannotOpen / kResultNotAMovie
    // with `refusal` telling why. The repair runs only after a load gives 0.
    QT::ResultCode load = QT::kResultCannotOpen;
    QT::internal::OpenRefusal refusal;
    // Why the repair did not run or its outcome is not known, beginning with
    // the file concerned; empty when it ran and `mended` is complete.
    std::string error;
    bool wide = false; // the table examined is co64
    std::vector<MendedEntry> mended;
};

// Loads the movie atom of `options.path`; refuses an in-place repair of a file
// that cannot be written; makes the file to mend (the movie, its copy that
// becomes the output once mended, or a sparse stand-in of a dry run), keeps a
// backup when asked; runs the library's repair on it and compares the table it
// examined with the loaded bytes. A dry run writes nothing but the stand-in in
// a temporary folder, removed before the return. Throws nothing but bad_alloc.
FixReport RepairMovie(const FixOptions& options);

} // namespace atomscan_tool
