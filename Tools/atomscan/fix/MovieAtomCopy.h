// The movie atom of a file as the library's loader reads it: what `fix`
// compares the repaired table with, and what a dry run's stand-in holds.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Inc/AtomscanTypes.h"
#include "Src/AtomReader.h"
#include "Src/QTMooVAtom.h"

namespace atomscan_tool {

struct MovieAtomCopy {
    std::uint64_t fileSize = 0;
    std::uint64_t offset = 0; // of the movie atom's header in the file
    std::unique_ptr<QT::QTMooVAtom> atom = std::make_unique<QT::QTMooVAtom>();

    // The atom's bytes, header included.
    QT::AtomReader Reader() const { return atom->Reader(); }
};

// 0; kResultCannotOpen when `path` is no regular file that opens for reading;
// kResultNotAMovie when the loader finds no movie atom that it takes.
QT::ResultCode LoadMovieAtom(const std::string& path, MovieAtomCopy& out);

// A new file at `standInPath` that the repair reads as it reads the movie: as
// large, with the same movie atom at the same offset, a `free` atom over all
// that lies ahead of it, and holes elsewhere. It costs the movie atom alone.
bool WriteStandIn(const MovieAtomCopy& movie, const std::string& standInPath);

} // namespace atomscan_tool
