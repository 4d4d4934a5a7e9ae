// A `tracks[i]` entry: the track core, then the section of its media kind.
#include <optional>
#include <utility>

#include "dump/Dump.h"

namespace atomscan_tool {

namespace {

void WriteExtRef(JsonWriter& w, const QT::ExtRefData& ref)
{
    w.BeginObject(true);
    w.Key("fullPath");
    WriteString16(w, ref.fullPath);
    w.Key("fileName");
    WriteString16(w, ref.fileName);
    w.Key("directoryName");
    WriteString16(w, ref.directoryName);
    w.EndObject();
}

void WriteDataReference(JsonWriter& w, QT::IQTTrack& track)
{
    w.Key("dataReference");
    w.BeginObject(true);
    Field(w, "selfContained", [&] { return track.IsDataReferenceSelfContained(); });
    Field(w, "single", [&] { return track.HasSingleDataReference(); });
    FourCCField(w, "type", [&] { return track.GetDataReferenceType(); });
    Guarded(
        w, "singleExternalPath",
        [&] {
            QT::String16 path;
            return track.GetSingleExternalReferencePath(&path) ? std::optional(path) : std::nullopt;
        },
        [&](const std::optional<QT::String16>& path) {
            if (path) WriteString16(w, *path);
            else w.Null();
        });
    w.EndObject();
    Guarded(
        w, "externalReferences",
        [&] {
            std::pair<bool, QT::ExternalReferenceMap> r;
            r.first = track.GetTrackExternalReferences(r.second);
            return r;
        },
        [&](const std::pair<bool, QT::ExternalReferenceMap>& r) { WriteExternalReferences(w, r.first, r.second); });
}

// The caption format of the first description, when there is one and it is known.
std::optional<QT::FourCC> CaptionFormat(QT::IQTTrack& track)
{
    if (track.GetSampleDescriptionCount() < 1) return std::nullopt;
    const QT::FourCC format = track.GetCaptionMediaFormat(0);
    return format == QT::kUnknownMediaType ? std::nullopt : std::optional(format);
}

} // namespace

void WriteExternalReferences(JsonWriter& w, bool result, const QT::ExternalReferenceMap& references)
{
    w.BeginObject();
    w.Key("result");
    w.Bool(result);
    w.Key("refs");
    w.BeginArray();
    for (const auto& entry : references) WriteExtRef(w, entry.second);
    w.EndArray();
    w.EndObject();
}

void WriteTrackSection(JsonWriter& w, QT::IQTTrack& track, const DumpContext& context)
{
    w.BeginObject();
    Field(w, "index", [&] { return track.GetTrackIndex(); });
    std::optional<QT::FourCC> mediaType;
    FourCCField(w, "mediaType", [&] {
        mediaType = track.GetTrackMediaType();
        return *mediaType;
    });
    Field(w, "enabled", [&] { return track.IsTrackEnabled(); });
    Field(w, "dimensions", [&] {
        QT::QTRect rect;
        track.GetTrackDimensions(rect);
        return rect;
    });
    Field(w, "duration", [&] { return track.GetTrackDuration(); });
    Field(w, "mediaTimeScale", [&] { return track.GetMediaTimeScale(); });
    Field(w, "editDuration", [&] { return track.GetEditDuration(); });
    Field(w, "editMediaTime", [&] { return track.GetEditMediaTime(); });
    Field(w, "durationInMediaTimeScale", [&] { return track.GetTrackDurationInMediaTimeScale(); });
    w.Key("simpleEditList");
    w.BeginObject(true);
    Field(w, "anyRate", [&] { return track.HasSimpleEditList(false); });
    Field(w, "unitRate", [&] { return track.HasSimpleEditList(true); });
    w.EndObject();
    Field(w, "trimmed", [&] { return track.IsTrackTrimmed(); });
    Field(w, "editSampleCount", [&] { return track.GetEditSampleCount(); });
    Field(w, "sampleDescriptionCount", [&] { return track.GetSampleDescriptionCount(); });
    Field(w, "allSampleDescriptionsEquivalent", [&] { return track.GetAllSampleDescriptionsEquivalent(); });
    w.Key("matrix");
    w.BeginObject(true);
    Field(w, "identity", [&] { return track.IsTrackMatrixIdentity(); });
    Field(w, "identity2D", [&] { return track.IsTrackMatrixIdentity2D(); });
    Field(w, "rightAngle", [&] { return track.IsTrackMatrixRightAngle(); });
    Field(w, "rotation", [&] { return track.GetTrackMatrixRotation(); });
    w.EndObject();
    DimensionsField(w, "productionAperture", [&](float& width, float& height) {
        return track.GetTrackProductionApertureDimensions(width, height);
    });
    DimensionsField(w, "encodedPixels", [&](float& width, float& height) {
        return track.GetTrackEncodedPixelsDimensions(width, height);
    });
    WriteDataReference(w, track);

    // Each section only where its operations are allowed.
    if (mediaType == QT::kVideoMediaType) {
        w.Key("video");
        WriteVideoSection(w, track, context);
    } else if (mediaType == QT::kAudioMediaType) {
        w.Key("audio");
        WriteAudioSection(w, track, context);
    } else if (mediaType == QT::kTimecodeMediaType) {
        w.Key("timecode");
        WriteTimecodeSection(w, track, context);
    }
    try {
        if (const std::optional<QT::FourCC> format = CaptionFormat(track)) {
            w.Key("caption");
            WriteCaptionSection(w, track, *format, context);
        }
    } catch (const std::exception& e) {
        w.Key("caption");
        WriteError(w, e.what());
    }
    w.EndObject();
}

} // namespace atomscan_tool
