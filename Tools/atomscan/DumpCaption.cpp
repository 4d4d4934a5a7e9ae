// The `caption` section of a track with `c608` or `c708` samples.
#include "Dump.h"

namespace atomscan_tool {

namespace {

void WriteCaptionTable(JsonWriter& w, const char* key, QT::IQTTrack& track, const DumpContext& context,
                       bool keyByOffset)
{
    TableField<QT::CaptionSampleMap>(
        w, key, "records",
        [&](QT::CaptionSampleMap& map) {
            return track.MakeCaptionSampleTable(context.absolutePath16, map, keyByOffset);
        },
        [&](const QT::CaptionSampleMap& map) {
            for (const auto& entry : map) {
                const QT::CaptionSampleRecord& r = entry.second;
                Row(w, [&] {
                    w.UInt(entry.first);
                    w.UInt(r.mTime);
                    w.UInt(r.mOffset);
                    w.UInt(r.mLength);
                    w.Bool(r.mHasSecondData);
                    w.UInt(r.mSecondOffset);
                    w.UInt(r.mSecondLength);
                });
            }
        });
}

} // namespace

void WriteCaptionSection(JsonWriter& w, QT::IQTTrack& track, QT::FourCC format, const DumpContext& context)
{
    w.BeginObject();
    w.Key("format");
    w.String(FourCCText(format));
    Field(w, "frameDuration", [&] { return track.GetCaptionFrameDuration(); });
    if (context.options.tables) {
        WriteCaptionTable(w, "byTime", track, context, false);
        WriteCaptionTable(w, "byOffset", track, context, true);
    } else {
        NullField(w, "byTime");
        NullField(w, "byOffset");
    }
    w.EndObject();
}

} // namespace atomscan_tool
