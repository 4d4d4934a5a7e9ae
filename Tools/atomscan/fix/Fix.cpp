// `atomscan fix MOVIE [--dry-run | --output OUT | --backup]`: the library's
// repair, and what it changed.
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "Commands.h"
#include "Inc/AtomscanInternal.h"
#include "common/MovieFile.h"
#include "common/Text.h"
#include "common/TextTable.h"
#include "fix/MovieAtomCopy.h"
#include "fix/SafeFile.h"

namespace atomscan_tool {

namespace {

struct Change {
    std::uint32_t index;
    std::uint64_t before;
    std::uint64_t after;
};

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
std::optional<std::vector<Change>> Compare(const QT::internal::RepairTablePlace& place, const MovieAtomCopy& before,
                                           const QT::AtomReader& after)
{
    if (place.entriesOffset < before.offset) return std::nullopt;
    const QT::AtomReader atom = before.Reader();
    std::vector<Change> changes;
    for (std::uint32_t i = 0; i < place.count; ++i) {
        const auto was = EntryAt(atom, place.entriesOffset - before.offset, place.wide, i);
        const auto is = EntryAt(after, 0, place.wide, i);
        if (!was || !is) return std::nullopt;
        if (*was != *is) changes.push_back({i, *was, *is});
    }
    return changes;
}

void PrintChanges(const QT::internal::RepairTablePlace& place, const std::vector<Change>& changes,
                  const std::string& outcome)
{
    if (!changes.empty()) {
        TextTable table({true, false, true, true, true});
        table.AddRow({"track", "table", "entry", "old", "new"});
        for (const Change& c : changes)
            table.AddRow({std::to_string(place.track), place.wide ? "co64" : "stco", std::to_string(c.index),
                          std::to_string(c.before), std::to_string(c.after)});
        table.Print(stdout, "");
    }
    const std::string count = changes.empty()            ? std::string("no chunk offset")
                              : changes.size() == 1 ? std::string("1 chunk offset")
                                                    : std::to_string(changes.size()) + " chunk offsets";
    std::printf("%s %s\n", count.c_str(), outcome.c_str());
}

int Fail(const std::string& message)
{
    ReportError(message);
    return kExitFailed;
}

} // namespace

int RunFix(const FixOptions& options)
{
    const std::string& path = options.path;
    // The repair opens movies that the parser refuses, so only a file without
    // a movie atom that the library's loader takes is refused here.
    MovieAtomCopy movie;
    if (const QT::ResultCode code = LoadMovieAtom(path, movie); code != QT::kResultSuccess)
        return Fail(path + ": " + OpenFailureText(code));
    const bool inPlace = !options.dryRun && options.output.empty();
    if (inPlace && ::access(path.c_str(), W_OK) != 0) return Fail(path + ": cannot write to the file");

    // The file the repair writes: the movie itself, a copy that becomes the
    // output, or a stand-in of a dry run.
    std::string target = path;
    std::string outcome = "changed";
    TempDirectory directory;
    TempBeside output(options.output);
    if (options.dryRun) {
        if (directory.Path().empty()) return Fail("cannot make a temporary directory");
        target = directory.Path() + "/" + std::filesystem::path(path).filename().string();
        if (!WriteStandIn(movie, target)) return Fail(path + ": cannot make a temporary copy");
        outcome = "would change; the movie was left as it is";
    } else if (!options.output.empty()) {
        if (!output.CopyFrom(path)) return Fail(output.Error());
        target = output.Path();
        outcome = "changed in " + options.output + "; the movie was left as it is";
    } else if (options.backup) {
        const std::string backupPath = path + ".orig";
        TempBeside backup(backupPath);
        if (!backup.CopyFrom(path)) return Fail(backup.Error());
        if (!backup.Commit(false))
            return Fail(backup.ErrorNumber() == EEXIST ? backupPath + " exists already: move it away first" : backup.Error());
        outcome = "changed; the original is kept in " + backupPath;
    }

    QT::internal::RepairTablePlace place;
    QT::internal::FixMovieAndLocate(ToString16(target), place);
    std::optional<std::vector<Change>> changes = std::vector<Change>();
    if (place.found && place.count > 0) {
        const auto after = ReadFileRange(target, place.entriesOffset, std::uint64_t{place.count} * (place.wide ? 8 : 4));
        changes = after ? Compare(place, movie, QT::AtomReader(after->data(), static_cast<std::uint32_t>(after->size())))
                        : std::nullopt;
    }
    if (!changes) return Fail(target + ": cannot read the chunk offset table after the repair");
    if (!options.output.empty() && !output.Commit(true)) return Fail(output.Error());
    PrintChanges(place, *changes, outcome);
    return kExitOk;
}

} // namespace atomscan_tool
