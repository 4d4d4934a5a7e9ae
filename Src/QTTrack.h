// The track object: answers from the track's record in the store, and the
// four edit numbers it works out at creation.
#pragma once

#include <atomic>
#include <cstdint>

#include "Inc/QTTrack.h"
#include "Src/CountedObject.h"
#include "Src/CountedPtr.h"
#include "Src/QTMooVAtom.h"

namespace QT {

class QTTrack : public CountedObject<IQTTrack, kIID_IQTTrack> {
public:
    std::uint64_t GetTrackIndex() override { return mTrackIndex; }
    FourCC GetTrackMediaType() override;
    void GetTrackDimensions(QTRect& outRect) override;
    bool IsTrackEnabled() override;
    std::uint32_t GetTrackDuration() override;
    std::uint32_t GetMediaTimeScale() override;
    std::uint32_t GetEditDuration() override { return MediaToMovieTime(mEditDuration); }
    std::int32_t GetSampleDescriptionCount() override;
    std::uint32_t GetEditSampleCount() override;
    std::uint32_t GetTrackDurationInMediaTimeScale() override { return MovieToMediaTime(GetTrackDuration()); }
    bool HasSimpleEditList(bool requireUnitRate) override;
    bool IsTrackTrimmed() override;
    std::uint32_t GetEditMediaTime() override { return mEditMediaTime; }
    // Sound (QTTrack_Audio).
    std::uint32_t GetAudioMediaSampleRate(std::int32_t inSampleDescriptionIndex) override;
    std::uint32_t GetAudioMediaNumChannels(std::int32_t inSampleDescriptionIndex) override;
    std::uint32_t GetAudioMediaBitsPerSample(std::int32_t inSampleDescriptionIndex) override;
    std::uint32_t GetAudioMediaPackedBitsPerSample(std::int32_t inSampleDescriptionIndex) override;
    FourCC GetAudioMediaDataFormat(std::int32_t inSampleDescriptionIndex) override;
    bool IsAudioMediaUncompressed(std::int32_t inSampleDescriptionIndex) override;
    FourCC GetAudioMediaRawDataFormat(std::int32_t inSampleDescriptionIndex) override;
    ResultCode MakeAudioSampleRangeMap(AudioSampleRangeMap& outMap, bool inKeyByFileOffset) override;
    bool GetMultiChannelMap(std::int32_t inSampleDescriptionIndex, ChannelOrderMap& outChannelMap,
                            bool& outLayoutNotUnderstood) override;
    // Timecode and captions.
    std::int32_t GetTimecodeMediaInfo(TimecodeInfo& outInfo, String16& outName) override;
    std::int32_t GetTimecodeHandleValue(std::uint64_t& outValue) override;
    std::int32_t GetTimecodeMediaSampleLocation(std::uint64_t& outOffset, std::uint32_t& outSize) override;
    std::int32_t GetTimecodeFrameValue(Pelt::BinaryData data, const TimecodeInfo& info,
                                       std::int64_t& outValue) override;
    ResultCode MakeCaptionSampleTable(const String16& path, CaptionSampleMap& table, bool keyByOffset) override;
    FourCC GetCaptionMediaFormat(std::int32_t index) override;
    std::int32_t GetCaptionFrameDuration() override;
    bool GetTrackUserDataItem(FourCC type, Pelt::BinaryData& outData) override;
    // Data references.
    bool IsDataReferenceSelfContained() override;
    FourCC GetDataReferenceType() override;
    bool GetSingleExternalReferencePath(String16* outPath) override;
    bool HasSingleDataReference() override;
    bool GetTrackExternalReferences(ExternalReferenceMap& references) override;
    // The payload of a `hndl` first data reference: 0, or -1 and an empty `outData`.
    std::int32_t GetHandleDataReferencePayload(Pelt::BinaryData& outData) const;
    bool IsTrackMatrixIdentity() override;
    bool IsTrackMatrixIdentity2D() override;
    bool IsTrackMatrixRightAngle() override;
    std::uint32_t GetTrackMatrixRotation() override;

