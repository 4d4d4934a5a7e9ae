// The movie offers its metadata by key only; the keys themselves come from
// the `keys` atom, which a host reads out of the movie atom's children.
#pragma once

#include <set>
#include <string>

#include "Inc/IQTMovie.h"

namespace atomscan_tool {

// Every key that the `keys` atom of the movie's `meta` child (or a `keys`
// atom directly in the movie atom) names, and the empty key, in the order of
// the metadata map. Keys whose entries run past the end of `meta` are not
// found; the library's map may hold fewer keys, never more.
std::set<std::string> MetadataKeyCandidates(QT::IQTMovie& movie);

} // namespace atomscan_tool
