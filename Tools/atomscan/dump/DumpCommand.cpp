// `atomscan dump MOVIE`.
#include <cstdio>

#include "Commands.h"
#include "common/MovieFile.h"
#include "dump/DumpJson.h"

namespace atomscan_tool {

int RunDump(const std::string& path, const DumpOptions& options)
{
    QT::internal::OpenRefusal refusal;
    const QT::ResultCode code = WriteDumpJson(path, options, stdout, &refusal);
    if (code == QT::kResultSuccess) return kExitOk;
    ReportError(path + ": " + OpenFailureText(code, refusal));
    return kExitFailed;
}

} // namespace atomscan_tool
