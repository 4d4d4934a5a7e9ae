// The subcommands. Each gives the process's exit status.
#pragma once

#include <string>
#include <vector>

#include "dump/DumpFields.h"

namespace atomscan_tool {

// Exit statuses shared by the commands.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// `scan` has statuses of its own: 1 for a usage error or when no path given
// exists, 2 when --fail-on names a finding that was found.
constexpr int kScanExitNoPath = 1;
constexpr int kScanExitUsage = 1;
constexpr int kScanExitFound = 2;

struct ScanOptions {
    std::vector<std::string> paths;
    bool json = false;
    unsigned jobs = 1;                    // files examined at once
    bool failOnMissingReferences = false; // --fail-on missing-refs
    bool failOnDamaged = false;           // --fail-on damaged
};

// A readable summary of each movie, or with `json` its dump (an array of
// dumps for several movies). 1 when a movie did not open.
int RunInfo(const std::vector<std::string>& paths, bool json, const DumpOptions& options);
// The dump of one movie. 1 when it did not open.
int RunDump(const std::string& path, const DumpOptions& options);
// The files the movie references, found or missing. 1 when one is missing.
int RunRefs(const std::string& path);
struct FixOptions {
    std::string path;
    bool dryRun = false;  // mend a stand-in and show what would change
    std::string output;   // mend a copy that becomes this file; the movie stays as it is
    bool backup = false;  // keep a copy of the movie as MOVIE.orig, then mend it in place
};

// Mends damaged chunk offsets: in place, in a copy, or (a dry run) in a
// stand-in. 1 when the movie does not open or a file cannot be written.
int RunFix(const FixOptions& options);

// Every file under the paths, a line each (a table, or JSON Lines), then a summary.
int RunScan(const ScanOptions& options);

// One line on standard error: "atomscan: " and the message.
void ReportError(const std::string& message);

} // namespace atomscan_tool
