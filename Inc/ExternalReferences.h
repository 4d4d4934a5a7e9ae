// The files that a reference movie's `alis` data references name: listing
// them, and finding out whether each can be reached from here.
#pragma once

#include <cstdint>
#include <map>

#include "Inc/AtomscanTypes.h"

namespace QT {

// One external file, as an `alis` record describes it.
class ExtRefData {
public:
    // The file name of the record.
    String16 fileName;
    // The name of the directory that holds the file (tag 0); empty without one.
    String16 directoryName;
    // The volume's mount point (tag 19) followed by the path inside the volume
    // (tag 18) when both are present and not empty; else a copy of `fileName`.
    String16 fullPath;

    bool operator==(const ExtRefData&) const = default;
};

// External references keyed by `fullPath`. The caller owns the map; the
// operations that fill it only add, and an existing key keeps its first value.
using ExternalReferenceMap = std::map<String16, ExtRefData>;

// The single external file of a track, keyed by the index that
// IQTMovie::GetIndTrack takes. The caller owns the map; the listing adds to
// it and replaces the path of an index that is there already.
using TrackReferenceMap = std::map<std::uint32_t, String16>;

class IQTMovie;

// Sorts the tracks that have exactly one external file by media type:
// enabled video and sound tracks, and timecode tracks whether enabled or not.
// Other tracks, and tracks whose references can't be read, aren't listed.
// Throws Tessel::NullInterfaceException for an empty movie or track.
ATOMSCAN_EXPORT void GetExternalReferences(Tessel::InterfaceRef<IQTMovie>& movie,
                                           TrackReferenceMap& videoReferences,
                                           TrackReferenceMap& audioReferences,
                                           TrackReferenceMap& timecodeReferences);

// Adds every external file of the enabled tracks and of all timecode tracks,
// of any media type. False at the first track whose references can't be
// read; what was gathered before it stays in the map.
ATOMSCAN_EXPORT bool GetAllExternalReferences(Tessel::InterfaceRef<IQTMovie>& movie,
                                              ExternalReferenceMap& references);

// True if every reference can be found from here: by its stored path (on a
// mounted volume, a network path, or relative to the movie), or else beside
// the movie, in the named directory below it or in its own directory. A file
// found only beside the movie that is the movie itself doesn't count.
ATOMSCAN_EXPORT bool ValidateExternalReferences(const String16& moviePath, const ExternalReferenceMap& references);

} // namespace QT
