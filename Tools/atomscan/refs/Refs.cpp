// `atomscan refs MOVIE`: the files the movie references, found or missing.
#include <cstdio>

#include "Commands.h"
#include "common/MovieFile.h"
#include "common/References.h"
#include "common/Text.h"

namespace atomscan_tool {

int RunRefs(const std::string& path)
{
    OpenedMovie opened = OpenMovieFile(path);
    if (!opened.movie) {
        ReportError(path + ": " + OpenFailureText(opened.code, opened.refusal));
        return kExitFailed;
    }
    const ReferenceReport report = CheckReferences(opened.movie, opened.absolutePath);
    bool allFound = true;
    for (const ReferenceStatus& r : report.references) {
        std::printf("%-7s  %s\n", r.found ? "found" : "missing", ToUtf8(r.reference.fullPath).c_str());
        allFound = allFound && r.found;
    }
    std::fflush(stdout);
    if (!report.readable) {
        ReportError(path + ": the data references of a track could not all be read");
        return kExitFailed;
    }
    return allFound ? kExitOk : kExitFailed;
}

} // namespace atomscan_tool
