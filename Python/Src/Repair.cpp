// `fix` and `dump`: the repair of `atomscan fix`, with the entries it mended, and
// the document of `atomscan dump`, each from the command's library.
#include <pybind11/stl.h>

#include "Binding.h"
#include "dump/DumpJson.h"
#include "fix/Repair.h"

namespace atomscan_python {

namespace {

// The command's repair: OpenError or NotAMovieError when no movie atom loads,
// OpenError when a file cannot be written or the outcome read.
py::list Fix(const py::object& path, bool dryRun)
{
    atomscan_tool::FixOptions options;
    options.path = ToPath(path).utf8;
    options.dryRun = dryRun;
    const atomscan_tool::FixReport report = Unlocked([&] { return atomscan_tool::RepairMovie(options); });
    if (report.load != QT::kResultSuccess) throw OpenFailure(report.load, options.path, report.refusal);
    if (!report.error.empty()) throw LibraryError(ErrorKind::kOpen, QT::kResultCannotOpen, report.error);
    const py::object entry = py::module_::import("atomscan._atomscan").attr("MendedEntry");
    py::list list;
    for (const atomscan_tool::MendedEntry& m : report.mended) list.append(entry(m.track, m.index, m.before, m.after));
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
Nothing else in the file changes. The repair runs also on a movie that open()
refuses, as `atomscan fix` does. With `dry_run` it runs on a sparse temporary copy,
and the file is left as it is. Raises OpenError when the file cannot be opened or
written, and NotAMovieError when it holds no movie atom that can be loaded.)");
    m.def("_dump_json", &DumpJson, py::arg("path"), py::arg("tables") = true,
          "(open result code, the document of `atomscan dump` as JSON text).");
}

} // namespace atomscan_python
