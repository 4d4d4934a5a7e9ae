// The `audio` section of a sound track: sound descriptions with their channel
// maps, and the two range maps.
#include "dump/Dump.h"

namespace atomscan_tool {

namespace {

struct ChannelMapAnswer {
    bool result = false;
    bool layoutNotUnderstood = false;
    QT::ChannelOrderMap map;
};

void WriteSoundDescription(JsonWriter& w, QT::IQTTrack& track, std::int32_t i)
{
    w.BeginObject();
    Field(w, "sampleRate", [&] { return track.GetAudioMediaSampleRate(i); });
    Field(w, "numChannels", [&] { return track.GetAudioMediaNumChannels(i); });
    Field(w, "bitsPerSample", [&] { return track.GetAudioMediaBitsPerSample(i); });
    Field(w, "packedBitsPerSample", [&] { return track.GetAudioMediaPackedBitsPerSample(i); });
    FourCCField(w, "dataFormat", [&] { return track.GetAudioMediaDataFormat(i); });
    FourCCField(w, "rawDataFormat", [&] { return track.GetAudioMediaRawDataFormat(i); });
    Field(w, "uncompressed", [&] { return track.IsAudioMediaUncompressed(i); });
    Guarded(
        w, "channelMap",
        [&] {
            ChannelMapAnswer a;
            a.result = track.GetMultiChannelMap(i, a.map, a.layoutNotUnderstood);
            return a;
        },
        [&](const ChannelMapAnswer& a) {
            w.BeginObject(true);
            w.Key("result");
            w.Bool(a.result);
            w.Key("layoutNotUnderstood");
            w.Bool(a.layoutNotUnderstood);
            w.Key("map");
            // The map is filled only for a 5.1 layout that is understood.
            if (a.result && !a.layoutNotUnderstood) {
                w.BeginArray(true);
                for (const std::int32_t position : a.map) w.Int(position);
                w.EndArray();
            } else {
                w.Null();
            }
            w.EndObject();
        });
    w.EndObject();
}

void WriteRangeMap(JsonWriter& w, const char* key, QT::IQTTrack& track, const DumpContext& context, bool keyByFileOffset)
{
    TableField<QT::AudioSampleRangeMap>(
        w, context.options.tables, key, "ranges",
        [&](QT::AudioSampleRangeMap& map) { return track.MakeAudioSampleRangeMap(map, keyByFileOffset); },
        [](const auto& entry) {
            const QT::AudioSampleRange& r = entry.second;
            return std::tuple(entry.first, r.mSampleCount, r.mOutputPosition, r.mOffsetInFile);
        });
}

} // namespace

void WriteAudioSection(JsonWriter& w, QT::IQTTrack& track, const DumpContext& context)
{
    w.BeginObject();
    Guarded(
        w, "descriptions", [&] { return track.GetSampleDescriptionCount(); },
        [&](std::int32_t count) {
            w.BeginArray();
            for (std::int32_t i = 0; i < count; ++i) WriteSoundDescription(w, track, i);
            w.EndArray();
        });
    WriteRangeMap(w, "rangesByPosition", track, context, false);
    WriteRangeMap(w, "rangesByOffset", track, context, true);
    w.EndObject();
}

} // namespace atomscan_tool
