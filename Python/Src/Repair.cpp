// `fix` and `dump`: the library's repair through its internal entry point, with the
// entries it mended; and the document of `atomscan dump`, from the command's library.
#include <pybind11/stl.h>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <system_error>

#include "Binding.h"
#include "Inc/AtomscanInternal.h"
#include "common/MovieFile.h"
#include "dump/DumpJson.h"

namespace atomscan_python {

namespace {

struct MendedEntry {
    std::uint32_t track, index;
    std::uint64_t before, after;
};

// A fresh folder for the copy of a dry run, removed with the object.
class TempDirectory {
public:
    TempDirectory()
    {
        std::error_code error;
        std::string pattern = (std::filesystem::temp_directory_path(error) / "atomscan-fix-XXXXXX").string();
        if (!error && ::mkdtemp(pattern.data()) != nullptr) mPath = pattern;
    }
    ~TempDirectory()
    {
        std::error_code error;
        if (!mPath.empty()) std::filesystem::remove_all(mPath, error);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;
    const std::string& Path() const { return mPath; }

private:
    std::string mPath;
};

// Where the movie atom lies: the first top-level atom of type `moov`.
struct MovieAtomPlace {
    std::uint64_t offset = 0, size = 0;
};

std::uint64_t BigEndian(const std::vector<std::uint8_t>& bytes, std::size_t at, std::size_t width)
{
    std::uint64_t value = 0;
    for (std::size_t k = 0; k < width; ++k) value = (value << 8) | bytes[at + k];
    return value;
}

// Refuses as open() does a file that is no movie; else steps over the top-level
// atoms (a size of 1 takes the 64-bit size behind the type, 0 runs to the end).
MovieAtomPlace FindMovieAtom(const std::string& path)
{
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    const QT::ResultCode rc = QT::MakeParser()->OpenMovie(vellum::utility::UTF8to16(path, nullptr, nullptr), movie);
    if (rc != QT::kResultSuccess)
        throw LibraryError(rc == QT::kResultCannotOpen ? ErrorKind::kOpen : ErrorKind::kNotAMovie, rc,
                           path + ": " + atomscan_tool::OpenFailureText(rc));
    const atomscan_tool::RegularFile file(path);
    for (std::uint64_t at = 0; file.IsOpen() && file.Size() - at >= 8;) {
        const auto head = file.Read(at, file.Size() - at >= 16 ? 16 : 8);
        if (!head) break;
        std::uint64_t size = BigEndian(*head, 0, 4);
        const std::uint64_t headSize = size == 1 ? 16 : 8;
        if (size == 1) size = head->size() == 16 ? BigEndian(*head, 8, 8) : 0;
        else if (size == 0) size = file.Size() - at;
        if (size < headSize || size > file.Size() - at) break;
        if (BigEndian(*head, 4, 4) == QT::MakeFourCC("moov")) return {at, size};
        at += size;
    }
    throw LibraryError(ErrorKind::kNotAMovie, QT::kResultNotAMovie, path + ": cannot find the movie atom");
}

// A file at `copy` as large as `path`, with its movie atom at the same offset, a
// `free` atom over all ahead of it and holes elsewhere: what the repair reads.
bool WriteStandIn(const std::string& path, const MovieAtomPlace& place, const std::vector<std::uint8_t>& movieAtom,
                  const std::string& copy)
{
    std::error_code error;
    const std::uint64_t fileSize = std::filesystem::file_size(path, error);
    const int fd = ::open(copy.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (error || fd < 0) return false;
    std::vector<std::uint8_t> head; // size, type, and the 64-bit size where 32 bits do not hold it
    const bool wide = place.offset > 0xffffffffu;
    const std::uint64_t size = wide ? 1 : place.offset;
    for (int shift = 24; shift >= 0; shift -= 8) head.push_back(static_cast<std::uint8_t>(size >> shift));
    head.insert(head.end(), {'f', 'r', 'e', 'e'});
    for (int shift = 56; wide && shift >= 0; shift -= 8) head.push_back(static_cast<std::uint8_t>(place.offset >> shift));
    const bool written =
        ::ftruncate(fd, static_cast<off_t>(fileSize)) == 0 &&
        (place.offset < head.size() || ::pwrite(fd, head.data(), head.size(), 0) == static_cast<ssize_t>(head.size())) &&
        ::pwrite(fd, movieAtom.data(), movieAtom.size(), static_cast<off_t>(place.offset)) ==
            static_cast<ssize_t>(movieAtom.size());
    return ::close(fd) == 0 && written;
}

// Runs the repair on `path`, or with `dryRun` on a stand-in for it, and
// compares the examined table's entries before and after.
std::vector<MendedEntry> Repair(const std::string& path, bool dryRun)
{
    const MovieAtomPlace atom = FindMovieAtom(path);
    const auto movieAtom = [&](const std::string& file) { return atomscan_tool::ReadFileRange(file, atom.offset, atom.size); };
    const auto before = movieAtom(path);
    if (!before)
        throw LibraryError(ErrorKind::kNotAMovie, QT::kResultNotAMovie, path + ": cannot read the movie atom");
    TempDirectory directory;
    std::string target = path;
    if (dryRun) {
        target = directory.Path() + "/" + std::filesystem::path(path).filename().string();
        if (directory.Path().empty() || !WriteStandIn(path, atom, *before, target))
            throw LibraryError(ErrorKind::kOpen, QT::kResultCannotOpen, path + ": cannot make a temporary copy");
    }
    QT::internal::RepairTablePlace place;
    QT::internal::FixMovieAndLocate(vellum::utility::UTF8to16(target, nullptr, nullptr), place);
    const auto after = movieAtom(target);
    std::vector<MendedEntry> mended;
    const std::uint64_t width = place.wide ? 8 : 4;
    if (!place.found || !after || place.entriesOffset < atom.offset ||
        place.entriesOffset - atom.offset + width * place.count > atom.size)
        return mended;
    const std::size_t start = static_cast<std::size_t>(place.entriesOffset - atom.offset);
    for (std::uint32_t i = 0; i < place.count; ++i) {
        const std::size_t at = start + static_cast<std::size_t>(width * i);
        const std::uint64_t was = BigEndian(*before, at, width), is = BigEndian(*after, at, width);
        if (was != is) mended.push_back({place.track, i, was, is});
    }
    return mended;
}

py::list Fix(const py::object& path, bool dryRun)
{
    const std::string file = ToPath(path).utf8;
    const std::vector<MendedEntry> mended = Unlocked([&] {
        if (!dryRun && ::access(file.c_str(), W_OK) != 0 && ::access(file.c_str(), F_OK) == 0)
            throw LibraryError(ErrorKind::kOpen, QT::kResultCannotOpen, file + ": cannot write to the file");
        return Repair(file, dryRun);
    });
    const py::object entry = py::module_::import("atomscan._atomscan").attr("MendedEntry");
    py::list list;
    for (const MendedEntry& m : mended) list.append(entry(m.track, m.index, m.before, m.after));
    return list;
}

py::tuple DumpJson(const py::object& path, bool tables)
{
    const std::string file = ToPath(path).utf8;
    std::string json;
    const QT::ResultCode code = Unlocked([&] {
        atomscan_tool::DumpOptions options;
        options.tables = tables;
        return atomscan_tool::WriteDumpJson(file, options, json);
    });
    return py::make_tuple(code, py::str(json));
}

} // namespace

void BindRepair(py::module_& m)
{
    py::object entry = py::module_::import("collections").attr("namedtuple")(
        "MendedEntry", py::make_tuple("track", "index", "old", "new"), py::arg("module") = "atomscan");
    entry.attr("__doc__") = "A chunk offset that the repair changed: the track's index, the entry's index in its "
                            "chunk offset table, the offset before and after.";
    m.attr("MendedEntry") = entry;
    m.def("fix", &Fix, py::arg("path"), py::arg("dry_run") = false,
          R"(Mends, in the file at `path`, the chunk offsets of the first enabled video track
that lie beyond the end of the file because their high-order bytes are wrong, and
gives the entries it changed: a list of MendedEntry(track, index, old, new).
Nothing else in the file changes. With `dry_run` the repair runs on a sparse
temporary copy, and the file is left as it is. Raises OpenError or NotAMovieError
as open() does, and OpenError when the file cannot be written.)");
    m.def("_dump_json", &DumpJson, py::arg("path"), py::arg("tables") = true,
          "(open result code, the document of `atomscan dump` as JSON text).");
}

} // namespace atomscan_python
