// Opening built movies in tests, whole or for one track.
#pragma once

#include <gtest/gtest.h>

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

// The track keeps the movie's store alive; the file is gone when this returns.
inline Tessel::InterfaceRef<QT::IQTTrack> OpenTrack(const MoviePlan& plan, std::uint64_t index = 0)
{
    const OpenResult r = OpenPlan(plan);
    EXPECT_EQ(r.code, QT::kResultSuccess);
    if (r.code != QT::kResultSuccess || !r.movie) return {};
    return r.movie->GetIndTrack(index);
}

// A movie of one track.
inline Tessel::InterfaceRef<QT::IQTTrack> OpenTrack(const TrackPlan& track)
{
    MoviePlan plan;
    plan.tracks = {track};
    return OpenTrack(plan);
}

} // namespace testsupport
