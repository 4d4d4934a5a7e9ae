// The external files of a reference movie, each with whether it can be found.
#pragma once

#include <string>
#include <vector>

#include "Inc/ExternalReferences.h"
#include "Inc/IQTMovie.h"

namespace atomscan_tool {

struct ReferenceStatus {
    QT::ExtRefData reference;
    bool found = false;
};

struct ReferenceReport {
    bool readable = true; // false: a track's references could not all be read
    std::vector<ReferenceStatus> references;
};

// Every reference of the movie, in map order, each validated on its own
// against the movie's absolute path.
ReferenceReport CheckReferences(Tessel::InterfaceRef<QT::IQTMovie>& movie, const std::string& absolutePath);

} // namespace atomscan_tool
