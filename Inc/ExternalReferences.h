// The files that a track's `alis` data references name.
#pragma once

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

} // namespace QT
