// What `scan` prints: a line per file (a table row, or a JSON object), and
// the summary at the end.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "scan/Examine.h"
#include "scan/Walk.h"

namespace atomscan_tool {

// The keys of the JSON lines, for --help.
std::string ScanJsonKeysText();

// One line of JSON Lines, with its newline.
std::string ScanJsonLine(const ScanRecord& record);

// What the summary counts and names, in the order of the records.
struct ScanSummary {
    std::size_t movies = 0, notMovies = 0, unreadable = 0, skipped = 0;
    std::size_t foldersRead = 0, foldersSeenAgain = 0;
    std::vector<std::pair<std::string, std::size_t>> tracksByCodec; // most first
    long double seconds = 0;                                        // movies' durations
    std::vector<const ScanRecord*> withMissingReferences, withOffsetsBeyondEnd;
};

ScanSummary Summarize(const std::vector<ScanRecord>& records, const WalkResult& walk);

// The table of movies and of files that are not movies, then the summary.
void PrintScanText(std::FILE* out, const std::vector<ScanRecord>& records, const ScanSummary& summary);
// The last line of JSON Lines: {"summary": {...}}.
std::string ScanJsonSummaryLine(const ScanSummary& summary);

} // namespace atomscan_tool
