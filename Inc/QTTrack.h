// A track of an open movie, and the reader of its chunk offset table.
#pragma once

#include <cstdint>
#include <vector>

#include "API/Inc/PeltBinaryData.h"
#include "Inc/AtomscanTypes.h"
#include "Inc/QTVideoRecords.h"
#include "Inc/QTAudioRecords.h"
#include "Inc/ExternalReferences.h"
#include "Inc/QTCaption.h"
#include "Inc/QTTableExtent.h"
#include "Inc/QTTimecode.h"

namespace QT {

inline constexpr TesselIID kIID_IQTTrack = {{0xe7, 0xbc, 0x41, 0x7c, 0xa3, 0x8a, 0x60, 0x43, 0xb8, 0xa8, 0x60, 0x1e, 0xd8, 0xe8, 0xa7, 0xca}};

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
    // Data format, width, height, resolutions and depth alike in every
    // description (read at the image description's places, whatever the media).
    virtual bool GetAllSampleDescriptionsEquivalent() = 0;
    // The same for a video track, and with `ignoreSize` false the entry sizes too.
    virtual bool GetAllImageDescriptionsEquivalent(bool ignoreSize) = 0;
    // Samples that the edit covers.
    virtual std::uint32_t GetEditSampleCount() = 0;
    virtual std::uint32_t GetTrackDurationInMediaTimeScale() = 0;
    // Track aperture sizes from `clef`, `prof`, `enof`: false and the outputs
    // untouched when the atom is absent.
    virtual bool GetTrackCleanApertureDimensions(float& outWidth, float& outHeight) = 0;
    virtual bool GetTrackProductionApertureDimensions(float& outWidth, float& outHeight) = 0;
    virtual bool GetTrackEncodedPixelsDimensions(float& outWidth, float& outHeight) = 0;
    // True without an edit; false with two or more; with one, false only when
    // `requireUnitRate` is set and its rate is not 1.0.
    virtual bool HasSimpleEditList(bool requireUnitRate) = 0;
    virtual bool IsTrackTrimmed() = 0;
    virtual std::uint32_t GetEditMediaTime() = 0;

