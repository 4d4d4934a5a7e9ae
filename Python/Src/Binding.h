// What the parts of the Python module share: the objects behind `Movie` and
// `Track`, the error that becomes a Python exception, and the conversions
// between the library's values and Python's.
#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "API/Inc/PeltBinaryData.h"
#include "Inc/IAtomscan.h"
#include "Inc/ExternalReferences.h"
#include "Inc/IQTMovie.h"
#include "Inc/QTTrack.h"

namespace atomscan_python {

namespace py = pybind11;

// The Python exception class an error becomes (all derive from atomscan.Error).
enum class ErrorKind {
    kOpen,       // OpenError: the file could not be opened (an OSError)
    kNotAMovie,  // NotAMovieError: no movie that can be read (a ValueError)
    kTable,      // TableError: a table operation gave a result code (a ValueError)
    kContract,   // ContractError: the library refused a call as misuse (a ValueError)
};

// A failure that reaches Python as an exception with the library's result code.
class LibraryError : public std::exception {
public:
    LibraryError(ErrorKind kind, std::uint32_t code, std::string message)
        : mKind(kind), mCode(code), mMessage(std::move(message))
    {
    }
    const char* what() const noexcept override { return mMessage.c_str(); }
    ErrorKind Kind() const { return mKind; }
    std::uint32_t Code() const { return mCode; }

private:
    ErrorKind mKind;
    std::uint32_t mCode;
    std::string mMessage;
};

// Creates the exception classes in `m` and has pybind11 raise them for
// LibraryError, vellum::config::Error and Tessel's exceptions.
void RegisterErrors(py::module_& m);

// A path argument: str, bytes or os.PathLike, as UTF-8 and as the library's string.
struct PathArgument {
    std::string utf8;
    QT::String16 text16;
};
PathArgument ToPath(const py::handle& path);

std::string ToUtf8(const QT::String16& text);
// A four-character code as a str of four characters (one per byte, Latin-1).
py::str FourCCText(QT::FourCC code);
// A str of four characters (each below U+0100), four bytes, or an int.
QT::FourCC ToFourCC(const py::handle& value);
// The blob's bytes; an empty blob gives b"".
py::bytes ToBytes(const Pelt::BinaryData& data);
// Text of an 8-bit string of the library: str when it is UTF-8, else bytes.
py::object Text8(const std::string& bytes);

// One track of an open movie, with what its operations need of the movie.
struct TrackObject {
    Tessel::InterfaceRef<QT::IQTTrack> track;
    QT::FourCC mediaType = QT::kUnknownMediaType;
    std::shared_ptr<const PathArgument> moviePath; // absolute
};

struct MovieObject {
    Tessel::InterfaceRef<QT::IQTMovie> movie; // empty once closed
    std::shared_ptr<const PathArgument> path; // as given
    std::shared_ptr<const PathArgument> absolutePath;
    std::vector<std::shared_ptr<TrackObject>> tracks;

    // The movie, or ValueError once it is closed.
    Tessel::InterfaceRef<QT::IQTMovie> Get() const;
};

// Runs `work` with the GIL released; what it throws passes on once the GIL is back.
template <typename Work>
auto Unlocked(Work&& work)
{
    py::gil_scoped_release release;
    return work();
}

// TypeError unless the track is of `kind`: the library allows `operation` on no other.
void RequireKind(const TrackObject& self, QT::FourCC kind, const char* operation);

// A table result code other than 0 as a TableError naming the operation.
void CheckTable(std::uint32_t code, const char* operation);

// An `ExternalReference` named tuple: full_path, file_name, directory_name, found.
py::object ExternalReference(const QT::ExtRefData& reference, bool found);

void BindMovie(py::module_& m);
void BindTrack(py::module_& m);
// `fix`, and the dump document for `dump`.
void BindRepair(py::module_& m);
// Frame, temporal reference, audio range and caption tables as NumPy arrays.
void BindTables(py::module_& m, py::class_<TrackObject, std::shared_ptr<TrackObject>>& track);

} // namespace atomscan_python
