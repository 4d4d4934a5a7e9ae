// Forward-only cursors over the sample tables, shared by every table builder.
// A table's entry count is believed only as far as its entries lie inside
// the copy, so no walk runs past the copy or loops on a hostile count.
#pragma once

#include <algorithm>
#include <cstdint>

#include "Inc/QTTrack.h"
#include "Src/AtomReader.h"
#include "Src/QTMooVAtom.h"

namespace QT {

// `stts`: runs of samples of one duration.
class SttsCursor {
public:
    SttsCursor(const AtomReader& reader, AtomPtr stts)
        : mReader(reader), mStts(stts), mEntryCount(reader.FitCount(stts.Field(16), reader.U32Or(stts.Field(12)), 8)) {}

    std::uint32_t EntryCount() const { return mEntryCount; }
    bool AtEnd() const { return mEntry >= mEntryCount; }
    // The current entry.
    std::uint32_t Count() const { return mReader.U32Or(mStts.Field(16 + 8ull * mEntry)); }
    std::uint32_t Duration() const { return mReader.U32Or(mStts.Field(20 + 8ull * mEntry)); }
    // Index of the first sample of the current entry, at 64 bits.
    std::uint64_t FirstSample() const { return mFirstSample; }
    void Next()
    {
        mFirstSample += Count();
        ++mEntry;
    }

private:
    AtomReader mReader; // a copy: cursors are often made from a temporary reader
    AtomPtr mStts;
    std::uint32_t mEntryCount;
    std::uint32_t mEntry = 0;
    std::uint64_t mFirstSample = 0;
};

// `stsc`: runs of chunks with the same number of samples per chunk. Chunks
// are counted from 0; the last run reaches to `chunkCount`, and no run passes it.
class StscCursor {
public:
    StscCursor(const AtomReader& reader, AtomPtr stsc, std::uint32_t chunkCount)
        : mReader(reader), mStsc(stsc), mEntryCount(reader.FitCount(stsc.Field(16), reader.U32Or(stsc.Field(12)), 12)),
          mChunkCount(chunkCount)
    {
        Load();
    }

    std::uint32_t EntryCount() const { return mEntryCount; }
    bool AtEnd() const { return mEntry >= mEntryCount; }
    std::uint32_t Entry() const { return mEntry; }
    // First chunk of the current entry as stored, counted from 1.
    std::uint32_t FirstChunk() const { return mFirstChunk; }
    std::uint32_t SamplesPerChunk() const { return mSamplesPerChunk; }
    // Chunks in the current run as the table says: the next entry's first
    // chunk less this one's, at 32 bits; for the last entry, the chunks left
    // behind `chunksBefore` (the sum of the earlier runs).
    std::uint32_t RunChunks(std::uint64_t chunksBefore) const
    {
        if (mEntry + 1 < mEntryCount) return mNextFirstChunk - mFirstChunk;
        return chunksBefore < mChunkCount ? static_cast<std::uint32_t>(mChunkCount - chunksBefore) : 0;
    }
    bool IsLast() const { return mEntry + 1 >= mEntryCount; }
    // First chunk of the next entry as stored (only meaningful when not last).
    std::uint32_t NextFirstChunk() const { return mNextFirstChunk; }
    void Next()
    {
        ++mEntry;
        Load();
    }

private:
    void Load()
    {
        if (mEntry >= mEntryCount) return;
        mFirstChunk = mReader.U32Or(mStsc.Field(16 + 12ull * mEntry));
        mSamplesPerChunk = mReader.U32Or(mStsc.Field(20 + 12ull * mEntry));
        mNextFirstChunk = mEntry + 1 < mEntryCount ? mReader.U32Or(mStsc.Field(16 + 12ull * (mEntry + 1))) : 0;
    }

    AtomReader mReader; // a copy: cursors are often made from a temporary reader
    AtomPtr mStsc;
    std::uint32_t mEntryCount;
    std::uint32_t mChunkCount;
    std::uint32_t mEntry = 0;
    std::uint32_t mFirstChunk = 0;
    std::uint32_t mSamplesPerChunk = 0;
    std::uint32_t mNextFirstChunk = 0;
};

// `stsz`: the constant size, or one size per sample.
class SampleSizes {
public:
    SampleSizes(const AtomReader& reader, AtomPtr stsz)
        : mReader(reader), mStsz(stsz), mConstant(reader.U32Or(stsz.Field(12))), mCount(reader.U32Or(stsz.Field(16))) {}

    std::uint32_t Constant() const { return mConstant; }
    // The stored sample count.
    std::uint32_t Count() const { return mCount; }
    // Samples whose size can be told: all of them with a constant size, else
    // the table entries that lie inside the copy.
    std::uint32_t KnownCount() const { return mConstant != 0 ? mCount : mReader.FitCount(mStsz.Field(20), mCount, 4); }
    std::uint32_t SizeOf(std::uint64_t sample) const
    {
        return mConstant != 0 ? mConstant : mReader.U32Or(mStsz.Field(20 + 4 * sample));
    }

private:
    AtomReader mReader; // a copy: cursors are often made from a temporary reader
    AtomPtr mStsz;
    std::uint32_t mConstant;
    std::uint32_t mCount;
};

} // namespace QT
