// `Movie`: the movie-level questions, its tracks and its external files.
#include <pybind11/stl.h>

#include <boost/variant/apply_visitor.hpp>

#include "Binding.h"
#include "Inc/ExternalReferences.h"
#include "common/MetadataKeys.h"
#include "common/References.h"

namespace atomscan_python {

namespace {

// A movie operation without arguments, as a read-only property.
template <typename Result>
auto MovieGetter(Result (QT::IQTMovie::*operation)())
{
    return [operation](const MovieObject& self) {
        Tessel::InterfaceRef<QT::IQTMovie> movie = self.Get();
        return Unlocked([&] { return ((*movie).*operation)(); });
    };
}

// The natural Python value of each alternative of a metadata value.
struct MetadataToPython : boost::static_visitor<py::object> {
    py::object operator()(const Pelt::BinaryData& v) const { return ToBytes(v); }
    py::object operator()(const std::string& v) const { return Text8(v); }
    py::object operator()(const QT::String16& v) const { return py::str(ToUtf8(v)); }
    py::object operator()(std::int32_t v) const { return py::int_(v); }
    py::object operator()(std::uint32_t v) const { return py::int_(v); }
    py::object operator()(float v) const { return py::float_(v); }
    py::object operator()(double v) const { return py::float_(v); }
};

std::string KeyBytes(const py::handle& key)
{
    if (py::isinstance<py::bytes>(key)) return key.cast<std::string>();
    if (py::isinstance<py::str>(key)) return key.cast<std::string>();
    throw py::type_error("a metadata key is a str or bytes");
}

py::dict Metadata(const MovieObject& self)
{
    Tessel::InterfaceRef<QT::IQTMovie> movie = self.Get();
    const auto entries = Unlocked([&] {
        std::vector<std::pair<std::string, QT::MetadataValue>> found;
        for (const std::string& key : atomscan_tool::MetadataKeyCandidates(*movie)) {
            QT::MetadataValue value;
            if (movie->GetMetadataValue(key, value)) found.emplace_back(key, std::move(value));
        }
        return found;
    });
    py::dict metadata;
    for (const auto& [key, value] : entries) metadata[Text8(key)] = boost::apply_visitor(MetadataToPython(), value.mValue);
    return metadata;
}

py::object MetadataValue(const MovieObject& self, const py::handle& key)
{
    Tessel::InterfaceRef<QT::IQTMovie> movie = self.Get();
    const std::string bytes = KeyBytes(key);
    QT::MetadataValue value;
    if (!Unlocked([&] { return movie->GetMetadataValue(bytes, value); })) return py::none();
    return py::make_tuple(value.mDataType, boost::apply_visitor(MetadataToPython(), value.mValue));
}

py::list UserData(const MovieObject& self)
{
    Tessel::InterfaceRef<QT::IQTMovie> movie = self.Get();
    const auto items = Unlocked([&] {
        std::vector<std::pair<std::uint32_t, Pelt::BinaryData>> all(movie->GetUserDataCount());
        for (std::uint32_t i = 0; i < all.size(); ++i) movie->GetUserData(i, all[i].second, all[i].first);
        return all;
    });
    py::list list;
    for (const auto& [type, data] : items) list.append(py::make_tuple(FourCCText(type), ToBytes(data)));
    return list;
}

py::object ChildAtom(const MovieObject& self, const py::handle& type)
{
    Tessel::InterfaceRef<QT::IQTMovie> movie = self.Get();
    const QT::FourCC code = ToFourCC(type);
    Pelt::BinaryData data;
    if (Unlocked([&] { return movie->GetChildAtom(code, data); }) != QT::kResultSuccess) return py::none();
    return ToBytes(data);
}

py::object FindAtom(const MovieObject& self, const py::handle& type)
{
    self.Get();
    const QT::FourCC code = ToFourCC(type);
    bool found = false;
    std::uint64_t offset = 0, size = 0;
    const QT::ResultCode rc = Unlocked([&] {
        Tessel::InterfaceRef<QT::IQTMovie> again;
        return QT::MakeParser()->OpenMovieAndFindAtom(self.path->text16, again, code, found, offset, size);
    });
    if (rc != QT::kResultSuccess)
        throw LibraryError(rc == QT::kResultCannotOpen ? ErrorKind::kOpen : ErrorKind::kNotAMovie, rc,
                           self.path->utf8 + ": the movie no longer opens");
    if (!found) return py::none();
    return py::make_tuple(offset, size);
}

// Every external file of the movie, each with whether it can be found from here.
py::list ExternalReferences(const MovieObject& self)
{
    Tessel::InterfaceRef<QT::IQTMovie> movie = self.Get();
    const atomscan_tool::ReferenceReport report =
        Unlocked([&] { return atomscan_tool::CheckReferences(movie, self.absolutePath->utf8); });
    py::list list;
    for (const atomscan_tool::ReferenceStatus& r : report.references)
        list.append(ExternalReference(r.reference, r.found));
    return list;
}

py::dict TrackReferences(const MovieObject& self)
{
    Tessel::InterfaceRef<QT::IQTMovie> movie = self.Get();
    QT::TrackReferenceMap video, audio, timecode;
    Unlocked([&] { QT::GetExternalReferences(movie, video, audio, timecode); });
    py::dict kinds;
    const std::pair<const char*, const QT::TrackReferenceMap*> all[] = {
        {"video", &video}, {"audio", &audio}, {"timecode", &timecode}};
    for (const auto& [kind, map] : all) {
        py::dict paths;
        for (const auto& [index, path] : *map) paths[py::int_(index)] = ToUtf8(path);
        kinds[kind] = paths;
    }
    return kinds;
}

py::tuple Tracks(const MovieObject& self)
{
    self.Get();
    return py::tuple(py::cast(self.tracks));
}

// The named tuple type, made at import and kept as Python keeps the module.
py::object* gExternalReference = nullptr;

void Close(MovieObject& self)
{
    Tessel::InterfaceRef<QT::IQTMovie> movie = std::move(self.movie);
    std::vector<std::shared_ptr<TrackObject>> tracks = std::move(self.tracks);
    self.movie = {};
    self.tracks.clear();
    Unlocked([&] {
        tracks.clear();
        movie.Clear();
    });
}

} // namespace

py::object ExternalReference(const QT::ExtRefData& reference, bool found)
{
    return (*gExternalReference)(ToUtf8(reference.fullPath), ToUtf8(reference.fileName),
                                 ToUtf8(reference.directoryName), found);
}

void BindMovie(py::module_& m)
{
    gExternalReference = new py::object(py::module_::import("collections").attr("namedtuple")(
        "ExternalReference", py::make_tuple("full_path", "file_name", "directory_name", "found"),
        py::arg("module") = "atomscan"));
    (*gExternalReference).attr("__doc__") = "An external file of a reference movie: its stored path, file name, "
                                            "directory name, and whether it can be found from here.";
    m.attr("ExternalReference") = *gExternalReference;

    py::class_<MovieObject, std::shared_ptr<MovieObject>> movie(m, "Movie", R"(An open movie.

Everything is answered from the copy of the movie atom made at the open; the file
is not kept open. Use it as a context manager, or call close(), to free the copy
(tracks already taken keep their share of it).)");
    movie.attr("__module__") = "atomscan";
    movie.def_property_readonly("path", [](const MovieObject& self) { return self.path->utf8; },
                               "The path as given to open().")
        .def_property_readonly("closed", [](const MovieObject& self) { return !self.movie; })
        .def_property_readonly("time_scale", MovieGetter(&QT::IQTMovie::GetTimeScale), "Time units in a second.")
        .def_property_readonly("duration", MovieGetter(&QT::IQTMovie::GetDuration), "In units of time_scale.")
        .def_property_readonly("poster_time", MovieGetter(&QT::IQTMovie::GetPosterTime))
        .def_property_readonly("movie_atom_size", MovieGetter(&QT::IQTMovie::GetMovieAtomSize),
                               "Bytes of the movie atom, header included.")
        .def_property_readonly(
            "bounds",
            [](const MovieObject& self) {
                Tessel::InterfaceRef<QT::IQTMovie> movie = self.Get();
                QT::QTRect r;
                Unlocked([&] { movie->GetBounds(r); });
                return py::make_tuple(r.left, r.top, r.right, r.bottom);
            },
            "(left, top, right, bottom): the union of the track rectangles and the origin.")
        .def_property_readonly("tracks", &Tracks, "The tracks, a tuple of Track in file order.")
        .def_property_readonly("user_data", &UserData, "The movie's user data items: a list of (type, bytes).")
        .def_property_readonly("metadata", &Metadata,
                               "The key/value metadata: a dict of key to value (bytes, str, int or float).")
        .def("metadata_value", &MetadataValue, py::arg("key"),
             "(data type code, value) of the metadata item `key` (str or bytes), or None.")
        .def("child_atom", &ChildAtom, py::arg("type"),
             "The content of the movie atom's first child of `type` (without its header), or None.")
        .def("find_atom", &FindAtom, py::arg("type"),
             "(offset, size) of the first top-level atom of `type` in the file, or None. Reads the file again.")
        .def("external_references", &ExternalReferences,
             "The external files the movie uses, each an ExternalReference with `found` telling\n"
             "whether it can be reached from here.")
        .def("track_references", &TrackReferences,
             "The single external file of the video, audio and timecode tracks:\n"
             "{'video': {track index: path}, 'audio': {...}, 'timecode': {...}}.")
        .def("close", &Close, "Releases the movie and its tracks; closing twice does nothing.")
        .def("__enter__", [](const std::shared_ptr<MovieObject>& self) { return self; })
        .def("__exit__", [](MovieObject& self, const py::args&) { Close(self); })
        .def("__repr__", [](const MovieObject& self) {
            return "<atomscan.Movie " + py::repr(py::str(self.path->utf8)).cast<std::string>() +
                   (self.movie ? ", " + std::to_string(self.tracks.size()) + " tracks>" : ", closed>");
        });
}

} // namespace atomscan_python
