#include "fix/Repair.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>

#include "common/MovieFile.h"
#include "common/Text.h"
#include "fix/MovieAtomCopy.h"
#include "fix/SafeFile.h"

namespace atomscan_tool {

namespace {

// A fresh directory for the stand-in of a dry run, removed with the object.
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

// Entry `index` of a table whose entry 0 lies at `first` in `bytes`; nothing
// when it is not all inside them.
std::optional<std::uint64_t> EntryAt(const QT::AtomReader& bytes, std::uint64_t first, bool wide, std::uint32_t index)
{
    const std::uint64_t at = first + std::uint64_t{index} * (wide ? 8 : 4);
    std::uint64_t wideValue = 0;
    std::uint32_t value = 0;
    if (wide ? !bytes.U64(at, wideValue) : !bytes.U32(at, value)) return std::nullopt;
    return wide ? wideValue : value;
}

// The entries of the table at `place` that differ between `before`, the
// movie atom as loaded before the repair, and `after`, the table's bytes as
// the file holds them after it. Nothing when the table lies outside the atom.
std::optional<std::vector<MendedEntry>> Compare(const QT::internal::RepairTablePlace& place,
                                                const MovieAtomCopy& before, const QT::AtomReader& after)
{
    if (place.entriesOffset < before.offset) return std::nullopt;
    const QT::AtomReader atom = before.Reader();
    std::vector<MendedEntry> changes;
    for (std::uint32_t i = 0; i < place.count; ++i) {
        const auto was = EntryAt(atom, place.entriesOffset - before.offset, place.wide, i);
        const auto is = EntryAt(after, 0, place.wide, i);
        if (!was || !is) return std::nullopt;
        if (*was != *is) changes.push_back({place.track, i, *was, *is});
    }
    return changes;
}

// The library's repair on `target`, and what it changed against `movie`.
void RepairAndCompare(const MovieAtomCopy& movie, const std::string& target, FixReport& report)
{
    QT::internal::RepairTablePlace place;
    QT::internal::FixMovieAndLocate(ToString16(target), place);
    report.wide = place.wide;
    if (!place.found || place.count == 0) return;
    const auto after = ReadFileRange(target, place.entriesOffset, std::uint64_t{place.count} * (place.wide ? 8 : 4));
    const auto changes =
        after ? Compare(place, movie, QT::AtomReader(after->data(), static_cast<std::uint32_t>(after->size())))
              : std::nullopt;
    if (changes) report.mended = *changes;
    else report.error = target + ": cannot read the chunk offset table after the repair";
}

} // namespace

FixReport RepairMovie(const FixOptions& options)
{
    FixReport report;
    const std::string& path = options.path;
    // The repair opens movies that the parser refuses, so only a file without
    // a movie atom that the library's loader takes is refused here.
    MovieAtomCopy movie;
    report.load = LoadMovieAtom(path, movie, report.refusal);
    if (report.load != QT::kResultSuccess) {
        report.error = path + ": " + OpenFailureText(report.load, report.refusal);
        return report;
    }
    const bool inPlace = !options.dryRun && options.output.empty();
    if (inPlace && ::access(path.c_str(), W_OK) != 0) {
        report.error = path + ": cannot write to the file";
        return report;
    }

    // The file the repair writes: the movie itself, a copy that becomes the
    // output, or a stand-in of a dry run.
    std::string target = path;
    TempDirectory directory;
    TempBeside output(options.output);
    if (options.dryRun) {
        target = directory.Path() + "/" + std::filesystem::path(path).filename().string();
        if (directory.Path().empty()) report.error = "cannot make a temporary directory";
        else if (!WriteStandIn(movie, target)) report.error = path + ": cannot make a temporary copy";
    } else if (!options.output.empty()) {
        if (!output.CopyFrom(path)) report.error = output.Error();
        target = output.Path();
    } else if (options.backup) {
        const std::string backupPath = path + ".orig";
        TempBeside backup(backupPath);
        if (!backup.CopyFrom(path)) report.error = backup.Error();
        else if (!backup.Commit(false))
            report.error = backup.ErrorNumber() == EEXIST ? backupPath + " exists already: move it away first"
                                                          : backup.Error();
    }
    if (!report.error.empty()) return report;

    RepairAndCompare(movie, target, report);
    if (report.error.empty() && !options.output.empty() && !output.Commit(true)) report.error = output.Error();
    return report;
}

} // namespace atomscan_tool
