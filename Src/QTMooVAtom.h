// The store: the copy of the movie atom and the index into it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "API/Inc/PeltBinaryData.h"
#include "Inc/AtomscanTypes.h"
#include "Inc/QTMetadata.h"
#include "Src/AtomReader.h"

namespace QT {

// One child of a `udta`.
struct UserDataEntry {
    FourCC mType = 0;
    AtomPtr mData;           // the child's content
    std::uint32_t mSize = 0; // the child's size less its header
};

// The places of one track's atoms in the copy. Header or content as noted.
struct TrackItem {
    AtomPtr mTkhd;                          // content
    std::vector<AtomPtr> mEditEntries;      // one per 12-byte `elst` entry
    AtomPtr mClef, mProf, mEnof;            // header, inside `tapt`
    AtomPtr mMdhd;                          // content
    AtomPtr mHdlr;                          // content
    AtomPtr mMediaHeader;                   // header of the first child of `minf`
    AtomPtr mDinf;                          // header
    AtomPtr mStsd, mStts, mStss, mStsc, mStco, mCo64, mStsz, mSdtp, mCtts; // header
    // The entries of `stco` and `co64` as far as they lie inside their atoms
    // and the copy; set by the walk for the tracks it keeps.
    TableExtent<4> mStcoEntries;
    TableExtent<8> mCo64Entries;
    std::vector<UserDataEntry> mUserData;

    // All atoms that a track needs are there.
    bool IsComplete() const
    {
        return mMediaHeader && mDinf && mStsd && mStts && mStsc && mStsz && (mStco || mCo64);
    }
};

class QTMooVAtom {
public:
    QTMooVAtom() = default;
    QTMooVAtom(const QTMooVAtom&) = delete;
    QTMooVAtom& operator=(const QTMooVAtom&) = delete;

    // Room for a copy of `size` bytes, left uninitialised: the loader reads
    // the whole atom into it, so each page is touched once, by the read.
    // False if the memory cannot be had.
    bool ResizeAtomData(std::uint32_t size);
    std::uint8_t* GetAtomData() { return mAtomSize == 0 ? nullptr : mAtomData.get(); }
    const std::uint8_t* GetAtomData() const { return mAtomSize == 0 ? nullptr : mAtomData.get(); }
    std::uint64_t GetAtomSize() const { return mAtomSize; }
    // The checked reader over the copy.
    AtomReader Reader() const { return AtomReader(GetAtomData(), mAtomSize); }

    AtomPtr GetMvhd() const { return mMvhd; }
    std::uint32_t GetTrackCount() const { return static_cast<std::uint32_t>(mTracks.size()); }
    const TrackItem& GetTrackItem(std::uint64_t inIndex) const;
    std::uint32_t GetUserDataCount() const { return static_cast<std::uint32_t>(mUserData.size()); }
    void GetUserData(std::uint32_t inIndex, Pelt::BinaryData& outData, std::uint32_t& outType) const;
    bool GetUserDataByType(FourCC inType, Pelt::BinaryData& outData) const;
    std::uint32_t GetChildAtom(FourCC inType, Pelt::BinaryData& outData) const;
    bool GetMetadataValue(const std::string& inKey, MetadataValue& outValue) const;

    // A copy of a user data entry's bytes; empty for an entry without content.
    Pelt::BinaryData CopyEntry(const UserDataEntry& entry) const;

    void Adopt(AtomPtr inMvhd, std::vector<TrackItem> inTracks, std::vector<UserDataEntry> inUserData,
               MetadataMap inMetadata);

private:
    std::unique_ptr<std::uint8_t[]> mAtomData;
    std::uint32_t mAtomSize = 0;
    AtomPtr mMvhd;
    std::vector<TrackItem> mTracks;
    std::vector<UserDataEntry> mUserData;
    MetadataMap mMetadata;
};

} // namespace QT
