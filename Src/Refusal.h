// Why an open refused a file, and where: a record that the open sequence, the
// load of the movie atom and its walk fill at the point where they give up,
// and the one list of the rules they can stop at, each told as a sentence.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Inc/AtomscanInternal.h"
#include "Inc/AtomscanTypes.h"

namespace QT {

enum class RefusalRule : std::uint8_t {
    kNone,
    // The file and its top level.
    kCannotOpen,
    kFileTooShort,
    kFileUnreadable,
    kNoMovieAtom,
    kFileEndsInHeader,
    kAtomPastFileEnd, // names bytes
    kAtomSizeBelowHeader,
    kFileEndsInWideSize,
    kWideSizeBelowHeader,
    // The movie atom in the file.
    kMovieAtomTooSmall,
    kMovieAtomTooLarge,
    kMovieAtomPastFileEnd, // names bytes
    kMovieAtomNoMemory,
    // A step in the copy of the movie atom.
    kAtomSizeZero,
    kAtomPastMovieAtomEnd, // names bytes
    // The movie.
    kNoMvhd,
    kNoTrack,
    // A track.
    kNoTkhd,
    kNoMdia,
    kEditListCut,
    kEditListTooLong,
    kMdiaNotLedByMdhd,
    kAtomBetweenMdhdAndHdlr,
    kNoHdlr,
    kAtomBetweenHdlrAndMinf,
    kNoMinf,
    kMinfEmpty,
    kMinfEndsInFragment,
    kMinfNotLedByMediaHeader,
    kNoDinf,
    kNoStbl,
    kNoStsd,
    kNoStts,
    kNoStsc,
    kNoStsz,
    kNoChunkOffsets,
};
constexpr int kRefusalRuleCount = static_cast<int>(RefusalRule::kNoChunkOffsets) + 1;

// Written once, where an open gives up; left blank by an open that succeeds.
// Plain values only, so that carrying it costs an open nothing.
struct RefusalPoint {
    RefusalRule rule = RefusalRule::kNone;
    std::optional<std::uint32_t> track;  // index of the track being walked
    std::optional<FourCC> atom;          // the atom where the open stopped
    std::optional<std::uint64_t> offset; // that atom's offset: in the file from the load, in the copy from the walk
    std::uint64_t bytes = 0;             // the number of bytes the rule names
};

// The rule as a sentence for a person, with its number of bytes where it names one.
std::string RefusalText(RefusalRule rule, std::uint64_t bytes = 0);

// The point as the internal entry points tell it: empty when no rule was noted.
internal::OpenRefusal Explain(const RefusalPoint& point);

} // namespace QT
