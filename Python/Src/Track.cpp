// `Track`: the track core, its data references and the descriptions of its media kind.
#include <pybind11/stl.h>

#include <array>
#include <optional>

#include "Binding.h"
#include "common/MovieFile.h"
#include "common/Text.h"

namespace atomscan_python {

namespace {

using Track = py::class_<TrackObject, std::shared_ptr<TrackObject>>;

// A track operation without arguments, as a read-only property.
template <typename Result>
auto TrackGetter(Result (QT::IQTTrack::*operation)())
{
    return [operation](const TrackObject& self) { return Unlocked([&] { return ((*self.track).*operation)(); }); };
}

std::int32_t DescriptionCount(const TrackObject& self)
{
    return Unlocked([&] { return self.track->GetSampleDescriptionCount(); });
}

template <typename T>
py::object OrNone(const std::optional<T>& value)
{
    return value ? py::cast(*value) : py::none();
}

template <typename T, std::size_t N>
py::object OrNone(const std::optional<std::array<T, N>>& values)
{
    return values ? py::object(py::tuple(py::cast(*values))) : py::object(py::none());
}

// (width, height) of a track aperture atom, or None without it.
auto Aperture(bool (QT::IQTTrack::*operation)(float&, float&))
{
    return [operation](const TrackObject& self) {
        float width = 0, height = 0;
        if (!Unlocked([&] { return ((*self.track).*operation)(width, height); })) return py::object(py::none());
        return py::object(py::make_tuple(width, height));
    };
}

struct VideoDescription {
    QT::FourCC compression = 0, vendor = 0;
    std::int32_t width = 0, height = 0;
    std::uint32_t depth = 0;
    std::optional<std::string> codecName;
    std::optional<std::array<std::uint32_t, 2>> quality, pixelAspect, fieldInfo;
    std::optional<std::array<std::uint32_t, 3>> colorInfo;
    std::optional<std::array<std::uint32_t, 8>> cleanAperture;
};

VideoDescription ReadVideoDescription(QT::IQTTrack& t, std::int32_t i)
{
    VideoDescription d;
    d.compression = t.GetVideoMediaCompressionFourCC(i);
    d.vendor = t.GetVideoMediaVendorFourCC(i);
    d.width = t.GetVideoMediaWidth(i);
    d.height = t.GetVideoMediaHeight(i);
    d.depth = t.GetVideoMediaDepth(i);
    QT::String16 name;
    if (t.GetVideoMediaCodecName(i, name) == 0) d.codecName = ToUtf8(name);
    std::array<std::uint32_t, 8> v{};
    if (t.GetVideoMediaQuality(i, v[0], v[1]) == 0) d.quality = {v[0], v[1]};
    if (t.GetVideoMediaPixelAspect(i, v[0], v[1]) == 0) d.pixelAspect = {v[0], v[1]};
    if (t.GetVideoMediaFieldInfo(i, v[0], v[1]) == 0) d.fieldInfo = {v[0], v[1]};
    if (t.GetVideoMediaColorInfo(i, v[0], v[1], v[2]) == 0) d.colorInfo = {v[0], v[1], v[2]};
    if (t.GetVideoMediaCleanAperture(i, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]) == 0) d.cleanAperture = v;
    return d;
}

py::list VideoDescriptions(const TrackObject& self)
{
    RequireKind(self, QT::kVideoMediaType, "video_descriptions");
    const auto all = Unlocked([&] {
        std::vector<VideoDescription> found;
        for (std::int32_t i = 0, n = self.track->GetSampleDescriptionCount(); i < n; ++i)
            found.push_back(ReadVideoDescription(*self.track, i));
        return found;
    });
    py::list list;
    for (const VideoDescription& d : all) {
        list.append(py::dict(py::arg("compression") = FourCCText(d.compression),
                             py::arg("vendor") = FourCCText(d.vendor), py::arg("width") = d.width,
                             py::arg("height") = d.height, py::arg("depth") = d.depth,
                             py::arg("codec_name") = OrNone(d.codecName), py::arg("quality") = OrNone(d.quality),
                             py::arg("clean_aperture") = OrNone(d.cleanAperture),
                             py::arg("pixel_aspect") = OrNone(d.pixelAspect),
                             py::arg("field_info") = OrNone(d.fieldInfo),
                             py::arg("color_info") = OrNone(d.colorInfo)));
    }
    return list;
}

py::object ImageDescription(const TrackObject& self, std::int32_t index, bool platform)
{
    RequireKind(self, QT::kVideoMediaType, "image_description");
    Pelt::BinaryData data;
    const QT::ResultCode rc = Unlocked([&] {
        return platform ? self.track->GetVideoMediaImageDescriptionAsPlatformBinary(index, data)
                        : self.track->GetVideoMediaImageDescriptionAsBinary(index, data);
    });
    return rc == 0 ? py::object(ToBytes(data)) : py::object(py::none());
}

py::object ImageDescriptionExtension(const TrackObject& self, const py::handle& type, std::int32_t index)
{
    RequireKind(self, QT::kVideoMediaType, "image_description_extension");
    const QT::FourCC code = ToFourCC(type);
    Pelt::BinaryData data;
    const QT::ResultCode rc =
        Unlocked([&] { return self.track->GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(index, code, data); });
    return rc == 0 ? py::object(ToBytes(data)) : py::object(py::none());
}

py::list AudioDescriptions(const TrackObject& self)
{
    RequireKind(self, QT::kAudioMediaType, "audio_descriptions");
    struct Sound {
        std::uint32_t rate, channels, bits, packedBits;
        QT::FourCC format, rawFormat;
        bool uncompressed;
    };
    const auto all = Unlocked([&] {
        std::vector<Sound> found;
        QT::IQTTrack& t = *self.track;
        for (std::int32_t i = 0, n = t.GetSampleDescriptionCount(); i < n; ++i)
            found.push_back({t.GetAudioMediaSampleRate(i), t.GetAudioMediaNumChannels(i), t.GetAudioMediaBitsPerSample(i),
                             t.GetAudioMediaPackedBitsPerSample(i), t.GetAudioMediaDataFormat(i),
                             t.GetAudioMediaRawDataFormat(i), t.IsAudioMediaUncompressed(i)});
        return found;
    });
    py::list list;
    for (const Sound& s : all)
        list.append(py::dict(py::arg("sample_rate") = s.rate, py::arg("channels") = s.channels,
                             py::arg("bits_per_sample") = s.bits, py::arg("packed_bits_per_sample") = s.packedBits,
                             py::arg("data_format") = FourCCText(s.format),
                             py::arg("raw_data_format") = FourCCText(s.rawFormat),
                             py::arg("uncompressed") = s.uncompressed));
    return list;
}

py::object ChannelMap(const TrackObject& self, std::int32_t index)
{
    RequireKind(self, QT::kAudioMediaType, "channel_map");
    QT::ChannelOrderMap map;
    bool notUnderstood = false;
    if (!Unlocked([&] { return self.track->GetMultiChannelMap(index, map, notUnderstood); }) || notUnderstood)
        return py::none();
    return py::cast(map);
}

// The track's timecode: its counting, start value and the first sample, read from the file.
py::dict Timecode(const TrackObject& self)
{
    RequireKind(self, QT::kTimecodeMediaType, "timecode");
    struct Answer {
        std::optional<QT::TimecodeInfo> info;
        std::string name;
        std::optional<std::uint64_t> handleValue, offset;
        std::uint32_t size = 0;
        std::optional<std::int64_t> frame;
    };
    const Answer a = Unlocked([&] {
        Answer r;
        QT::IQTTrack& t = *self.track;
        QT::TimecodeInfo info;
        QT::String16 name;
        if (t.GetSampleDescriptionCount() >= 1 && t.GetTimecodeMediaInfo(info, name) == 0) {
            r.info = info;
            r.name = ToUtf8(name);
        }
        std::uint64_t value = 0;
        if (t.GetTimecodeHandleValue(value) == 0) r.handleValue = value;
        if (t.GetTimecodeMediaSampleLocation(value, r.size) == 0) r.offset = value;
        if (!r.info || !r.offset || r.size > atomscan_tool::kLargestTimecodeSample) return r;
        const auto bytes = atomscan_tool::ReadFileRange(self.moviePath->utf8, *r.offset, r.size);
        if (!bytes) return r;
        const Pelt::BinaryData data(bytes->empty() ? nullptr : bytes->data(), bytes->size());
        std::int64_t frame = 0;
        if (t.GetTimecodeFrameValue(data, *r.info, frame) == 0) r.frame = frame;
        return r;
    });
    py::dict d;
    const QT::TimecodeInfo i = a.info.value_or(QT::TimecodeInfo{});
    d["drop_frame"] = a.info ? py::cast(i.mDropFrame) : py::none();
    d["time_scale"] = a.info ? py::cast(i.mTimeScale) : py::none();
    d["ticks_per_frame"] = a.info ? py::cast(i.mTicksPerFrame) : py::none();
    d["frames_per_second"] = a.info ? py::cast(i.mNumberOfFrames) : py::none();
    d["handle_reference"] = a.info ? py::cast(i.mHandleReference) : py::none();
    d["name"] = a.info ? py::cast(a.name) : py::none();
    d["handle_value"] = OrNone(a.handleValue);
    d["sample_location"] = a.offset ? py::object(py::make_tuple(*a.offset, a.size)) : py::object(py::none());
    d["start_frame"] = OrNone(a.frame);
    d["start_timecode"] =
        a.frame ? OrNone(atomscan_tool::TimecodeText(*a.frame, i.mNumberOfFrames, i.mDropFrame)) : py::none();
    return d;
}

py::object TimecodeFrameValue(const TrackObject& self, const py::bytes& sample)
{
    RequireKind(self, QT::kTimecodeMediaType, "timecode_frame_value");
    const std::string bytes = sample;
    std::optional<std::int64_t> frame = Unlocked([&]() -> std::optional<std::int64_t> {
        QT::TimecodeInfo info;
        QT::String16 name;
        if (self.track->GetSampleDescriptionCount() < 1 || self.track->GetTimecodeMediaInfo(info, name) != 0)
            return std::nullopt;
        const Pelt::BinaryData data(bytes.empty() ? nullptr : bytes.data(), bytes.size());
        std::int64_t value = 0;
        if (self.track->GetTimecodeFrameValue(data, info, value) != 0) return std::nullopt;
        return value;
    });
    return OrNone(frame);
}

py::object CaptionFormat(const TrackObject& self)
{
    const QT::FourCC format = Unlocked([&] {
        return self.track->GetSampleDescriptionCount() < 1 ? QT::kUnknownMediaType
                                                            : self.track->GetCaptionMediaFormat(0);
    });
    return format == QT::kUnknownMediaType ? py::object(py::none()) : py::object(FourCCText(format));
}

py::list TrackExternalReferences(const TrackObject& self)
{
    const auto refs = Unlocked([&] {
        QT::ExternalReferenceMap map;
        self.track->GetTrackExternalReferences(map);
        std::vector<std::pair<QT::ExtRefData, bool>> found;
        for (const auto& [key, ref] : map)
            found.emplace_back(ref, QT::ValidateExternalReferences(self.moviePath->text16, {{key, ref}}));
        return found;
    });
    py::list list;
    for (const auto& [ref, found] : refs) list.append(ExternalReference(ref, found));
    return list;
}

} // namespace

