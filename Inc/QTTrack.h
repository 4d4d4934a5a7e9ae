// A track of an open movie, and the reader of its chunk offset table.
#pragma once

#include <cstdint>

#include "API/Inc/PeltBinaryData.h"
#include "Inc/AtomscanTypes.h"
#include "Inc/QTAudioRecords.h"

namespace QT {

constexpr TesselIID kIID_IQTTrack = {{0xe7, 0xbc, 0x41, 0x7c, 0xa3, 0x8a, 0x60, 0x43, 0xb8, 0xa8, 0x60, 0x1e, 0xd8, 0xe8, 0xa7, 0xca}};

class IQTTrack : public TesselUnknown {
public:
    virtual std::uint64_t GetTrackIndex() = 0;
    // vide, soun, tmcd (also for tc64), text, clcp, or unkn.
    virtual FourCC GetTrackMediaType() = 0;
    // 0, 0, width, height from the track header.
    virtual void GetTrackDimensions(QTRect& outRect) = 0;
    virtual bool IsTrackEnabled() = 0;
    // In the movie time scale, as stored.
    virtual std::uint32_t GetTrackDuration() = 0;
    virtual std::uint32_t GetMediaTimeScale() = 0;
    // The edit's length in the movie time scale.
    virtual std::uint32_t GetEditDuration() = 0;
    virtual std::int32_t GetSampleDescriptionCount() = 0;
    // Samples that the edit covers.
    virtual std::uint32_t GetEditSampleCount() = 0;
    virtual std::uint32_t GetTrackDurationInMediaTimeScale() = 0;
    // True without an edit; false with two or more; with one, false only when
    // `requireUnitRate` is set and its rate is not 1.0.
    virtual bool HasSimpleEditList(bool requireUnitRate) = 0;
    virtual bool IsTrackTrimmed() = 0;
    virtual std::uint32_t GetEditMediaTime() = 0;
    // Sound descriptions, by index from 0. Contract: a sound track. Without
    // the description (a negative index) each gives 0, the data format `unkn`.
    // Whole hertz.
    virtual std::uint32_t GetAudioMediaSampleRate(std::int32_t inSampleDescriptionIndex) = 0;
    virtual std::uint32_t GetAudioMediaNumChannels(std::int32_t inSampleDescriptionIndex) = 0;
    // Bits of one sample of one channel.
    virtual std::uint32_t GetAudioMediaBitsPerSample(std::int32_t inSampleDescriptionIndex) = 0;
    // Bits that one sample of one channel takes in the file.
    virtual std::uint32_t GetAudioMediaPackedBitsPerSample(std::int32_t inSampleDescriptionIndex) = 0;
    // How the samples lie in the file: raw , twos, 16be, 16le, in24, 42ni,
    // in32, 23ni, fl32, 23lf, fl64, 46lf; mp4a, ac-3, ec-3 as stored; else unkn.
    virtual FourCC GetAudioMediaDataFormat(std::int32_t inSampleDescriptionIndex) = 0;
    // False for mp4a, ac-3, ec-3 and unkn.
    virtual bool IsAudioMediaUncompressed(std::int32_t inSampleDescriptionIndex) = 0;
    // The format code as stored in the description.
    virtual FourCC GetAudioMediaRawDataFormat(std::int32_t inSampleDescriptionIndex) = 0;
    // Adds to `outMap` one range for each chunk the edit touches, keyed by file
    // offset or by output position. 0, kResultEditListNotSimple or kResultAudioShape.
    virtual ResultCode MakeAudioSampleRangeMap(AudioSampleRangeMap& outMap, bool inKeyByFileOffset) = 0;
    // The 5.1 channel order of the description's `chan` extension: true with
    // the map filled; true with `outLayoutNotUnderstood` set for any other
    // layout; false without a usable `chan`.
    virtual bool GetMultiChannelMap(std::int32_t inSampleDescriptionIndex, ChannelOrderMap& outChannelMap,
                                    bool& outLayoutNotUnderstood) = 0;
    // The first user data item of the type: true, and its bytes in `outData`.
    virtual bool GetTrackUserDataItem(FourCC type, Pelt::BinaryData& outData) = 0;
    virtual bool IsTrackMatrixIdentity() = 0;
    virtual bool IsTrackMatrixIdentity2D() = 0;
    virtual bool IsTrackMatrixRightAngle() = 0;
    // 0 to 3 quarter turns; 0 also for a matrix that is no right angle.
    virtual std::uint32_t GetTrackMatrixRotation() = 0;
};

class AtomReader;
struct TrackItem;

// Reads a track's chunk offsets from `co64` if the track has one, else `stco`.
// Lives for one operation of the track, which keeps the copy alive.
class ChunkOffsetHelper {
public:
    ChunkOffsetHelper(const TrackItem& trackItem, const AtomReader& reader);
    // Contract: entryIdx < mNumEntries. An entry outside the copy reads as 0.
    std::uint64_t GetEntry(std::uint64_t entryIdx) const;
    std::uint32_t NumEntries() const { return mNumEntries; }
    bool IsWide() const { return mIsCo64; }

private:
    const TrackItem* mTrackItem;
    const std::uint8_t* mCopy; // the movie atom copy, read only through AtomReader
    std::uint32_t mCopySize;
    bool mIsCo64;
    std::uint32_t mNumEntries;
};

} // namespace QT
