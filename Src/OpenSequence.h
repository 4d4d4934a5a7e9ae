// The open sequence shared by the parser and the repair object: open the
// file, copy and walk its movie atom, hand out the movie, close the file.
#pragma once

#include <cstdint>

#include "Inc/IQTMovie.h"
#include "Src/CountedPtr.h"
#include "Src/MovieAtomLoader.h"
#include "Src/MovieAtomWalker.h"
#include "Src/QTMooVAtom.h"

namespace QT {

// What an open leaves in its owner. Each open replaces all of it, so a
// second open never sees the records of the first. The walk's records move
// into the store when it succeeds; a failed open leaves an empty store.
struct OpenedMovie {
    std::uint64_t mFileSize = 0;
    std::uint64_t mMovieAtomOffset = 0; // file offset of the `moov` header; the repair object's
    CountedPtr<QTMooVAtom> mStore;
    std::uint32_t mMovieAtomSize = 0;
};

// A search of the file's top level for an atom of `type`, run on the still
// open file once the movie has been delivered.
struct TopLevelSearch {
    FourCC type;
    bool& found;
    std::uint64_t& offset;
    std::uint64_t& size;
};

struct OpenSettings {
    Tessel::FileShareModeFlags shareMode;
    std::uint32_t guard; // of every step of the walk
};

// Opens the movie at `path` into `state` and delivers it in `outMovie`, which
// is written only on success, then runs `search` if one is given; its miss
// does not change the result. 0, kResultNotAMovie or kResultCannotOpen; the
// file is closed on return.
ResultCode OpenMovieFile(const String16& path, const OpenSettings& settings, OpenedMovie& state,
                         Tessel::InterfaceRef<IQTMovie>& outMovie, const TopLevelSearch* search = nullptr);

} // namespace QT