void BindTrack(py::module_& m)
{
    Track track(m, "Track", R"(One track of a movie.

The description getters and tables of a media kind are allowed only on a track of
that kind (TypeError otherwise): video for media_type 'vide', audio for 'soun',
timecode for 'tmcd'; captions for a track whose caption_format is not None.
A sample description index must be below sample_description_count: the library
refuses others (ContractError). A table that the library cannot build raises
TableError with the result code.)");
    track.def_property_readonly("index", TrackGetter(&QT::IQTTrack::GetTrackIndex))
        .def_property_readonly("media_type", [](const TrackObject& self) { return FourCCText(self.mediaType); },
                               "'vide', 'soun', 'tmcd' (also for tc64), 'text', 'clcp' or 'unkn'.")
        .def_property_readonly("enabled", TrackGetter(&QT::IQTTrack::IsTrackEnabled))
        .def_property_readonly(
            "dimensions",
            [](const TrackObject& self) {
                QT::QTRect r;
                Unlocked([&] { self.track->GetTrackDimensions(r); });
                return py::make_tuple(r.left, r.top, r.right, r.bottom);
            },
            "(0, 0, width, height) from the track header.")
        .def_property_readonly("duration", TrackGetter(&QT::IQTTrack::GetTrackDuration),
                               "In the movie's time scale, as stored.")
        .def_property_readonly("media_time_scale", TrackGetter(&QT::IQTTrack::GetMediaTimeScale))
        .def_property_readonly("duration_in_media_time_scale",
                               TrackGetter(&QT::IQTTrack::GetTrackDurationInMediaTimeScale))
        .def_property_readonly("edit_duration", TrackGetter(&QT::IQTTrack::GetEditDuration),
                               "The edit's length in the movie's time scale.")
        .def_property_readonly("edit_media_time", TrackGetter(&QT::IQTTrack::GetEditMediaTime),
                               "The media time at which the single edit starts.")
        .def_property_readonly("edit_sample_count", TrackGetter(&QT::IQTTrack::GetEditSampleCount),
                               "Samples that the edit covers.")
        .def_property_readonly("trimmed", TrackGetter(&QT::IQTTrack::IsTrackTrimmed),
                               "Whether the edit shows less than the whole media, or is not simple.")
        .def(
            "has_simple_edit_list",
            [](const TrackObject& self, bool unitRate) {
                return Unlocked([&] { return self.track->HasSimpleEditList(unitRate); });
            },
            py::arg("require_unit_rate") = false, "No edit, or one edit (of rate 1.0 if `require_unit_rate`).")
        .def_property_readonly("sample_description_count", &DescriptionCount)
        .def_property_readonly("all_sample_descriptions_equivalent",
                               TrackGetter(&QT::IQTTrack::GetAllSampleDescriptionsEquivalent))
        .def_property_readonly(
            "rotation",
            [](const TrackObject& self) {
                const auto [rightAngle, turns] = Unlocked([&] {
                    return std::pair(self.track->IsTrackMatrixRightAngle(), self.track->GetTrackMatrixRotation());
                });
                return rightAngle ? py::object(py::int_(turns)) : py::object(py::none());
            },
            "Quarter turns (0 to 3) of the track matrix, or None for a matrix that is no right angle.")
        .def_property_readonly("matrix_identity", TrackGetter(&QT::IQTTrack::IsTrackMatrixIdentity))
        .def_property_readonly("production_aperture_dimensions",
                               Aperture(&QT::IQTTrack::GetTrackProductionApertureDimensions),
                               "(width, height) from 'prof', or None.")
        .def_property_readonly("encoded_pixels_dimensions", Aperture(&QT::IQTTrack::GetTrackEncodedPixelsDimensions),
                               "(width, height) from 'enof', or None.")
        .def(
            "user_data_item",
            [](const TrackObject& self, const py::handle& type) {
                const QT::FourCC code = ToFourCC(type);
                Pelt::BinaryData data;
                if (!Unlocked([&] { return self.track->GetTrackUserDataItem(code, data); })) return py::object(py::none());
                return py::object(ToBytes(data));
            },
            py::arg("type"), "The bytes of the track's first user data item of `type`, or None.")
        .def_property_readonly("self_contained", TrackGetter(&QT::IQTTrack::IsDataReferenceSelfContained),
                               "Whether the one data reference says the media is in this file.")
        .def_property_readonly("single_data_reference", TrackGetter(&QT::IQTTrack::HasSingleDataReference))
        .def_property_readonly(
            "data_reference_type",
            [](const TrackObject& self) { return FourCCText(Unlocked([&] { return self.track->GetDataReferenceType(); })); },
            "The type of the one data reference; '?\?\?\?' unless there is exactly one.")
        .def_property_readonly(
            "single_external_path",
            [](const TrackObject& self) {
                QT::String16 path;
                if (!Unlocked([&] { return self.track->GetSingleExternalReferencePath(&path); }))
                    return py::object(py::none());
                return py::object(py::str(ToUtf8(path)));
            },
            "The path of the one external file, or None.")
        .def("external_references", &TrackExternalReferences,
             "The track's external files, each an ExternalReference with whether it can be found.")
        // Video.
        .def_property_readonly("video_descriptions", &VideoDescriptions,
                               "One dict per image description: compression, vendor, width, height, depth,\n"
                               "codec_name, quality, clean_aperture, pixel_aspect, field_info, color_info\n"
                               "(an item the description lacks, or holds in another form, is None).")
        .def("image_description", &ImageDescription, py::arg("index") = 0, py::arg("platform") = false,
             "The whole image description as stored (with `platform`, every number little-endian), or None.")
        .def("image_description_extension", &ImageDescriptionExtension, py::arg("type"), py::arg("index") = 0,
             "The payload of the description's first extension atom of `type`, or None.")
        .def(
            "all_image_descriptions_equivalent",
            [](const TrackObject& self, bool ignoreSize) {
                RequireKind(self, QT::kVideoMediaType, "all_image_descriptions_equivalent");
                return Unlocked([&] { return self.track->GetAllImageDescriptionsEquivalent(ignoreSize); });
            },
            py::arg("ignore_size") = false)
        .def_property_readonly(
            "clean_aperture_dimensions",
            [](const TrackObject& self) {
                RequireKind(self, QT::kVideoMediaType, "clean_aperture_dimensions");
                return Aperture(&QT::IQTTrack::GetTrackCleanApertureDimensions)(self);
            },
            "(width, height) from 'clef', or None.")
        .def_property_readonly(
            "contains_delta_frames",
            [](const TrackObject& self) {
                RequireKind(self, QT::kVideoMediaType, "contains_delta_frames");
                return Unlocked([&] { return self.track->VideoTrackContainsDeltaFrames(); });
            },
            "Whether some frames are no key frames.")
        .def_property_readonly("has_temporal_reference_data",
                               TrackGetter(&QT::IQTTrack::VideoTrackHasTemporalReferenceData),
                               "Whether temporal_references() can be built ('sdtp' and 'ctts' present).")
        .def_property_readonly("has_earlier_display_key_frames",
                               TrackGetter(&QT::IQTTrack::VideoTrackHasEarlierDisplayKeyFrames))
        // Sound.
        .def_property_readonly("audio_descriptions", &AudioDescriptions,
                               "One dict per sound description: sample_rate, channels, bits_per_sample,\n"
                               "packed_bits_per_sample, data_format, raw_data_format, uncompressed.")
        .def("channel_map", &ChannelMap, py::arg("index") = 0,
             "Position in the file's channel order of L, R, C, LFE, Ls, Rs (-1 for a role the file\n"
             "lacks), from the description's 'chan'; None without a 'chan' in a layout the library knows.")
        // Timecode.
        .def("timecode", &Timecode,
             "A dict: drop_frame, time_scale, ticks_per_frame, frames_per_second, handle_reference,\n"
             "name, handle_value, sample_location (offset, size), start_frame (read from the file)\n"
             "and start_timecode ('HH:MM:SS:FF', or 'HH:MM:SS;FF' with drop frame); None where absent.")
        .def("timecode_frame_value", &TimecodeFrameValue, py::arg("sample"),
             "The frame number that a timecode sample's bytes hold, moved on by the first edit, or None.")
        // Captions.
        .def_property_readonly("caption_format", &CaptionFormat, "'c608', 'c708', or None.")
        .def_property_readonly("caption_frame_duration", TrackGetter(&QT::IQTTrack::GetCaptionFrameDuration),
                               "Media time units of one caption frame.")
        .def("__repr__", [](const TrackObject& self) {
            return "<atomscan.Track " + std::to_string(Unlocked([&] { return self.track->GetTrackIndex(); })) + " '" +
                   FourCCText(self.mediaType).cast<std::string>() + "'>";
        });
    track.attr("__module__") = "atomscan";
    BindTables(m, track);
}

} // namespace atomscan_python
