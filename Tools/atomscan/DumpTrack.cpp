// A `tracks[i]` entry: the track core, then the section of its media kind.
#include <optional>

#include "Dump.h"

namespace atomscan_tool {

void WriteTrackSection(JsonWriter& w, QT::IQTTrack& track, const DumpContext& context)
{
    (void)context;
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
    w.Key("matrix");
    w.BeginObject(true);
    Field(w, "identity", [&] { return track.IsTrackMatrixIdentity(); });
    Field(w, "identity2D", [&] { return track.IsTrackMatrixIdentity2D(); });
    Field(w, "rightAngle", [&] { return track.IsTrackMatrixRightAngle(); });
    Field(w, "rotation", [&] { return track.GetTrackMatrixRotation(); });
    w.EndObject();
    w.EndObject();
}

} // namespace atomscan_tool
