// The `video` section of a video track: image descriptions, the frame
// structure and the two frame tables.
#include <array>
#include <vector>

#include "dump/Dump.h"

namespace atomscan_tool {

namespace {

// {"code", "data"}: an image description as bytes, in the form `ask` gives.
template <typename Ask>
void DescriptionBytesField(JsonWriter& w, const char* key, Ask&& ask)
{
    CodeField(
        w, key,
        [&] {
            Coded<Pelt::BinaryData> r;
            r.code = ask(r.value);
            return r;
        },
        [&](const Pelt::BinaryData& data) {
            w.Key("data");
            WriteHex(w, data);
        });
}

void WriteImageDescription(JsonWriter& w, QT::IQTTrack& track, std::int32_t i)
{
    w.BeginObject();
    FourCCField(w, "compression", [&] { return track.GetVideoMediaCompressionFourCC(i); });
    FourCCField(w, "vendor", [&] { return track.GetVideoMediaVendorFourCC(i); });
    Field(w, "width", [&] { return track.GetVideoMediaWidth(i); });
    Field(w, "height", [&] { return track.GetVideoMediaHeight(i); });
    Field(w, "depth", [&] { return track.GetVideoMediaDepth(i); });
    CodeField(
        w, "codecName",
        [&] {
            Coded<QT::String16> r;
            r.code = track.GetVideoMediaCodecName(i, r.value);
            return r;
        },
        [&](const QT::String16& name) {
            w.Key("value");
            WriteString16(w, name);
        });
    CodedUIntsField<2>(w, "quality", {"temporal", "spatial"},
                          [&](auto& v) { return track.GetVideoMediaQuality(i, v[0], v[1]); });
    CodeField(
        w, "cleanAperture",
        [&] {
            Coded<std::array<std::uint32_t, 8>> r;
            auto& v = r.value;
            r.code = track.GetVideoMediaCleanAperture(i, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]);
            return r;
        },
        [&](const std::array<std::uint32_t, 8>& values) {
            w.Key("values");
            w.BeginArray(true);
            for (const std::uint32_t v : values) w.UInt(v);
            w.EndArray();
        });
    CodedUIntsField<2>(w, "pixelAspect", {"horizontal", "vertical"},
                          [&](auto& v) { return track.GetVideoMediaPixelAspect(i, v[0], v[1]); });
    // A refused ordering comes after the count has been written: the count
    // shows whenever it was (1 and 2 are the only values it takes).
    Guarded(
        w, "fieldInfo",
        [&] {
            Coded<std::pair<std::uint32_t, std::uint32_t>> r;
            r.code = track.GetVideoMediaFieldInfo(i, r.value.first, r.value.second);
            return r;
        },
        [&](const Coded<std::pair<std::uint32_t, std::uint32_t>>& r) {
            w.BeginObject(true);
            WriteCode(w, r.code);
            if (r.code == 0 || r.value.first != 0) {
                w.Key("count");
                w.UInt(r.value.first);
            }
            if (r.code == 0) {
                w.Key("ordering");
                w.UInt(r.value.second);
            }
            w.EndObject();
        });
    CodedUIntsField<3>(w, "colorInfo", {"primaries", "transfer", "matrix"},
                          [&](auto& v) { return track.GetVideoMediaColorInfo(i, v[0], v[1], v[2]); });
    DescriptionBytesField(w, "imageDescription", [&](Pelt::BinaryData& data) {
        return track.GetVideoMediaImageDescriptionAsBinary(i, data);
    });
    DescriptionBytesField(w, "platformImageDescription", [&](Pelt::BinaryData& data) {
        return track.GetVideoMediaImageDescriptionAsPlatformBinary(i, data);
    });
    w.EndObject();
}

void WriteSampleTable(JsonWriter& w, const char* key, QT::IQTTrack& track, const DumpContext& context,
                      bool ignoreEdits)
{
    TableField<std::vector<QT::VideoSampleRecord>>(
        w, context.options.tables, key, "records",
        [&](std::vector<QT::VideoSampleRecord>& table) {
            return track.MakeFullVideoSampleTable(false, ignoreEdits, table);
        },
        [](const QT::VideoSampleRecord& r) { return std::tuple(r.mOffset, r.mSize, r.mDuration, r.mTime, r.mIsKeyFrame); });
}

} // namespace

void WriteVideoSection(JsonWriter& w, QT::IQTTrack& track, const DumpContext& context)
{
    w.BeginObject();
    Guarded(
        w, "descriptions", [&] { return track.GetSampleDescriptionCount(); },
        [&](std::int32_t count) {
            w.BeginArray();
            for (std::int32_t i = 0; i < count; ++i) WriteImageDescription(w, track, i);
            w.EndArray();
        });
    w.Key("allImageDescriptionsEquivalent");
    w.BeginObject(true);
    Field(w, "exactSize", [&] { return track.GetAllImageDescriptionsEquivalent(false); });
    Field(w, "ignoringSize", [&] { return track.GetAllImageDescriptionsEquivalent(true); });
    w.EndObject();
    DimensionsField(w, "cleanApertureDimensions", [&](float& width, float& height) {
        return track.GetTrackCleanApertureDimensions(width, height);
    });
    Field(w, "containsDeltaFrames", [&] { return track.VideoTrackContainsDeltaFrames(); });
    bool temporal = false;
    Field(w, "hasTemporalReferenceData", [&] { return temporal = track.VideoTrackHasTemporalReferenceData(); });
    Field(w, "hasEarlierDisplayKeyFrames", [&] { return track.VideoTrackHasEarlierDisplayKeyFrames(); });
    WriteSampleTable(w, "sampleTable", track, context, false);
    WriteSampleTable(w, "mediaSampleTable", track, context, true);
    TableField<std::vector<QT::VideoTemporalReference>>(
        w, context.options.tables && temporal, "temporalReferences", "records",
        [&](std::vector<QT::VideoTemporalReference>& table) { return track.MakeVideoTemporalReferenceTable(table); },
        [](const QT::VideoTemporalReference& r) {
            return std::tuple(r.mDecodeOffset, r.mEarlierReferenceOffset, r.mLaterReferenceOffset, r.mDependencyFlags);
        });
    w.EndObject();
}

} // namespace atomscan_tool
