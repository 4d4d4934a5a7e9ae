// Reads atom headers from the file, finds `moov` and copies it into the store.
#pragma once

#include <cstdint>

#include "Inc/AtomscanTypes.h"

namespace QT {

class QTMooVAtom;

// The sizes a movie atom may have, header included: what is loaded, and
// what the search of the file's top level accepts.
constexpr std::uint32_t kMinMovieAtomSize = 9;
constexpr std::uint32_t kMaxMovieAtomSize = 0x8000000; // 128 MiB

// The file side of an open, shared by the parser and the repair object.
class MovieAtomLoader {
public:
    MovieAtomLoader(Tessel::File& file, std::uint64_t fileSize) : mFile(file), mFileSize(fileSize) {}

    // Copies the first `moov` of the file into `store`. On success the copy's
    // size is in `outSize` and the atom's file offset in `outOffset`.
    bool LoadMovieAtom(QTMooVAtom& store, std::uint32_t& outSize, std::uint64_t& outOffset);

    // Searches the first 51 top-level atoms for `type`: true when found, with
    // its offset and size. False when the search ends first (the results are
    // then left as they were).
    bool FindTopLevelAtom(FourCC type, std::uint64_t& outOffset, std::uint64_t& outSize);

private:
    struct FileAtom {
        std::int64_t start = 0;
        std::uint64_t size = 0;
        FourCC type = 0;
    };
    // Reads the header at the current position and seeks behind the atom.
    bool ReadAtomHeader(FileAtom& out);

    Tessel::File& mFile;
    std::uint64_t mFileSize;
};

} // namespace QT
