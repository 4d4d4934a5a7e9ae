// The `dump` document: everything the library tells about one movie, as JSON.
#pragma once

#include <string>

#include "DumpFields.h"
#include "Inc/IQTMovie.h"
#include "JsonWriter.h"

namespace atomscan_tool {

// Opens `path` and writes its document; gives the open's result code.
QT::ResultCode WriteDump(JsonWriter& w, const std::string& path, const DumpOptions& options);

// The sections, each written as the value of a key the caller has written.
void WriteMovieSection(JsonWriter& w, QT::IQTMovie& movie);
void WriteTrackSection(JsonWriter& w, QT::IQTTrack& track, const DumpContext& context);

} // namespace atomscan_tool
