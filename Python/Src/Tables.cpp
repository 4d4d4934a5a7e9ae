// The tables of a track as NumPy structured arrays. The frame and temporal
// reference tables are the library's own vectors, handed to NumPy without a
// copy: a capsule owns the vector and frees it with the last array that uses it.
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <time.h>

#include <cstddef>
#include <optional>

#include "Binding.h"

namespace atomscan_python {

namespace {

// An audio range with its key, and a caption record with its key: the rows of
// the two tables that the library gives as maps.
struct AudioRangeRow {
    std::uint64_t key;
    QT::AudioSampleRange range;
};
struct CaptionRow {
    std::uint64_t key;
    QT::CaptionSampleRecord record;
};

struct Field {
    const char* name;
    const char* format;
    std::size_t offset;
};

py::dtype MakeType(std::initializer_list<Field> fields, std::size_t itemSize)
{
    py::list names, formats, offsets;
    for (const Field& f : fields) {
        names.append(f.name);
        formats.append(f.format);
        offsets.append(f.offset);
    }
    return py::dtype(names, formats, offsets, static_cast<py::ssize_t>(itemSize));
}

// The record types, made at import and kept as Python keeps the module.
struct Types {
    py::dtype frame, temporal, audioRange, caption;
};
Types* gTypes = nullptr;

Types* MakeTypes()
{
    using V = QT::VideoSampleRecord;
    using T = QT::VideoTemporalReference;
    static_assert(sizeof(bool) == 1 && sizeof(V) == 24 && sizeof(T) == 6);
    auto* types = new Types;
    types->frame = MakeType({{"offset", "u8", offsetof(V, mOffset)},
                             {"size", "u4", offsetof(V, mSize)},
                             {"duration", "u4", offsetof(V, mDuration)},
                             {"time", "u4", offsetof(V, mTime)},
                             {"key", "?", offsetof(V, mIsKeyFrame)}},
                            sizeof(V));
    types->temporal = MakeType({{"decode_offset", "i1", offsetof(T, mDecodeOffset)},
                                {"earlier_reference_offset", "i1", offsetof(T, mEarlierReferenceOffset)},
                                {"later_reference_offset", "i1", offsetof(T, mLaterReferenceOffset)},
                                {"dependency_flags", "u2", offsetof(T, mDependencyFlags)}},
                               sizeof(T));
    types->audioRange = MakeType({{"key", "u8", offsetof(AudioRangeRow, key)},
                                  {"sample_count", "u8", offsetof(AudioRangeRow, range.mSampleCount)},
                                  {"output_position", "u8", offsetof(AudioRangeRow, range.mOutputPosition)},
                                  {"offset", "u8", offsetof(AudioRangeRow, range.mOffsetInFile)}},
                                 sizeof(AudioRangeRow));
    types->caption = MakeType({{"key", "u8", offsetof(CaptionRow, key)},
                               {"time", "u8", offsetof(CaptionRow, record.mTime)},
                               {"offset", "u8", offsetof(CaptionRow, record.mOffset)},
                               {"length", "u4", offsetof(CaptionRow, record.mLength)},
                               {"has_second", "?", offsetof(CaptionRow, record.mHasSecondData)},
                               {"second_offset", "u8", offsetof(CaptionRow, record.mSecondOffset)},
                               {"second_length", "u4", offsetof(CaptionRow, record.mSecondLength)}},
                              sizeof(CaptionRow));
    return types;
}

// The rows as a one-dimensional array over the vector's own buffer.
template <typename Row>
py::array Hand(std::unique_ptr<std::vector<Row>> rows, const py::dtype& type)
{
    if (rows->empty()) return py::array(type, std::vector<py::ssize_t>{0});
    std::vector<Row>* raw = rows.get();
    py::capsule owner(raw, [](void* p) { delete static_cast<std::vector<Row>*>(p); });
    rows.release();
    return py::array(type, {static_cast<py::ssize_t>(raw->size())}, {static_cast<py::ssize_t>(sizeof(Row))},
                     raw->data(), owner);
}

py::array Frames(const TrackObject& self, bool sortByTime, bool ignoreEdits, std::optional<std::uint32_t> maxEntries)
{
    RequireKind(self, QT::kVideoMediaType, "frames()");
    auto table = std::make_unique<std::vector<QT::VideoSampleRecord>>();
    const QT::ResultCode rc = Unlocked([&] {
        return maxEntries ? self.track->MakeVideoSampleTable(sortByTime, ignoreEdits, *maxEntries, *table)
                          : self.track->MakeFullVideoSampleTable(sortByTime, ignoreEdits, *table);
    });
    CheckTable(rc, "frames()");
    return Hand(std::move(table), gTypes->frame);
}

py::array TemporalReferences(const TrackObject& self)
{
    RequireKind(self, QT::kVideoMediaType, "temporal_references()");
    auto table = std::make_unique<std::vector<QT::VideoTemporalReference>>();
    CheckTable(Unlocked([&] { return self.track->MakeVideoTemporalReferenceTable(*table); }),
               "temporal_references()");
    return Hand(std::move(table), gTypes->temporal);
}

py::array AudioRanges(const TrackObject& self, bool keyByOffset)
{
    RequireKind(self, QT::kAudioMediaType, "audio_ranges()");
    auto rows = std::make_unique<std::vector<AudioRangeRow>>();
    CheckTable(Unlocked([&] {
                   QT::AudioSampleRangeMap map;
                   const QT::ResultCode rc = self.track->MakeAudioSampleRangeMap(map, keyByOffset);
                   rows->reserve(map.size());
                   for (const auto& [key, range] : map) rows->push_back({key, range});
                   return rc;
               }),
               "audio_ranges()");
    return Hand(std::move(rows), gTypes->audioRange);
}

py::array Captions(const TrackObject& self, bool keyByOffset)
{
    const QT::FourCC format = Unlocked([&] {
        return self.track->GetSampleDescriptionCount() < 1 ? QT::kUnknownMediaType
                                                            : self.track->GetCaptionMediaFormat(0);
    });
    if (format == QT::kUnknownMediaType) throw py::type_error("captions() needs a track of c608 or c708 captions");
    auto rows = std::make_unique<std::vector<CaptionRow>>();
    CheckTable(Unlocked([&] {
                   QT::CaptionSampleMap map;
                   const QT::ResultCode rc = self.track->MakeCaptionSampleTable(self.moviePath->text16, map, keyByOffset);
                   rows->reserve(map.size());
                   for (const auto& [key, record] : map) rows->push_back({key, record});
                   return rc;
               }),
               "captions()");
    return Hand(std::move(rows), gTypes->caption);
}

double ThreadSeconds()
{
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// CPU seconds of this thread for each of `repeat` calls of the C++ operation behind
// frames(), each into a new vector as frames() makes it: what the Python call is
// measured against (with time.thread_time()).
std::vector<double> TimeFullVideoSampleTable(const TrackObject& self, bool sortByTime, bool ignoreEdits, int repeat)
{
    RequireKind(self, QT::kVideoMediaType, "_time_full_video_sample_table");
    return Unlocked([&] {
        std::vector<double> seconds;
        for (int i = 0; i < repeat; ++i) {
            auto table = std::make_unique<std::vector<QT::VideoSampleRecord>>();
            const double start = ThreadSeconds();
            self.track->MakeFullVideoSampleTable(sortByTime, ignoreEdits, *table);
            seconds.push_back(ThreadSeconds() - start);
        }
        return seconds;
    });
}

} // namespace

void BindTables(py::module_& m, py::class_<TrackObject, std::shared_ptr<TrackObject>>& track)
{
    gTypes = MakeTypes();
    m.attr("FRAME_DTYPE") = gTypes->frame;
    m.attr("TEMPORAL_REFERENCE_DTYPE") = gTypes->temporal;
    m.attr("AUDIO_RANGE_DTYPE") = gTypes->audioRange;
    m.attr("CAPTION_DTYPE") = gTypes->caption;
    track
        .def("frames", &Frames, py::arg("sort_by_time") = false, py::arg("ignore_edits") = false,
             py::arg("max_entries") = py::none(),
             R"(The frames of a video track, in decode order: a NumPy array of FRAME_DTYPE
(offset, size, duration, time, key), one record per frame.

offset and size say where the frame's bytes lie in the file; duration and time are
in media time units, time counted from the first record; key marks a sync sample.
Without `ignore_edits` the table shows what the edit shows; `sort_by_time` sorts it
by time; `max_entries` stops after that many records. The array uses the library's
own table, without a copy.)")
        .def("temporal_references", &TemporalReferences,
             R"(Display order and dependencies of a video track's frames: an array of
TEMPORAL_REFERENCE_DTYPE. Record i is display index i for the three offsets
(decode index less i; anchors' display index less i, 0 for none) and decode index
i for dependency_flags (the 'sdtp' byte). Needs has_temporal_reference_data.)")
        .def("audio_ranges", &AudioRanges, py::arg("key_by_offset") = false,
             R"(The stretches of the file that hold a sound track's frames, one per chunk that
the edit touches: an array of AUDIO_RANGE_DTYPE (key, sample_count,
output_position, offset), in order of the key: the output position, or with
`key_by_offset` the file offset.)")
        .def("captions", &Captions, py::arg("key_by_offset") = false,
             R"(Each run of caption bytes in the file: an array of CAPTION_DTYPE (key, time,
offset, length, has_second, second_offset, second_length), in order of the key:
the media time, or with `key_by_offset` the file offset. Reads the movie file.)");
    m.def("_time_full_video_sample_table", &TimeFullVideoSampleTable, py::arg("track"),
          py::arg("sort_by_time") = false, py::arg("ignore_edits") = false, py::arg("repeat") = 1,
          "For benchmarks: CPU seconds of this thread for each call of the C++ operation that frames() wraps.");
}

} // namespace atomscan_python
