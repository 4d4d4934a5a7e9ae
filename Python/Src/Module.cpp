// The extension module `atomscan._atomscan`: exceptions, conversions and `open`.
#include <pybind11/stl.h>

#include <cstdio>

#include "Binding.h"
#include "common/MovieFile.h"
#include "vellum/vellum.h"

namespace atomscan_python {

namespace {

struct ErrorClasses {
    py::object base, open, notAMovie, table, contract;
};
// Made at import and kept for the life of the process, as Python keeps the module.
ErrorClasses* gErrors = nullptr;

py::object NewError(py::module_& m, const char* name, const char* doc, const py::tuple& bases)
{
    const std::string qualified = std::string("atomscan.") + name;
    PyObject* cls = PyErr_NewExceptionWithDoc(qualified.c_str(), doc, bases.ptr(), nullptr);
    if (cls == nullptr) throw py::error_already_set();
    py::object error = py::reinterpret_steal<py::object>(cls);
    m.attr(name) = error;
    return error;
}

void Raise(const py::object& cls, const std::string& message, const py::object& code)
{
    py::object error = cls(message);
    error.attr("code") = code;
    PyErr_SetObject(cls.ptr(), error.ptr());
}

const py::object& ErrorClass(ErrorKind kind)
{
    switch (kind) {
    case ErrorKind::kOpen: return gErrors->open;
    case ErrorKind::kNotAMovie: return gErrors->notAMovie;
    case ErrorKind::kTable: return gErrors->table;
    case ErrorKind::kContract: break;
    }
    return gErrors->contract;
}

std::string CodeText(std::uint32_t code)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", code);
    return text;
}

std::shared_ptr<MovieObject> Open(const py::object& path)
{
    auto object = std::make_shared<MovieObject>();
    object->path = std::make_shared<const PathArgument>(ToPath(path));
    const std::string absolute = atomscan_tool::AbsolutePath(object->path->utf8);
    object->absolutePath = std::make_shared<const PathArgument>(
        PathArgument{absolute, vellum::utility::UTF8to16(absolute, nullptr, nullptr)});
    const QT::ResultCode code = Unlocked([&] {
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        const QT::ResultCode rc = QT::MakeParser()->OpenMovie(object->path->text16, movie);
        if (rc != QT::kResultSuccess) return rc;
        const std::uint32_t count = movie->GetTrackCount();
        for (std::uint32_t i = 0; i < count; ++i) {
            auto track = std::make_shared<TrackObject>();
            track->track = movie->GetIndTrack(i);
            track->mediaType = track->track->GetTrackMediaType();
            track->moviePath = object->absolutePath;
            object->tracks.push_back(std::move(track));
        }
        object->movie = movie;
        return rc;
    });
    if (code != QT::kResultSuccess)
        throw LibraryError(code == QT::kResultCannotOpen ? ErrorKind::kOpen : ErrorKind::kNotAMovie, code,
                           object->path->utf8 + ": " + atomscan_tool::OpenFailureText(code));
    return object;
}

} // namespace

void RegisterErrors(py::module_& m)
{
    gErrors = new ErrorClasses;
    gErrors->base = NewError(m, "Error",
                             "Base of the errors of atomscan. `code` is the library's result code, or None.",
                             py::make_tuple(py::handle(PyExc_Exception)));
    gErrors->base.attr("code") = py::none();
    gErrors->open = NewError(m, "OpenError", "The file could not be opened (code 0xa0800004).",
                             py::make_tuple(gErrors->base, py::handle(PyExc_OSError)));
    gErrors->notAMovie = NewError(m, "NotAMovieError", "The file is no movie that can be read (code 0xa0800001).",
                                  py::make_tuple(gErrors->base, py::handle(PyExc_ValueError)));
    gErrors->table = NewError(m, "TableError",
                              "A table could not be built from the movie's sample tables; `code` tells why.",
                              py::make_tuple(gErrors->base, py::handle(PyExc_ValueError)));
    gErrors->contract = NewError(m, "ContractError", "The library refused a call as a misuse (a contract failure), such as a\n"
                                 "sample description index at or above the track's count.",
                                 py::make_tuple(gErrors->base, py::handle(PyExc_ValueError)));

    py::register_exception_translator([](std::exception_ptr error) {
        try {
            if (error) std::rethrow_exception(error);
        } catch (const LibraryError& e) {
            Raise(ErrorClass(e.Kind()), e.what(), py::int_(e.Code()));
        } catch (const vellum::config::Error& e) {
            Raise(gErrors->contract, "contract failure in " + e.Function() + ": " + e.Condition(), py::none());
        } catch (const Tessel::Exception& e) {
            Raise(gErrors->contract, e.what(), py::none());
        }
    });
}

