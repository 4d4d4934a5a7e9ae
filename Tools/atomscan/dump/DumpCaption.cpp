// The `caption` section of a track with `c608` or `c708` samples.
#include "dump/Dump.h"

namespace atomscan_tool {

namespace {

void WriteCaptionTable(JsonWriter& w, const char* key, QT::IQTTrack& track, const DumpContext& context,
                       bool keyByOffset)
{
    TableField<QT::CaptionSampleMap>(
        w, context.options.tables, key, "records",
        [&](QT::CaptionSampleMap& map) {
            return track.MakeCaptionSampleTable(context.absolutePath16, map, keyByOffset);
        },
        [](const auto& entry) {
            const QT::CaptionSampleRecord& r = entry.second;
            return std::tuple(entry.first, r.mTime, r.mOffset, r.mLength, r.mHasSecondData, r.mSecondOffset,
                              r.mSecondLength);
        });
}

} // namespace

void WriteCaptionSection(JsonWriter& w, QT::IQTTrack& track, QT::FourCC format, const DumpContext& context)
{
    w.BeginObject();
    w.Key("format");
    w.String(FourCCText(format));
    Field(w, "frameDuration", [&] { return track.GetCaptionFrameDuration(); });
    WriteCaptionTable(w, "byTime", track, context, false);
    WriteCaptionTable(w, "byOffset", track, context, true);
    w.EndObject();
}

} // namespace atomscan_tool
