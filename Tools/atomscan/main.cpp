// atomscan: what a movie holds, from the command line.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Commands.h"

using namespace atomscan_tool;

void atomscan_tool::ReportError(const std::string& message) { std::fprintf(stderr, "atomscan: %s\n", message.c_str()); }

int main(int argc, char** argv)
{
    CLI::App app{"atomscan: read QuickTime movies through the atomscan library.\n"
                 "Exit status: 0 success, 1 failure (a movie that does not open, a missing reference), "
                 "2 usage error.\n"
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

    std::string fixPath;
    bool fixDryRun = false;
    CLI::App* fix = app.add_subcommand("fix", "Mend chunk offsets whose high-order bytes are damaged, in place");
    fix->add_option("MOVIE", fixPath, "Movie file")->required();
    fix->add_flag("--dry-run", fixDryRun, "Mend a temporary copy and show what would change; MOVIE stays as it is");
    fix->footer("The library mends the chunk offsets of the first enabled video track that lie past the end of "
                "the file.\n"
                "Prints each chunk offset entry that changed: the track's index, the table, the entry's index, "
                "the old and the new value.\n"
                "Exit status: 0 when the repair ran, also on a movie that the other commands refuse; 1 when the "
                "file holds no movie atom or cannot be written.");

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e); // --help, --version
    } catch (const CLI::ParseError& e) {
        ReportError(std::string(e.what()) + " (see atomscan --help)");
        return kExitUsage;
    }

    try {
        if (*info) return RunInfo(infoPaths, infoJson, DumpOptions{!infoNoTables});
        if (*dump) return RunDump(dumpPath, DumpOptions{!dumpNoTables});
        if (*refs) return RunRefs(refsPath);
        if (*fix) return RunFix(fixPath, fixDryRun);
    } catch (const std::exception& e) {
        ReportError(e.what());
        return kExitFailed;
    } catch (...) {
        ReportError("an unexpected failure");
        return kExitFailed;
    }
    return kExitUsage;
}