void CheckTable(std::uint32_t code, const char* operation)
{
    if (code != QT::kResultSuccess)
        throw LibraryError(ErrorKind::kTable, code, std::string(operation) + " failed with " + CodeText(code));
}

void RequireKind(const TrackObject& self, QT::FourCC kind, const char* operation)
{
    if (self.mediaType != kind)
        throw py::type_error(std::string(operation) + " needs a '" + FourCCText(kind).cast<std::string>() +
                             "' track, not '" + FourCCText(self.mediaType).cast<std::string>() + "'");
}

PathArgument ToPath(const py::handle& path)
{
    py::object text = py::module_::import("os").attr("fsdecode")(path);
    Py_ssize_t size = 0;
    const char* utf8 = PyUnicode_AsUTF8AndSize(text.ptr(), &size);
    if (utf8 == nullptr) throw py::error_already_set();
    std::string bytes(utf8, static_cast<std::size_t>(size));
    if (bytes.find('\0') != std::string::npos) throw py::value_error("embedded null character in path");
    QT::String16 text16 = vellum::utility::UTF8to16(bytes, nullptr, nullptr);
    return {std::move(bytes), std::move(text16)};
}

std::string ToUtf8(const QT::String16& text) { return vellum::utility::UTF16to8(text); }

py::str FourCCText(QT::FourCC code)
{
    const char bytes[4] = {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
    return py::reinterpret_steal<py::str>(PyUnicode_DecodeLatin1(bytes, 4, nullptr));
}

QT::FourCC ToFourCC(const py::handle& value)
{
    if (py::isinstance<py::int_>(value)) {
        const unsigned long long code = value.cast<unsigned long long>();
        if (code > 0xffffffffull) throw py::value_error("a four-character code fits in 32 bits");
        return static_cast<QT::FourCC>(code);
    }
    std::string bytes;
    if (py::isinstance<py::bytes>(value)) {
        bytes = value.cast<std::string>();
    } else if (py::isinstance<py::str>(value)) {
        py::object latin1 = py::reinterpret_steal<py::object>(PyUnicode_AsLatin1String(value.ptr()));
        if (!latin1) throw py::error_already_set();
        bytes = latin1.cast<std::string>();
    } else {
        throw py::type_error("a four-character code is a str, bytes or int");
    }
    if (bytes.size() != 4) throw py::value_error("a four-character code has four characters");
    QT::FourCC code = 0;
    for (char c : bytes) code = (code << 8) | static_cast<unsigned char>(c);
    return code;
}

py::bytes ToBytes(const Pelt::BinaryData& data)
{
    return py::bytes(reinterpret_cast<const char*>(data.Data()), data.Size());
}

py::object Text8(const std::string& bytes)
{
    PyObject* text = PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), nullptr);
    if (text != nullptr) return py::reinterpret_steal<py::object>(text);
    PyErr_Clear();
    return py::bytes(bytes);
}

Tessel::InterfaceRef<QT::IQTMovie> MovieObject::Get() const
{
    if (!movie) throw py::value_error("the movie is closed");
    return movie;
}

} // namespace atomscan_python

PYBIND11_MODULE(_atomscan, m)
{
    using namespace atomscan_python;
    m.doc() = "The library's interfaces for Python; use the package `atomscan`, which re-exports them.";
    RegisterErrors(m);
    BindTrack(m);
    BindMovie(m);
    BindRepair(m);
    m.def("open", &Open, py::arg("path"),
          "Opens the movie at `path` (str, bytes or os.PathLike) and gives a Movie.\n\n"
          "Raises OpenError when the file cannot be opened and NotAMovieError when it is\n"
          "no movie that can be read; both carry the library's result code in `code`.");
}
