// `atomscan dump MOVIE`.
#include <cstdio>

#include "Commands.h"
#include "Dump.h"
#include "MovieFile.h"

namespace atomscan_tool {

void ReportError(const std::string& message) { std::fprintf(stderr, "atomscan: %s\n", message.c_str()); }

int RunDump(const std::string& path, const DumpOptions& options)
{
    JsonWriter w(stdout);
    const QT::ResultCode code = WriteDump(w, path, options);
    w.Finish();
    if (code == QT::kResultSuccess) return kExitOk;
    ReportError(path + ": " + OpenFailureText(code));
    return kExitFailed;
}

} // namespace atomscan_tool
