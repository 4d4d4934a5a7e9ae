// Bytes → a file → OpenMovie → every movie operation, and for every track
// every operation its media type allows, with every description index, every
// table with every flag combination, and the reference enumerations.
#include <map>
#include <vector>

#include "Fuzz/FuzzSupport.h"
#include "Inc/ExternalReferences.h"
#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"

namespace {

// Description indices tried: a negative one and the first few real ones.
constexpr std::int32_t kMaxDescriptions = 4;

template <typename F>
void Guarded(F&& f)
{
    // A contract failure is the caller's misuse, not a crash: the harness only
    // calls what is allowed, but some table walks check a description index
    // read from the file.
    try {
        f();
    } catch (const vellum::config::Error&) {
    }
}

void Video(QT::IQTTrack& t, std::int32_t descriptions)
{
    t.GetAllImageDescriptionsEquivalent(false);
    t.GetAllImageDescriptionsEquivalent(true);
    float w = 0, h = 0;
    t.GetTrackCleanApertureDimensions(w, h);
    t.GetTrackProductionApertureDimensions(w, h);
    t.GetTrackEncodedPixelsDimensions(w, h);
    for (std::int32_t i = -1; i < descriptions; ++i) {
        t.GetVideoMediaCompressionFourCC(i);
        t.GetVideoMediaVendorFourCC(i);
        t.GetVideoMediaWidth(i);
        t.GetVideoMediaHeight(i);
        t.GetVideoMediaDepth(i);
        std::uint32_t a, b, c, d, e, f, g, k;
        t.GetVideoMediaCleanAperture(i, a, b, c, d, e, f, g, k);
        t.GetVideoMediaPixelAspect(i, a, b);
        QT::String16 name;
        t.GetVideoMediaCodecName(i, name);
        t.GetVideoMediaQuality(i, a, b);
        t.GetVideoMediaFieldInfo(i, a, b);
        t.GetVideoMediaColorInfo(i, a, b, c);
        Pelt::BinaryData data;
        t.GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(i, QT::MakeFourCC("colr"), data);
        t.GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(i, QT::MakeFourCC("avcC"), data);
        t.GetVideoMediaImageDescriptionAsBinary(i, data);
        t.GetVideoMediaImageDescriptionAsPlatformBinary(i, data);
    }
    for (int flags = 0; flags < 4; ++flags) {
        std::vector<QT::VideoSampleRecord> table;
        Guarded([&] { t.MakeFullVideoSampleTable(flags & 1, flags & 2, table); });
        table.clear();
        Guarded([&] { t.MakeVideoSampleTable(flags & 1, flags & 2, 7, table); });
    }
    t.VideoTrackContainsDeltaFrames();
    t.VideoTrackHasEarlierDisplayKeyFrames();
    if (t.VideoTrackHasTemporalReferenceData()) {
        std::vector<QT::VideoTemporalReference> refs;
        Guarded([&] { t.MakeVideoTemporalReferenceTable(refs); });
    }
}

void Audio(QT::IQTTrack& t, std::int32_t descriptions)
{
    for (std::int32_t i = -1; i < descriptions; ++i) {
        t.GetAudioMediaSampleRate(i);
        t.GetAudioMediaNumChannels(i);
        t.GetAudioMediaBitsPerSample(i);
        t.GetAudioMediaPackedBitsPerSample(i);
        t.GetAudioMediaDataFormat(i);
        t.IsAudioMediaUncompressed(i);
        t.GetAudioMediaRawDataFormat(i);
        QT::ChannelOrderMap map;
        bool notUnderstood = false;
        t.GetMultiChannelMap(i, map, notUnderstood);
    }
    for (bool byOffset : {false, true}) {
        QT::AudioSampleRangeMap ranges;
        Guarded([&] { t.MakeAudioSampleRangeMap(ranges, byOffset); });
    }
}

void Timecode(QT::IQTTrack& t, std::int32_t descriptions, const QT::String16& path)
{
    QT::TimecodeInfo info;
    QT::String16 name;
    // Reads description 0, which a track without descriptions lacks: that
    // would be the caller's contract failure.
    if (descriptions > 0) t.GetTimecodeMediaInfo(info, name);
    std::uint64_t value = 0, offset = 0;
    std::uint32_t size = 0;
    t.GetTimecodeHandleValue(value);
    if (t.GetTimecodeMediaSampleLocation(offset, size) == 0) {
        // Read the sample as a host would, within reason.
        Tessel::File file;
        if (size <= 64 &&
            file.Create(path, Tessel::kFileAccessRead, Tessel::kFileShareRead, Tessel::kFileOpenExisting,
                        Tessel::kFileAttributesNormal, false) >= 0 &&
            file.SetFilePointer(static_cast<std::int64_t>(offset & 0x7FFFFFFFFFFFFFFFull), Tessel::kFromStart) >= 0) {
            std::uint8_t buffer[64];
            std::uint32_t got = 0;
            if (file.Read(buffer, size, got) >= 0) {
                std::int64_t frame = 0;
                t.GetTimecodeFrameValue(Pelt::BinaryData(got ? buffer : nullptr, got), info, frame);
            }
        }
    }
    std::int64_t frame = 0;
    const std::uint8_t four[4] = {0, 0, 1, 2};
    t.GetTimecodeFrameValue(Pelt::BinaryData(four, 4), info, frame);
}

void Track(QT::IQTTrack& t, const QT::String16& path)
{
    const QT::FourCC type = t.GetTrackMediaType();
    QT::QTRect r;
    t.GetTrackDimensions(r);
    t.IsTrackEnabled();
    t.GetTrackDuration();
    t.GetMediaTimeScale();
    t.GetEditDuration();
    const std::int32_t count = t.GetSampleDescriptionCount();
    const std::int32_t descriptions = count < kMaxDescriptions ? count : kMaxDescriptions;
    t.GetAllSampleDescriptionsEquivalent();
    t.GetEditSampleCount();
    t.GetTrackDurationInMediaTimeScale();
    t.HasSimpleEditList(false);
    t.HasSimpleEditList(true);
    t.IsTrackTrimmed();
    t.GetEditMediaTime();
    t.IsTrackMatrixIdentity();
    t.IsTrackMatrixIdentity2D();
    t.IsTrackMatrixRightAngle();
    t.GetTrackMatrixRotation();
    Pelt::BinaryData data;
    t.GetTrackUserDataItem(QT::MakeFourCC("name"), data);
    t.IsDataReferenceSelfContained();
    t.GetDataReferenceType();
    QT::String16 refPath;
    t.GetSingleExternalReferencePath(&refPath);
    t.HasSingleDataReference();
    QT::ExternalReferenceMap refs;
    t.GetTrackExternalReferences(refs);

    if (type == QT::kVideoMediaType) Video(t, descriptions);
    if (type == QT::kAudioMediaType) Audio(t, descriptions);
    if (type == QT::kTimecodeMediaType) Timecode(t, descriptions, path);
    for (std::int32_t i = -1; i < descriptions; ++i) t.GetCaptionMediaFormat(i);
    t.GetCaptionFrameDuration();
    for (bool byOffset : {false, true}) {
        QT::CaptionSampleMap captions;
        Guarded([&] { t.MakeCaptionSampleTable(path, captions, byOffset); });
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QT::String16 path = fuzz::WriteInput(data, size);
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    if (QT::MakeParser()->OpenMovie(path, movie) != QT::kResultSuccess) return 0;

    movie->GetTimeScale();
    movie->GetDuration();
    movie->GetPosterTime();
    movie->GetMovieAtomSize();
    QT::QTRect bounds;
    movie->GetBounds(bounds);
    Pelt::BinaryData blob;
    std::uint32_t type = 0;
    for (std::uint32_t i = 0; i < movie->GetUserDataCount() && i < 16; ++i) movie->GetUserData(i, blob, type);
    movie->GetUserDataByType(QT::MakeFourCC("name"), blob);
    movie->GetChildAtom(QT::MakeFourCC("udta"), blob);
    QT::MetadataValue value;
    movie->GetMetadataValue("title", value);

    for (std::uint32_t i = 0; i < movie->GetTrackCount() && i < 16; ++i) {
        auto track = movie->GetIndTrack(i);
        Track(*track, path);
    }

    QT::TrackReferenceMap video, audio, timecode;
    QT::GetExternalReferences(movie, video, audio, timecode);
    QT::ExternalReferenceMap all;
    if (QT::GetAllExternalReferences(movie, all)) QT::ValidateExternalReferences(path, all);
    return 0;
}
