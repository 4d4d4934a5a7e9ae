// Opens a built movie through the parser and hands out one of its tracks.
#pragma once

#include <gtest/gtest.h>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Tests/Support/MovieBuilder.h"

namespace testsupport {

// The track keeps the movie's store alive; the file is gone when this returns.
inline Tessel::InterfaceRef<QT::IQTTrack> OpenTrack(const MoviePlan& plan, std::uint64_t index = 0)
{
    TempFile file(BuildMovieFile(plan));
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    const QT::ResultCode code = QT::MakeParser()->OpenMovie(file.Path16(), movie);
    EXPECT_EQ(code, QT::kResultSuccess);
    if (code != QT::kResultSuccess || !movie) return {};
    return movie->GetIndTrack(index);
}

// A movie of one track.
inline Tessel::InterfaceRef<QT::IQTTrack> OpenTrack(const TrackPlan& track)
{
    MoviePlan plan;
    plan.tracks = {track};
    return OpenTrack(plan);
}

} // namespace testsupport
