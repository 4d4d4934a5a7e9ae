// Opening movies in tests, built or from the corpus, whole or for one track.
#pragma once

#include <memory>
#include <stdexcept>

#include <gtest/gtest.h>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Src/QTTrack.h"
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

// A track of a movie that opened, and the file it came from, kept while the object lives.
struct OpenedTrack {
    std::unique_ptr<TempFile> file; // null for a corpus movie
    std::filesystem::path path;
    Tessel::InterfaceRef<QT::IQTTrack> track;

    QT::String16 Path16() const { return ToString16(path.string()); }
    // The object behind the interface, for its members outside the interface.
    QT::QTTrack& Core() const { return static_cast<QT::QTTrack&>(*track); }
};

inline OpenedTrack OpenTrackAt(const std::filesystem::path& path, std::uint64_t index = 0)
{
    OpenedTrack o{nullptr, path, {}};
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    if (QT::MakeParser()->OpenMovie(ToString16(path.string()), movie) != QT::kResultSuccess)
        throw std::runtime_error("the movie does not open: " + path.string());
    o.track = movie->GetIndTrack(index);
    return o;
}

inline OpenedTrack OpenTrackOf(const Bytes& bytes, std::uint64_t index = 0)
{
    auto file = std::make_unique<TempFile>(bytes);
    OpenedTrack o = OpenTrackAt(file->Path(), index);
    o.file = std::move(file);
    return o;
}

// A movie of one track, at `movieTimeScale`.
inline OpenedTrack OpenTrackOf(const TrackPlan& track, std::uint32_t movieTimeScale = 600)
{
    MoviePlan movie{movieTimeScale, 100, {track}, {}};
    return OpenTrackOf(BuildMovieFile(movie));
}

// `ftyp`, then `mdat` with `mdatPayload`, then the movie atom: the payload's
// first byte stands at kMdatPayloadStart, whatever the movie atom holds.
constexpr std::uint32_t kMdatPayloadStart = 28;
inline Bytes BuildMovieFileMediaFirst(const MoviePlan& plan, const Bytes& mdatPayload)
{
    return Concat({Atom("ftyp", ByteWriter().Code("qt  ").U32(0x200).Code("qt  ")), Atom("mdat", mdatPayload),
                   BuildMoov(plan)});
}

} // namespace testsupport
