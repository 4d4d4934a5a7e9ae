// `atomscan dump MOVIE`.
#include <cstdio>

#include "Commands.h"
#include "common/MovieFile.h"
#include "dump/Dump.h"

namespace atomscan_tool {

int RunDump(const std::string& path, const DumpOptions& options)
{
    // As WriteDumpJson writes it, with the refusal kept for the error line.
    JsonWriter w(stdout);
    QT::internal::OpenRefusal refusal;
    const QT::ResultCode code = WriteDump(w, path, options, &refusal);
    w.Finish();
    if (code == QT::kResultSuccess) return kExitOk;
    ReportError(path + ": " + OpenFailureText(code, refusal));
    return kExitFailed;
}

} // namespace atomscan_tool
