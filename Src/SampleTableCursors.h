// Forward-only cursors over the sample tables, shared by every table builder.
// Each cursor proves its table's entries inside the table's atom and the copy
// once, when it is made (AtomReader::Table): a stored count is believed only
// that far, and inside that extent the reads carry no test, so no walk runs
// past the copy, loops on a hostile count or tests a bound per sample.
#pragma once

#include <cstdint>
#include <limits>

#include "Src/AtomReader.h"

namespace QT {

// `stts`: runs of samples of one duration.
class SttsCursor {
public:
    SttsCursor(const AtomReader& reader, AtomPtr stts) : mEntries(reader.Table<8>(stts, 16, reader.U32Or(stts.Field(12))))
    {
        Load();
    }

    std::uint32_t EntryCount() const { return mEntries.Count(); }
    bool AtEnd() const { return mEntry >= mEntries.Count(); }
    // The current entry; 0 and 0 past the last.
    std::uint32_t Count() const { return mCount; }
    std::uint32_t Duration() const { return mDuration; }
    // Index of the first sample of the current entry, at 64 bits.
    std::uint64_t FirstSample() const { return mFirstSample; }
    void Next()
    {
        mFirstSample += mCount;
        ++mEntry;
        Load();
    }

private:
    void Load()
    {
        const bool in = !AtEnd();
        mCount = in ? mEntries.U32<0>(mEntry) : 0;
        mDuration = in ? mEntries.U32<4>(mEntry) : 0;
    }

    TableExtent<8> mEntries;
    std::uint32_t mEntry = 0;
    std::uint32_t mCount = 0;
    std::uint32_t mDuration = 0;
    std::uint64_t mFirstSample = 0;
};

// `stsc`: runs of chunks with the same number of samples per chunk. Chunks
// are counted from 0; the last run reaches to `chunkCount`, and no run passes it.
class StscCursor {
public:
    StscCursor(const AtomReader& reader, AtomPtr stsc, std::uint32_t chunkCount)
        : mEntries(reader.Table<12>(stsc, 16, reader.U32Or(stsc.Field(12)))), mChunkCount(chunkCount)
    {
        Load();
    }

    std::uint32_t EntryCount() const { return mEntries.Count(); }
    bool AtEnd() const { return mEntry >= mEntries.Count(); }
    std::uint32_t Entry() const { return mEntry; }
    // First chunk of the current entry as stored, counted from 1.
    std::uint32_t FirstChunk() const { return mFirstChunk; }
    std::uint32_t SamplesPerChunk() const { return mSamplesPerChunk; }
    // Chunks in the current run as the table says: the next entry's first
    // chunk less this one's, at 32 bits; for the last entry, the chunks left
    // behind `chunksBefore` (the sum of the earlier runs).
    std::uint32_t RunChunks(std::uint64_t chunksBefore) const
    {
        if (!IsLast()) return mNextFirstChunk - mFirstChunk;
        return chunksBefore < mChunkCount ? static_cast<std::uint32_t>(mChunkCount - chunksBefore) : 0;
    }
    bool IsLast() const { return mEntry + 1 >= mEntries.Count(); }
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
        if (AtEnd()) return;
        mFirstChunk = mEntries.U32<0>(mEntry);
        mSamplesPerChunk = mEntries.U32<4>(mEntry);
        mNextFirstChunk = IsLast() ? 0 : mEntries.U32<0>(mEntry + 1);
    }

    TableExtent<12> mEntries;
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
        : mConstant(reader.U32Or(stsz.Field(12))), mCount(reader.U32Or(stsz.Field(16))),
          mEntries(mConstant == 0 ? reader.Table<4>(stsz, 20, mCount) : TableExtent<4>())
    {
    }

    std::uint32_t Constant() const { return mConstant; }
    // The stored sample count.
    std::uint32_t Count() const { return mCount; }
    // Samples whose size can be told: all of them with a constant size, else
    // the table entries that lie inside the atom and the copy.
    std::uint32_t KnownCount() const { return mConstant != 0 ? mCount : mEntries.Count(); }
    // The size of `sample`, which is below KnownCount().
    std::uint32_t SizeOf(std::uint64_t sample) const { return mConstant != 0 ? mConstant : mEntries.U32(sample); }

private:
    std::uint32_t mConstant;
    std::uint32_t mCount;
    TableExtent<4> mEntries;
};

// `stss`: the numbers of the sync samples, counted from 1, in stored order.
// The stored count is signed: 0 or less gives no entries.
class SyncSamples {
public:
    SyncSamples(const AtomReader& reader, AtomPtr stss)
    {
        const std::int32_t stored = reader.S32Or(stss.Field(12));
        if (stored > 0) mEntries = reader.Table<4>(stss, 16, static_cast<std::uint32_t>(stored));
    }

    std::uint32_t Count() const { return mEntries.Count(); }
    // Entry `i`, below Count().
    std::uint32_t At(std::uint32_t i) const { return mEntries.U32(i); }

private:
    TableExtent<4> mEntries;
};

// `ctts`: runs of samples with one composition offset; count and offset signed.
class CttsEntries {
public:
    CttsEntries(const AtomReader& reader, AtomPtr ctts) : mEntries(reader.Table<8>(ctts, 16, reader.U32Or(ctts.Field(12))))
    {
    }

    std::uint32_t Count() const { return mEntries.Count(); }
    // Of entry `i`, below Count().
    std::int32_t SampleCount(std::uint32_t i) const { return static_cast<std::int32_t>(mEntries.U32<0>(i)); }
    std::int32_t SampleOffset(std::uint32_t i) const { return static_cast<std::int32_t>(mEntries.U32<4>(i)); }

private:
    TableExtent<8> mEntries;
};

// `sdtp` flag bits that are looked at.
constexpr std::uint8_t kSdtpEarlierDisplayAllowed = 0x40;
constexpr std::uint8_t kSdtpDependsOnNone = 0x20;
constexpr std::uint8_t kSdtpNoneDependsOnThis = 0x08;

// The flag bytes of `sdtp`, one per sample in decode order, from position 12
// to the atom's end (or the copy's).
class SdtpFlags {
public:
    SdtpFlags(const AtomReader& reader, AtomPtr sdtp)
        : mEntries(reader.Table<1>(sdtp, 12, std::numeric_limits<std::uint64_t>::max())) {}

    std::uint32_t Count() const { return mEntries.Count(); }
    // The flags of sample `i`, below Count().
    std::uint8_t At(std::uint32_t i) const { return mEntries.U8(i); }

private:
    TableExtent<1> mEntries;
};

} // namespace QT
