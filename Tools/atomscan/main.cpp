// atomscan: what a movie holds, from the command line.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "scan/Report.h"

using namespace atomscan_tool;

void atomscan_tool::ReportError(const std::string& message) { std::fprintf(stderr, "atomscan: %s\n", message.c_str()); }

int main(int argc, char** argv)
{
    CLI::App app{"atomscan: read QuickTime movies through the atomscan library.\n"
                 "Exit status: 0 success, 1 failure (a movie that does not open, a missing reference), "
                 "2 usage error ('scan' has statuses of its own).\n"
                 "Run 'atomscan COMMAND --help' for the options of each command.",
                 "atomscan"};
    app.set_version_flag("--version", ATOMSCAN_VERSION);
    app.require_subcommand(1);

    std::vector<std::string> infoPaths;
    bool infoJson = false;
    bool infoNoTables = false;
    CLI::App* info = app.add_subcommand("info", "A readable summary of each movie");
    info->add_option("MOVIE", infoPaths, "Movie files")->required();
    info->add_flag("--json", infoJson, "Print the dump of each movie instead (an array for several movies)");
    info->add_flag("--no-tables", infoNoTables, "With --json: per-sample tables as null");

    std::string dumpPath;
    bool dumpNoTables = false;
    CLI::App* dump = app.add_subcommand("dump", "Everything the library tells about a movie, as JSON");
    dump->add_option("MOVIE", dumpPath, "Movie file")->required();
    dump->add_flag("--no-tables", dumpNoTables, "Leave out the per-sample tables (their keys stay, as null)");
    dump->footer("Exit status: 0 when the movie opened, 1 when it did not (the JSON has \"movie\": null), "
                 "2 for a usage error.");

    std::string refsPath;
    CLI::App* refs = app.add_subcommand("refs", "The files a reference movie uses, found or missing");
    refs->add_option("MOVIE", refsPath, "Movie file")->required();
    refs->footer("Prints one line for each external file: \"found\" or \"missing\", then its path. A "
                 "self-contained movie prints nothing.\n"
                 "Exit status: 0 when every file is found, 1 when one is missing, the references cannot be "
                 "read or the movie does not open.");

    FixOptions fixOptions;
    CLI::App* fix = app.add_subcommand("fix", "Mend chunk offsets whose high-order bytes are damaged");
    fix->add_option("MOVIE", fixOptions.path, "Movie file")->required();
    CLI::Option* fixDryRun = fix->add_flag(
        "--dry-run", fixOptions.dryRun, "Mend a temporary copy and show what would change; MOVIE stays as it is");
    CLI::Option* fixOutput = fix->add_option(
        "-o,--output", fixOptions.output, "Write the mended movie to OUT (replacing it) and leave MOVIE as it is");
    fix->add_flag("--backup", fixOptions.backup, "Keep a copy of MOVIE as MOVIE.orig, then mend MOVIE in place")
        ->excludes(fixDryRun)
        ->excludes(fixOutput);
    fixOutput->excludes(fixDryRun);
    fix->footer("The library mends the chunk offsets of the first enabled video track that lie past the end of "
                "the file.\n"
                "Without --output, --backup or --dry-run it writes into MOVIE itself, in place.\n"
                "--output and --backup never leave a half-written file: the copy is made in a temporary file "
                "beside its final name, mended and flushed there, and only then renamed into place; on a failure "
                "or an interruption it is removed. --backup does not replace an existing MOVIE.orig.\n"
                "Prints each chunk offset entry that changed: the track's index, the table, the entry's index, "
                "the old and the new value.\n"
                "Exit status: 0 when the repair ran, also on a movie that the other commands refuse; 1 when the "
                "file holds no movie atom or a file cannot be written.");

    ScanOptions scanOptions;
    scanOptions.jobs = std::max(1u, std::thread::hardware_concurrency());
    std::string scanFailOn;
    CLI::App* scan = app.add_subcommand("scan", "Every movie under folders and files, a line each, and a summary");
    scan->add_option("PATH", scanOptions.paths, "Files and folders (folders are read recursively)")->required();
    scan->add_flag("--json", scanOptions.json, "JSON Lines: one object per file, then the summary");
    scan->add_option("-j,--jobs", scanOptions.jobs, "Files examined at once (default: the number of cores)")
        ->check(CLI::Range(1u, 1024u));
    scan->add_option("--fail-on", scanFailOn, "Exit 2 when a movie has missing files (missing-refs) or chunk "
                                              "offsets beyond the end of the file (damaged); both: missing-refs,damaged")
        ->check(CLI::Validator(
            [&scanOptions](std::string& value) -> std::string {
                for (std::size_t from = 0; from <= value.size();) {
                    const std::size_t comma = std::min(value.find(',', from), value.size());
                    const std::string finding = value.substr(from, comma - from);
                    if (finding == "missing-refs") scanOptions.failOnMissingReferences = true;
                    else if (finding == "damaged") scanOptions.failOnDamaged = true;
                    else return "'" + finding + "' is neither missing-refs nor damaged";
                    from = comma + 1;
                }
                return {};
            },
            "missing-refs,damaged"));
    scan->footer("Opens every regular file (links are followed, each real folder is read once) and never writes. "
                 "FIFOs, sockets and devices are not opened: they are counted as skipped. Prints one line per "
                 "file, sorted by path, in a table of movies and files that are not movies, then a summary: "
                 "movies read, files that are not movies, files that could not be read and why, files skipped, "
                 "tracks by codec, total duration, reference movies with missing files and the paths they name, "
                 "and movies whose frames start beyond the end of the file (damaged chunk offsets, which "
                 "'atomscan fix' mends in the first enabled video track).\n"
                 "With --json each line is an object with the keys " + ScanJsonKeysText() + "\n"
                 "While it runs, a progress line on standard error when that is a terminal.\n"
                 "Exit status (not that of the other commands): 0 when the scan ran, whatever it found; 1 for a "
                 "usage error or when no path given exists; 2 when --fail-on names a finding that was found.");

    // A usage error of `scan` exits with its own status.
    const bool scanning = argc > 1 && std::string(argv[1]) == "scan";
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e); // --help, --version
    } catch (const CLI::ParseError& e) {
        ReportError(std::string(e.what()) + (scanning ? " (see atomscan scan --help)" : " (see atomscan --help)"));
        return scanning ? kScanExitUsage : kExitUsage;
    }

    try {
        if (*info) return RunInfo(infoPaths, infoJson, DumpOptions{!infoNoTables});
        if (*dump) return RunDump(dumpPath, DumpOptions{!dumpNoTables});
        if (*refs) return RunRefs(refsPath);
        if (*fix) return RunFix(fixOptions);
        if (*scan) return RunScan(scanOptions);
    } catch (const std::exception& e) {
        ReportError(e.what());
        return kExitFailed;
    } catch (...) {
        ReportError("an unexpected failure");
        return kExitFailed;
    }
    return kExitUsage;
}
