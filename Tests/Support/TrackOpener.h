// Opens a movie, built or from the corpus, and hands out one of its tracks
// together with the file it came from.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Src/QTTrack.h"
#include "Tests/Support/MovieBuilder.h"

namespace testsupport {

struct OpenedTrack {
    std::unique_ptr<TempFile> file; // null for a corpus movie
    std::filesystem::path path;
    Tessel::InterfaceRef<QT::IQTTrack> track;

    QT::String16 Path16() const { return ToString16(path.string()); }
    // The object behind the interface, for its members outside the interface.
    QT::QTTrack& Core() const { return static_cast<QT::QTTrack&>(*track); }
};

inline OpenedTrack OpenTrackAt(const std::filesystem::path& path, std::uint64_t index)
{
    OpenedTrack o;
    o.path = path;
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    if (QT::MakeParser()->OpenMovie(ToString16(path.string()), movie) != QT::kResultSuccess)
        throw std::runtime_error("the movie does not open: " + path.string());
    o.track = movie->GetIndTrack(index);
    return o;
}

// Writes `bytes` to a temporary file and opens track `index` of it.
inline OpenedTrack OpenTrackOf(const Bytes& bytes, std::uint64_t index = 0)
{
    auto file = std::make_unique<TempFile>(bytes);
    OpenedTrack o = OpenTrackAt(file->Path(), index);
    o.file = std::move(file);
    return o;
}

inline OpenedTrack OpenTrackOf(const TrackPlan& track, std::uint32_t movieTimeScale = 600)
{
    MoviePlan movie;
    movie.timeScale = movieTimeScale;
    movie.tracks = {track};
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
