// The document of `atomscan dump`: everything the library tells about one
// movie, as JSON. This is the one implementation of it, for the command and
// for any other caller (the static library `atomscan_dump`).
#pragma once

#include <cstdio>
#include <string>

#include "Inc/AtomscanInternal.h"
#include "Inc/AtomscanTypes.h"

namespace atomscan_tool {

struct DumpOptions {
    bool tables = true; // false: the per-sample tables are null
};

// Opens the movie at `path` (UTF-8) through the library and appends its whole
// document to `outJson`: what `atomscan dump` prints, byte for byte, closing
// newline included. Gives the open's result code; when it is not 0 the
// document holds "movie": null. Nothing is written on standard output.
QT::ResultCode WriteDumpJson(const std::string& path, const DumpOptions& options, std::string& outJson);

// The same document, written to `out` as it is made: a table of any length
// costs no more memory than one of its records. Why the library refused the
// file goes to `outRefusal` too, unless it is null.
QT::ResultCode WriteDumpJson(const std::string& path, const DumpOptions& options, std::FILE* out,
                             QT::internal::OpenRefusal* outRefusal = nullptr);

} // namespace atomscan_tool
