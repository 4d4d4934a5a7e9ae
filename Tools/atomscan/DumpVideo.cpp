// The `video` section of a video track: image descriptions, the frame
// structure and the two frame tables.
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "Dump.h"

namespace atomscan_tool {

namespace {

void WriteBinaryField(JsonWriter& w, const char* key, const Pelt::BinaryData& data)
{
    w.Key(key);
    WriteHex(w, data);
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
    CodeField(
        w, "quality",
        [&] {
            Coded<std::pair<std::uint32_t, std::uint32_t>> r;
            r.code = track.GetVideoMediaQuality(i, r.value.first, r.value.second);
            return r;
        },
        [&](const std::pair<std::uint32_t, std::uint32_t>& q) {
            w.Key("temporal");
            w.UInt(q.first);
            w.Key("spatial");
            w.UInt(q.second);
        });
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
    CodeField(
        w, "pixelAspect",
        [&] {
            Coded<std::pair<std::uint32_t, std::uint32_t>> r;
            r.code = track.GetVideoMediaPixelAspect(i, r.value.first, r.value.second);
            return r;
        },
        [&](const std::pair<std::uint32_t, std::uint32_t>& a) {
            w.Key("horizontal");
            w.UInt(a.first);
            w.Key("vertical");
            w.UInt(a.second);
        });
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
    CodeField(
        w, "colorInfo",
        [&] {
            Coded<std::array<std::uint32_t, 3>> r;
            r.code = track.GetVideoMediaColorInfo(i, r.value[0], r.value[1], r.value[2]);
            return r;
        },
        [&](const std::array<std::uint32_t, 3>& c) {
            w.Key("primaries");
            w.UInt(c[0]);
            w.Key("transfer");
            w.UInt(c[1]);
            w.Key("matrix");
            w.UInt(c[2]);
        });
    CodeField(
        w, "imageDescription",
        [&] {
            Coded<Pelt::BinaryData> r;
            r.code = track.GetVideoMediaImageDescriptionAsBinary(i, r.value);
            return r;
        },
        [&](const Pelt::BinaryData& data) { WriteBinaryField(w, "data", data); });
    CodeField(
        w, "platformImageDescription",
        [&] {
            Coded<Pelt::BinaryData> r;
            r.code = track.GetVideoMediaImageDescriptionAsPlatformBinary(i, r.value);
            return r;
        },
        [&](const Pelt::BinaryData& data) { WriteBinaryField(w, "data", data); });
    w.EndObject();
}

void WriteSampleTable(JsonWriter& w, const char* key, QT::IQTTrack& track, bool ignoreEdits)
{
    TableField<std::vector<QT::VideoSampleRecord>>(
        w, key, "records",
        [&](std::vector<QT::VideoSampleRecord>& table) {
            return track.MakeFullVideoSampleTable(false, ignoreEdits, table);
        },
        [&](const std::vector<QT::VideoSampleRecord>& table) {
            for (const QT::VideoSampleRecord& r : table) {
                Row(w, [&] {
                    w.UInt(r.mOffset);
                    w.UInt(r.mSize);
                    w.UInt(r.mDuration);
                    w.UInt(r.mTime);
                    w.Bool(r.mIsKeyFrame);
                });
            }
        });
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
    Guarded(
        w, "cleanApertureDimensions",
        [&] {
            std::pair<float, float> size;
            return track.GetTrackCleanApertureDimensions(size.first, size.second) ? std::optional(size)
                                                                                  : std::nullopt;
        },
        [&](const std::optional<std::pair<float, float>>& size) { WriteDimensions(w, size); });
    Field(w, "containsDeltaFrames", [&] { return track.VideoTrackContainsDeltaFrames(); });
    bool temporal = false;
    Field(w, "hasTemporalReferenceData", [&] { return temporal = track.VideoTrackHasTemporalReferenceData(); });
    Field(w, "hasEarlierDisplayKeyFrames", [&] { return track.VideoTrackHasEarlierDisplayKeyFrames(); });
    const bool tables = context.options.tables;
    if (tables) {
        WriteSampleTable(w, "sampleTable", track, false);
        WriteSampleTable(w, "mediaSampleTable", track, true);
    } else {
        NullField(w, "sampleTable");
        NullField(w, "mediaSampleTable");
    }
    if (tables && temporal) {
        TableField<std::vector<QT::VideoTemporalReference>>(
            w, "temporalReferences", "records",
            [&](std::vector<QT::VideoTemporalReference>& table) {
                return track.MakeVideoTemporalReferenceTable(table);
            },
            [&](const std::vector<QT::VideoTemporalReference>& table) {
                for (const QT::VideoTemporalReference& r : table) {
                    Row(w, [&] {
                        w.Int(r.mDecodeOffset);
                        w.Int(r.mEarlierReferenceOffset);
                        w.Int(r.mLaterReferenceOffset);
                        w.UInt(r.mDependencyFlags);
                    });
                }
            });
    } else {
        NullField(w, "temporalReferences");
    }
    w.EndObject();
}

} // namespace atomscan_tool
