// A track of an open movie, and the reader of its chunk offset table.
#pragma once

#include <cstdint>

#include "API/Inc/PeltBinaryData.h"
#include "Inc/AtomscanTypes.h"
#include "Inc/ExternalReferences.h"
#include "Inc/QTCaption.h"
#include "Inc/QTTimecode.h"

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

class AtomReader;
struct TrackItem;

// Reads a track's chunk offsets from `co64` if the track has one, else `stco`.
class ChunkOffsetHelper {
public:
    ChunkOffsetHelper(const TrackItem& trackItem, const AtomReader& reader);
    // Contract: entryIdx < mNumEntries. An entry outside the copy reads as 0.
    std::uint64_t GetEntry(std::uint64_t entryIdx) const;
    std::uint32_t NumEntries() const { return mNumEntries; }
    bool IsWide() const { return mIsCo64; }

private:
    const TrackItem* mTrackItem;
    const AtomReader* mReader;
    bool mIsCo64;
    std::uint32_t mNumEntries;
};

} // namespace QT
