// The sections of the dump document, each written as the value of a key the
// caller has written.
#pragma once

#include <string>

#include "Inc/AtomscanInternal.h"
#include "Inc/IQTMovie.h"
#include "dump/DumpFields.h"
#include "dump/DumpJson.h"
#include "dump/JsonWriter.h"

namespace atomscan_tool {

// Opens `path` and writes its document as the next value of `w`, which may
// stand inside an array of documents; gives the open's result code, and why
// the file was refused in `outRefusal` unless it is null.
QT::ResultCode WriteDump(JsonWriter& w, const std::string& path, const DumpOptions& options,
                         QT::internal::OpenRefusal* outRefusal = nullptr);

// The "refused" object: {"rule", "track", "atom", "offset"}, null where the
// refusal does not say.
void WriteRefusal(JsonWriter& w, const QT::internal::OpenRefusal& refusal);

void WriteMovieSection(JsonWriter& w, QT::IQTMovie& movie);
void WriteTrackSection(JsonWriter& w, QT::IQTTrack& track, const DumpContext& context);
// {"result", "refs": [ExtRef...]} in map order.
void WriteExternalReferences(JsonWriter& w, bool result, const QT::ExternalReferenceMap& references);
void WriteReferencesSection(JsonWriter& w, Tessel::InterfaceRef<QT::IQTMovie>& movie, const DumpContext& context);
// Sections of a track by its media kind.
void WriteVideoSection(JsonWriter& w, QT::IQTTrack& track, const DumpContext& context);
void WriteAudioSection(JsonWriter& w, QT::IQTTrack& track, const DumpContext& context);
void WriteTimecodeSection(JsonWriter& w, QT::IQTTrack& track, const DumpContext& context);
void WriteCaptionSection(JsonWriter& w, QT::IQTTrack& track, QT::FourCC format, const DumpContext& context);

} // namespace atomscan_tool
