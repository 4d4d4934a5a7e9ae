// The one header a test includes: the library, the builders and the corpus, and
// opening movies, built or from the corpus, whole or for one track.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <tuple>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Inc/AtomscanInternal.h"
#include "Inc/ExternalReferences.h"
#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Inc/IQTMovieFixer.h"
#include "Src/ExternalReferences.h"
#include "Src/QTTrack.h"
#include "Tests/Support/FakeVolumes.h"
#include "Tests/Support/MovieBuilder.h"

namespace testsupport {

// The real movies in the test data, with what an independent parser read from them.
inline std::filesystem::path CorpusDir() { return TestDataDir() / "corpus"; }

inline std::filesystem::path CorpusMovie(const std::string& name) { return CorpusDir() / (name + ".mov"); }

// The independent parser's report (streams and packets).
inline nlohmann::json Probe(const std::string& name)
{
    std::ifstream in(CorpusDir() / (name + ".ffprobe.json"));
    return nlohmann::json::parse(in);
}

using Change = std::function<void(TrackPlan&)>; // a change to a built track

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

// A track of a movie that opened, and the file it came from, kept while the object lives.
struct OpenedTrack {
    std::unique_ptr<TempFile> file;
    Tessel::InterfaceRef<QT::IQTTrack> track;
    // The object behind the interface, for its members outside the interface.
    QT::QTTrack& Core() const { return static_cast<QT::QTTrack&>(*track); }
};

inline OpenedTrack OpenTrackOf(const Bytes& bytes, std::uint64_t index = 0)
{
    OpenedTrack o{std::make_unique<TempFile>(bytes), {}};
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    if (QT::MakeParser()->OpenMovie(o.file->Path16(), movie) != QT::kResultSuccess)
        throw std::runtime_error("the movie does not open: " + o.file->Path().string());
    o.track = movie->GetIndTrack(index);
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

using namespace testsupport;
