// Opening built movies in tests.
#pragma once

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Tests/Support/MovieBuilder.h"

namespace testsupport {

struct OpenResult {
    QT::ResultCode code = 0;
    Tessel::InterfaceRef<QT::IQTMovie> movie;
};

// Writes `bytes` to a temporary file and opens it; the file is gone afterwards.
inline OpenResult OpenBytes(const Bytes& bytes)
{
    TempFile file(bytes);
    OpenResult r;
    r.code = QT::MakeParser()->OpenMovie(file.Path16(), r.movie);
    return r;
}

inline OpenResult OpenPlan(const MoviePlan& plan) { return OpenBytes(BuildMovieFile(plan)); }

// The movie's track `index`, or a failed test.
inline Tessel::InterfaceRef<QT::IQTTrack> TrackOf(const MoviePlan& plan, std::uint64_t index = 0)
{
    OpenResult r = OpenPlan(plan);
    if (r.code != 0 || !r.movie) return {};
    return r.movie->GetIndTrack(index);
}

} // namespace testsupport
