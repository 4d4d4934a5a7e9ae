// `atomscan dump MOVIE`.
#include <cstdio>

#include "Commands.h"
#include "common/MovieFile.h"
#include "dump/DumpJson.h"

namespace atomscan_tool {

int RunDump(const std::string& path, const DumpOptions& options)
{
    const QT::ResultCode code = WriteDumpJson(path, options, stdout);
    if (code == QT::kResultSuccess) return kExitOk;
    ReportError(path + ": " + OpenFailureText(code));
    return kExitFailed;
}

} // namespace atomscan_tool