    // Video: image descriptions, their export, and the two frame tables.
    bool GetAllSampleDescriptionsEquivalent() override;
    bool GetAllImageDescriptionsEquivalent(bool ignoreSize) override;
    bool GetTrackCleanApertureDimensions(float& outWidth, float& outHeight) override;
    bool GetTrackProductionApertureDimensions(float& outWidth, float& outHeight) override;
    bool GetTrackEncodedPixelsDimensions(float& outWidth, float& outHeight) override;
    FourCC GetVideoMediaCompressionFourCC(std::int32_t index) override;
    FourCC GetVideoMediaVendorFourCC(std::int32_t index) override;
    std::int32_t GetVideoMediaWidth(std::int32_t index) override;
    std::int32_t GetVideoMediaHeight(std::int32_t index) override;
    std::uint32_t GetVideoMediaDepth(std::int32_t index) override;
    ResultCode GetVideoMediaCleanAperture(std::int32_t index, std::uint32_t& outWidthN, std::uint32_t& outWidthD,
                                          std::uint32_t& outHeightN, std::uint32_t& outHeightD,
                                          std::uint32_t& outOffsetXN, std::uint32_t& outOffsetXD,
                                          std::uint32_t& outOffsetYN, std::uint32_t& outOffsetYD) override;
    ResultCode GetVideoMediaPixelAspect(std::int32_t index, std::uint32_t& outHorizontal,
                                        std::uint32_t& outVertical) override;
    ResultCode GetVideoMediaCodecName(std::int32_t index, String16& outName) override;
    ResultCode GetVideoMediaQuality(std::int32_t index, std::uint32_t& outTemporal, std::uint32_t& outSpatial) override;
    ResultCode GetVideoMediaFieldInfo(std::int32_t index, std::uint32_t& outFieldCount,
                                      std::uint32_t& outFieldOrdering) override;
    ResultCode GetVideoMediaColorInfo(std::int32_t index, std::uint32_t& outPrimaries, std::uint32_t& outTransfer,
                                      std::uint32_t& outMatrix) override;
    ResultCode GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(std::int32_t index, FourCC type,
                                                                       Pelt::BinaryData& outData) override;
    ResultCode GetVideoMediaImageDescriptionAsBinary(std::int32_t index, Pelt::BinaryData& outData) override;
    ResultCode GetVideoMediaImageDescriptionAsPlatformBinary(std::int32_t index, Pelt::BinaryData& outData) override;
    ResultCode MakeVideoSampleTable(bool sortByTime, bool ignoreEdits, std::uint32_t maxEntries,
                                    std::vector<VideoSampleRecord>& outTable) override;
    ResultCode MakeFullVideoSampleTable(bool sortByTime, bool ignoreEdits,
                                        std::vector<VideoSampleRecord>& outTable) override;
    bool VideoTrackContainsDeltaFrames() override;
    bool VideoTrackHasTemporalReferenceData() override;
    bool VideoTrackHasEarlierDisplayKeyFrames() override;
    ResultCode MakeVideoTemporalReferenceTable(std::vector<VideoTemporalReference>& outTable) override;
    // The first extension atom of `type` in the image description at
    // `description` (its size field) of `reader`'s bytes: its payload and size.
    static bool FindImageDescriptionExtension(const AtomReader& reader, AtomPtr description, FourCC type,
                                              AtomPtr& outPayload, std::uint32_t& outPayloadSize);

    // Called once by the movie on a fresh object.
    void Initialize(std::uint64_t trackIndex, const CountedPtr<QTMooVAtom>& store, std::uint32_t movieTimeScale);

    // The description `inSampleDescriptionIndex` of `stsdAtom`, at its size
    // field; null for a negative index, an empty table, or a description that
    // leaves the atom. Contract: the index is below the count.
    AtomPtr GetNthSampleDescriptionPtr(AtomPtr stsdAtom, std::int32_t inSampleDescriptionIndex) const;
    std::uint32_t MovieToMediaTime(std::uint32_t value) const;
    std::uint32_t MediaToMovieTime(std::uint32_t value) const;

    // Sample tables.
    std::uint32_t GetTotalSampleCount();
    std::int32_t GetSampleDuration(std::uint32_t sampleIndex, std::int32_t& inOutDuration) const;
    std::uint32_t GetFirstEditMediaTime() const;

    // The four edit numbers, fixed at Initialize.
    std::uint32_t EditMediaTime() const { return mEditMediaTime; }
    std::uint32_t EditFirstSample() const { return mEditFirstSample; }
    std::uint32_t EditFirstSampleDuration() const { return mEditFirstSampleDuration; }
    std::uint32_t EditDuration() const { return mEditDuration; }

    // The track's record and the reader of the copy it points into.
    const TrackItem& Item() const { return mStore->GetTrackItem(mTrackIndex); }
    AtomReader Reader() const { return mStore->Reader(); }

private:
    // The media time scale as the conversions compare it.
    std::uint64_t MediaTimeScaleWide() const;
    // `value` from the scale `from` to the scale `to`: the product at 64 bits,
    // the quotient truncated; unchanged for equal scales.
    static std::uint32_t Rescale(std::uint32_t value, std::uint64_t from, std::uint64_t to);
    void AnalyzeEdits();
    // Which of the four right-angle rows the matrix matches; -1 for none.
    int MatrixRow(bool ignoreW) const;

    std::uint64_t mTrackIndex = 0;
    CountedPtr<QTMooVAtom> mStore;
    std::uint32_t mMovieTimeScale = 0;
    // Caches, 0 while not computed. Threads sharing a track may fill one at
    // the same time; they store the same value, so relaxed order suffices.
    std::atomic<std::uint32_t> mTotalSampleCount{0};
    std::atomic<std::uint32_t> mEditSampleCount{0};
    std::uint32_t mEditMediaTime = 0;
    std::uint32_t mEditFirstSample = 0;
    std::uint32_t mEditFirstSampleDuration = 0;
    std::uint32_t mEditDuration = 0;
};

} // namespace QT
