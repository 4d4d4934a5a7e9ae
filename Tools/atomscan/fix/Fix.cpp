// `atomscan fix MOVIE [--dry-run | --output OUT | --backup]`: the library's
// repair, and what it changed.
#include <cstdio>
#include <string>

#include "Commands.h"
#include "common/TextTable.h"
#include "fix/Repair.h"

namespace atomscan_tool {

namespace {

// What became of the movie, after the count of changed offsets.
std::string OutcomeText(const FixOptions& options)
{
    if (options.dryRun) return "would change; the movie was left as it is";
    if (!options.output.empty()) return "changed in " + options.output + "; the movie was left as it is";
    if (options.backup) return "changed; the original is kept in " + options.path + ".orig";
    return "changed";
}

void PrintChanges(const FixReport& report, const std::string& outcome)
{
    const std::vector<MendedEntry>& changes = report.mended;
    if (!changes.empty()) {
        TextTable table({true, false, true, true, true});
        table.AddRow({"track", "table", "entry", "old", "new"});
        for (const MendedEntry& c : changes)
            table.AddRow({std::to_string(c.track), report.wide ? "co64" : "stco", std::to_string(c.index),
                          std::to_string(c.before), std::to_string(c.after)});
        table.Print(stdout, "");
    }
    const std::string count = changes.empty()            ? std::string("no chunk offset")
                              : changes.size() == 1 ? std::string("1 chunk offset")
                                                    : std::to_string(changes.size()) + " chunk offsets";
    std::printf("%s %s\n", count.c_str(), outcome.c_str());
}

} // namespace

int RunFix(const FixOptions& options)
{
    const FixReport report = RepairMovie(options);
    if (!report.error.empty()) {
        ReportError(report.error);
        return kExitFailed;
    }
    PrintChanges(report, OutcomeText(options));
    return kExitOk;
}

} // namespace atomscan_tool
