// Reads atom headers from the file, finds `moov` and copies it into the store.
#pragma once

#include <cstdint>
#include <optional>

#include "Inc/AtomscanTypes.h"
#include "Src/Refusal.h"

namespace QT {

class QTMooVAtom;

// The sizes a movie atom may have, header included: what is loaded, and
// what the search of the file's top level accepts.
constexpr std::uint32_t kMinMovieAtomSize = 9;
constexpr std::uint32_t kMaxMovieAtomSize = 0x8000000; // 128 MiB

// The file side of an open, shared by the parser and the repair object.
class MovieAtomLoader {
public:
    // A load that fails notes why in `refusal`, unless it is null.
    MovieAtomLoader(Tessel::File& file, std::uint64_t fileSize, RefusalPoint* refusal = nullptr)
        : mFile(file), mFileSize(fileSize), mRefusal(refusal)
    {
    }

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
    // Reads the header at the current position and seeks behind the atom;
    // kNone, or the rule that the header breaks: kNoMovieAtom when fewer than
    // 8 bytes could be read at `out.start`. `out` is filled as far as the
    // header was read: start, then type and size.
    RefusalRule ReadAtomHeader(FileAtom& out);
    // Notes why the load stops, where the refusal is noted; gives false.
    bool Refuse(RefusalRule rule, std::optional<FourCC> atom = {}, std::optional<std::uint64_t> offset = {},
                std::uint64_t bytes = 0) const;
    bool Refuse(RefusalRule rule, const FileAtom& atom, std::uint64_t bytes = 0) const
    {
        return Refuse(rule, atom.type, static_cast<std::uint64_t>(atom.start), bytes);
    }
    // The rule of a header that could not be read whole at `atom.start`,
    // behind `previous`.
    bool RefuseShortHeader(const FileAtom& atom, const FileAtom& previous) const;

    Tessel::File& mFile;
    std::uint64_t mFileSize;
    RefusalPoint* mRefusal;
};

} // namespace QT
