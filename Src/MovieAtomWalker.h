// The walk of the movie atom copy: finds `mvhd`, every track's atoms, the
// user data and the metadata, and notes where they lie.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Inc/QTMetadata.h"
#include "Src/AtomReader.h"
#include "Src/QTMooVAtom.h"
#include "Src/Refusal.h"

namespace QT {

// The parser steps with guard 9; the repair object with guard 8, so that it
// also sees an 8-byte atom that ends exactly at the limit.
constexpr std::uint32_t kParserGuard = 9;
constexpr std::uint32_t kFixerGuard = 8;

// The lists that a walk fills.
struct MovieAtomIndex {
    AtomPtr mMvhd;
    std::vector<TrackItem> mTracks;
    std::vector<UserDataEntry> mUserData;
    MetadataMap mMetadata;
};

class MovieAtomWalker {
public:
    // A walk that refuses the movie notes why in `refusal`, unless it is null,
    // with offsets in the copy.
    MovieAtomWalker(const AtomReader& reader, std::uint32_t guard, MovieAtomIndex& out,
                    RefusalPoint* refusal = nullptr)
        : mReader(reader), mTotal(reader.Size()), mGuard(guard), mOut(out), mRefusal(refusal) {}

    // True when the copy describes a movie: `mvhd` and at least one track,
    // every track complete. User data and metadata cannot fail.
    bool WalkMovieAtom();

    bool FindMovieHeader();
    bool WalkTracks();
    void WalkMovieUserData();
    void WalkMetadata();
    // Lists the children of the `udta` whose content starts at `atomStart`.
    void WalkUserData(std::uint32_t atomStart, std::uint32_t atomSize, std::vector<UserDataEntry>& list);

private:
    StepResult Step(std::uint32_t offset, AtomHeader& h) const { return StepAtom(mReader, offset, mTotal, mGuard, h); }
    StepResult Step(std::uint32_t offset, std::uint32_t limit, AtomHeader& h) const
    {
        return StepAtom(mReader, offset, limit, mGuard, h);
    }
    // An atom by its type and its offset in the copy.
    struct Place {
        FourCC type;
        std::uint32_t offset;
    };
    // Notes why the walk stops, where the refusal is noted; gives false, the walk's answer.
    bool Refuse(RefusalRule rule, std::optional<Place> at, std::uint64_t bytes = 0) const;
    // A step that did not give a good atom: the atom it refused (size 0, or
    // beyond the copy) is the reason; else the copy ended, and `otherwise`,
    // at `where`, is.
    bool RefuseStep(StepResult r, const AtomHeader& h, std::uint32_t at, RefusalRule otherwise, Place where) const;
    // The first part that the incomplete track lacks.
    bool RefuseIncomplete(const TrackItem& item) const;

    bool ReadEditList(std::uint32_t edts, TrackItem& item);
    void WalkApertureChildren(std::uint32_t tapt, std::uint32_t end, TrackItem& item);
    bool WalkMedia(std::uint32_t mdia, TrackItem& item, std::uint32_t& cursor);
    bool WalkMediaInformation(std::uint32_t minf, std::uint32_t minfEnd, TrackItem& item, std::uint32_t& cursor);
    bool WalkSampleTable(std::uint32_t stbl, std::uint32_t stblEnd, TrackItem& item);

    const AtomReader mReader;
    const std::uint32_t mTotal;
    const std::uint32_t mGuard;
    MovieAtomIndex& mOut;
    RefusalPoint* const mRefusal;
    // The track being walked, and where its `minf` and last `stbl` lie.
    std::optional<std::uint32_t> mTrack;
    std::uint32_t mMinf = 0;
    std::optional<std::uint32_t> mStbl;
};

} // namespace QT