    // Image description `index` (from 0) of a video track. The single values
    // are 0 without a description; the rest give 0, or
    // kResultImageDescriptionItem with the outputs as they were.
    virtual FourCC GetVideoMediaCompressionFourCC(std::int32_t index) = 0;
    virtual FourCC GetVideoMediaVendorFourCC(std::int32_t index) = 0;
    virtual std::int32_t GetVideoMediaWidth(std::int32_t index) = 0;
    virtual std::int32_t GetVideoMediaHeight(std::int32_t index) = 0;
    virtual std::uint32_t GetVideoMediaDepth(std::int32_t index) = 0;
    // The eight numbers of `clap` as stored.
    virtual ResultCode GetVideoMediaCleanAperture(std::int32_t index, std::uint32_t& outWidthN, std::uint32_t& outWidthD,
                                                  std::uint32_t& outHeightN, std::uint32_t& outHeightD,
                                                  std::uint32_t& outOffsetXN, std::uint32_t& outOffsetXD,
                                                  std::uint32_t& outOffsetYN, std::uint32_t& outOffsetYD) = 0;
    // Horizontal and vertical spacing from `pasp`.
    virtual ResultCode GetVideoMediaPixelAspect(std::int32_t index, std::uint32_t& outHorizontal,
                                                std::uint32_t& outVertical) = 0;
    virtual ResultCode GetVideoMediaCodecName(std::int32_t index, String16& outName) = 0;
    virtual ResultCode GetVideoMediaQuality(std::int32_t index, std::uint32_t& outTemporal, std::uint32_t& outSpatial) = 0;
    // `fiel`: field count 1 or 2, ordering 0, 1, 6, 9 or 14; others are refused.
    virtual ResultCode GetVideoMediaFieldInfo(std::int32_t index, std::uint32_t& outFieldCount,
                                              std::uint32_t& outFieldOrdering) = 0;
    // `colr` of type `nclc`; values this system does not know come out as 2.
    virtual ResultCode GetVideoMediaColorInfo(std::int32_t index, std::uint32_t& outPrimaries, std::uint32_t& outTransfer,
                                              std::uint32_t& outMatrix) = 0;
    // Copies of description bytes: 0, or kResultNotFound with `outData` as it was.
    // The payload of the first extension atom of `type`, without its header.
    virtual ResultCode GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(std::int32_t index, FourCC type,
                                                                               Pelt::BinaryData& outData) = 0;
    // The whole description as stored.
    virtual ResultCode GetVideoMediaImageDescriptionAsBinary(std::int32_t index, Pelt::BinaryData& outData) = 0;
    // The whole description with every number of known width little-endian.
    virtual ResultCode GetVideoMediaImageDescriptionAsPlatformBinary(std::int32_t index, Pelt::BinaryData& outData) = 0;
    // Appends one record per frame, in decode order, trimmed to the edit unless
    // `ignoreEdits`; at most `maxEntries` records. With `sortByTime` the whole
    // table is then sorted by time. 0, kResultEditListNotSimple,
    // kResultBadSampleTables, or kResultNotFound when a frame has no chunk.
    virtual ResultCode MakeVideoSampleTable(bool sortByTime, bool ignoreEdits, std::uint32_t maxEntries,
                                            std::vector<VideoSampleRecord>& outTable) = 0;
    virtual ResultCode MakeFullVideoSampleTable(bool sortByTime, bool ignoreEdits,
                                                std::vector<VideoSampleRecord>& outTable) = 0;
    // `stss` is present and does not list every sample.
    virtual bool VideoTrackContainsDeltaFrames() = 0;
    // Both `sdtp` and `ctts` are present.
    virtual bool VideoTrackHasTemporalReferenceData() = 0;
    // Some `sdtp` flag marks an anchor without references.
    virtual bool VideoTrackHasEarlierDisplayKeyFrames() = 0;
    // Resizes the table to the sample count and fills it from `ctts`, `sdtp`
    // and the first `stts` duration: 0, or kResultBadSampleTables.
    virtual ResultCode MakeVideoTemporalReferenceTable(std::vector<VideoTemporalReference>& outTable) = 0;

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
    // Timecode: the first description's counting and its source name. 0.
    virtual std::int32_t GetTimecodeMediaInfo(TimecodeInfo& outInfo, String16& outName) = 0;
    // The start value held in a lone `hndl` data reference: 0, or -1.
    virtual std::int32_t GetTimecodeHandleValue(std::uint64_t& outValue) = 0;
    // Where the first timecode sample lies: 0, or -1 without a chunk.
    // Contract: the track is a timecode track.
    virtual std::int32_t GetTimecodeMediaSampleLocation(std::uint64_t& outOffset, std::uint32_t& outSize) = 0;
    // The frame number in a sample's bytes, moved on by the first edit: 0, or
    // -1 for bytes of the wrong length.
    virtual std::int32_t GetTimecodeFrameValue(Pelt::BinaryData data, const TimecodeInfo& info,
                                               std::int64_t& outValue) = 0;
    // Captions: each `c608`/`c708` data run in the file, keyed by offset or by
    // media time. 0, or kResultCaptionTables.
    virtual ResultCode MakeCaptionSampleTable(const String16& path, CaptionSampleMap& table, bool keyByOffset) = 0;
    // `c608`, `c708`, or unkn.
    virtual FourCC GetCaptionMediaFormat(std::int32_t index) = 0;
    // Media time units of one caption frame.
    virtual std::int32_t GetCaptionFrameDuration() = 0;
    // The first user data item of the type: true, and its bytes in `outData`.
    virtual bool GetTrackUserDataItem(FourCC type, Pelt::BinaryData& outData) = 0;
    // Data references: whether the one reference says the media is in this file.
    virtual bool IsDataReferenceSelfContained() = 0;
    // The type of the one data reference; '????' unless there is exactly one.
    virtual FourCC GetDataReferenceType() = 0;
    // The path of the one external file, into `outPath` unless it is null.
    virtual bool GetSingleExternalReferencePath(String16* outPath) = 0;
    virtual bool HasSingleDataReference() = 0;
    // Adds the `alis` references to `references`; false when `dref` runs past
    // its end, keeping what earlier entries added.
    virtual bool GetTrackExternalReferences(ExternalReferenceMap& references) = 0;
    virtual bool IsTrackMatrixIdentity() = 0;
    virtual bool IsTrackMatrixIdentity2D() = 0;
    virtual bool IsTrackMatrixRightAngle() = 0;
    // 0 to 3 quarter turns; 0 also for a matrix that is no right angle.
    virtual std::uint32_t GetTrackMatrixRotation() = 0;
};

struct TrackItem;

// Reads a track's chunk offsets from `co64` if the track has one, else `stco`.
// Lives for one operation of the track, which keeps the copy alive.
class ChunkOffsetHelper {
public:
    // The entry count is the table's, as far as its entries lie inside the
    // table's atom and the copy of the movie atom.
    explicit ChunkOffsetHelper(const TrackItem& trackItem);

    // The offset in the file of chunk `entryIdx`, counted from 0; a 32-bit
    // entry is widened with zeros. Contract: entryIdx < mNumEntries.
    std::uint64_t GetEntry(std::uint64_t entryIdx) const
    {
        VELLUM_CONTRACT(entryIdx < mNumEntries, "QT::ChunkOffsetHelper::GetEntry");
        return mIsCo64 ? mWideEntries.U64(entryIdx) : mNarrowEntries.U32(entryIdx);
    }
    std::uint32_t NumEntries() const { return mNumEntries; }
    bool IsWide() const { return mIsCo64; }

private:
    const TrackItem* mTrackItem;
    bool mIsCo64;
    std::uint32_t mNumEntries;
    // The entries of the table read, taken from the record: one of the two is empty.
    TableExtent<4> mNarrowEntries;
    TableExtent<8> mWideEntries;
};

} // namespace QT
