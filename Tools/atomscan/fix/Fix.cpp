// `atomscan fix MOVIE [--dry-run]`: the library's repair, and what it changed.
#include <unistd.h>

#include <cstdlib>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "Commands.h"
#include "Inc/IQTMovieFixer.h"
#include "fix/MovieAtomFile.h"
#include "common/MovieFile.h"
#include "common/Text.h"
#include "common/TextTable.h"

namespace atomscan_tool {

namespace {

struct Change {
    const ChunkOffsetTable* table;
    std::uint32_t index;
    std::uint64_t before;
    std::uint64_t after;
};

// A fresh directory for the copy of a dry run, removed with the object.
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

std::optional<std::vector<std::uint8_t>> ReadMovieAtom(const std::string& path, const TopLevelLayout& layout)
{
    return ReadFileRange(path, layout.movieAtomOffset, layout.movieAtomSize);
}

std::vector<Change> Compare(const std::vector<ChunkOffsetTable>& tables, const std::vector<std::uint8_t>& before,
                            const std::vector<std::uint8_t>& after)
{
    std::vector<Change> changes;
    for (const ChunkOffsetTable& table : tables) {
        for (std::uint32_t i = 0; i < table.count; ++i) {
            const std::uint64_t was = ChunkOffsetEntry(before, table, i);
            const std::uint64_t is = ChunkOffsetEntry(after, table, i);
            if (was != is) changes.push_back({&table, i, was, is});
        }
    }
    return changes;
}

// Bytes of the movie atom that changed outside the entries listed: none, from this library.
std::size_t OtherChangedBytes(const std::vector<Change>& changes, std::vector<std::uint8_t> before,
                              const std::vector<std::uint8_t>& after)
{
    for (const Change& c : changes) {
        const std::size_t width = c.table->wide ? 8 : 4;
        const std::size_t at = static_cast<std::size_t>(c.table->entriesAt + std::uint64_t{c.index} * width);
        for (std::size_t k = 0; k < width; ++k) before[at + k] = after[at + k];
    }
    std::size_t differing = 0;
    for (std::size_t i = 0; i < before.size(); ++i)
        if (before[i] != after[i]) ++differing;
    return differing;
}

void PrintChanges(const std::vector<Change>& changes, bool dryRun)
{
    if (!changes.empty()) {
        TextTable table({true, false, true, true, true});
        table.AddRow({"track", "table", "entry", "old", "new"});
        for (const Change& c : changes)
            table.AddRow({std::to_string(c.table->track), c.table->wide ? "co64" : "stco", std::to_string(c.index),
                          std::to_string(c.before), std::to_string(c.after)});
        table.Print(stdout, "");
    }
    const std::string count = changes.empty()            ? std::string("no chunk offset")
                              : changes.size() == 1 ? std::string("1 chunk offset")
                                                    : std::to_string(changes.size()) + " chunk offsets";
    std::printf("%s %s\n", count.c_str(), dryRun ? "would change; the movie was left as it is" : "changed");
}

} // namespace

int RunFix(const std::string& path, bool dryRun)
{
    const OpenedMovie opened = OpenMovieFile(path);
    if (!opened.movie) {
        ReportError(path + ": " + OpenFailureText(opened.code));
        return kExitFailed;
    }
    if (!dryRun && ::access(path.c_str(), W_OK) != 0) {
        ReportError(path + ": cannot write to the file");
        return kExitFailed;
    }
    const std::optional<TopLevelLayout> layout = ScanTopLevel(path);
    const std::optional<std::vector<std::uint8_t>> before = layout ? ReadMovieAtom(path, *layout) : std::nullopt;
    if (!before) {
        ReportError(path + ": cannot read the movie atom");
        return kExitFailed;
    }

    TempDirectory directory;
    std::string target = path;
    if (dryRun) {
        if (directory.Path().empty()) {
            ReportError("cannot make a temporary directory");
            return kExitFailed;
        }
        target = directory.Path() + "/" + std::filesystem::path(path).filename().string();
        if (!WriteSparseCopy(path, *layout, target)) {
            ReportError(path + ": cannot make a temporary copy");
            return kExitFailed;
        }
    }

    QT::MakeFixer()->FixMovie(ToString16(target));

    const std::optional<std::vector<std::uint8_t>> after = ReadMovieAtom(target, *layout);
    if (!after) {
        ReportError(target + ": cannot read the movie atom after the repair");
        return kExitFailed;
    }
    const std::vector<ChunkOffsetTable> tables = FindChunkOffsetTables(*before);
    const std::vector<Change> changes = Compare(tables, *before, *after);
    PrintChanges(changes, dryRun);
    if (const std::size_t other = OtherChangedBytes(changes, *before, *after); other != 0)
        ReportError(std::to_string(other) + " further bytes of the movie atom changed outside the chunk offset tables");
    return kExitOk;
}

} // namespace atomscan_tool
