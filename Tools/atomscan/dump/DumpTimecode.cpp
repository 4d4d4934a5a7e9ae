// The `timecode` section of a timecode track: its counting, the start value
// and where the first sample lies, read from the file as a host does.
#include <optional>

#include "dump/Dump.h"
#include "common/MovieFile.h"

namespace atomscan_tool {

namespace {

struct Location {
    std::uint64_t offset = 0;
    std::uint32_t size = 0;
};

struct MediaInfo {
    QT::TimecodeInfo info;
    QT::String16 name;
};

} // namespace

void WriteTimecodeSection(JsonWriter& w, QT::IQTTrack& track, const DumpContext& context)
{
    w.BeginObject();
    // The operation reads the first description: without one it is not asked.
    std::optional<QT::TimecodeInfo> info;
    Guarded(
        w, "info",
        [&] {
            std::optional<Coded<MediaInfo>> r;
            if (track.GetSampleDescriptionCount() < 1) return r;
            r.emplace();
            r->code = static_cast<std::uint32_t>(track.GetTimecodeMediaInfo(r->value.info, r->value.name));
            if (r->code == 0) info = r->value.info;
            return r;
        },
        [&](const std::optional<Coded<MediaInfo>>& r) {
            if (!r) return w.Null();
            w.BeginObject(true);
            WriteCode(w, r->code);
            if (r->code == 0) {
                const QT::TimecodeInfo& i = r->value.info;
                w.Key("dropFrame");
                w.Bool(i.mDropFrame);
                w.Key("timeScale");
                w.UInt(i.mTimeScale);
                w.Key("ticksPerFrame");
                w.UInt(i.mTicksPerFrame);
                w.Key("numberOfFrames");
                w.UInt(i.mNumberOfFrames);
                w.Key("handleReference");
                w.Bool(i.mHandleReference);
                w.Key("name");
                WriteString16(w, r->value.name);
            }
            w.EndObject();
        });
    CodeField(
        w, "handleValue",
        [&] {
            Coded<std::uint64_t> r;
            r.code = static_cast<std::uint32_t>(track.GetTimecodeHandleValue(r.value));
            return r;
        },
        [&](std::uint64_t value) {
            w.Key("value");
            w.UInt(value);
        });
    std::optional<Location> location;
    CodeField(
        w, "sampleLocation",
        [&] {
            Coded<Location> r;
            r.code = static_cast<std::uint32_t>(track.GetTimecodeMediaSampleLocation(r.value.offset, r.value.size));
            if (r.code == 0) location = r.value;
            return r;
        },
        [&](const Location& l) {
            w.Key("offset");
            w.UInt(l.offset);
            w.Key("size");
            w.UInt(l.size);
        });
    // The one read of media bytes: the first sample, handed back to the track.
    std::optional<std::int64_t> frame;
    Guarded(
        w, "startFrame",
        [&] {
            std::optional<Coded<std::int64_t>> r;
            if (!location || !info || location->size > kLargestTimecodeSample) return r;
            const auto bytes = ReadFileRange(context.absolutePath, location->offset, location->size);
            if (!bytes) return r;
            const Pelt::BinaryData data(bytes->empty() ? nullptr : bytes->data(), bytes->size());
            r.emplace();
            r->code = static_cast<std::uint32_t>(track.GetTimecodeFrameValue(data, *info, r->value));
            if (r->code == 0) frame = r->value;
            return r;
        },
        [&](const std::optional<Coded<std::int64_t>>& r) {
            if (!r) return w.Null();
            w.BeginObject(true);
            WriteCode(w, r->code);
            if (r->code == 0) {
                w.Key("value");
                w.Int(r->value);
            }
            w.EndObject();
        });
    w.Key("startTimecode");
    const std::optional<std::string> text =
        frame && info ? TimecodeText(*frame, info->mNumberOfFrames, info->mDropFrame) : std::nullopt;
    if (text) w.String(*text);
    else w.Null();
    w.EndObject();
}

} // namespace atomscan_tool
