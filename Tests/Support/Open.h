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
#include <sstream>
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

// The cases of a data file beside the tests (Tests/Data/<name>), each placeholder of its text replaced.
inline nlohmann::json DataRows(const std::string& name,
                               const std::vector<std::pair<std::string, std::string>>& places = {})
{
    std::stringstream in;
    in << std::ifstream(TestDataDir() / name).rdbuf();
    std::string text = in.str();
    for (const auto& [key, value] : places)
        for (std::size_t at; (at = text.find(key)) != std::string::npos;) text.replace(at, key.size(), value);
    return nlohmann::json::parse(text)["cases"];
}
// File offset of the `nth` header of `type` in `file`, found by its four characters.
inline std::optional<std::uint64_t> HeaderAt(const Bytes& file, const std::string& type, int nth)
{
    for (std::size_t at = 4; at + 4 <= file.size(); ++at)
        if (std::equal(type.begin(), type.end(), file.begin() + at) && nth-- == 0) return at - 4;
    return std::nullopt;
}
// A result code written as in the dumps ("0xa0800007").
inline QT::ResultCode CodeOf(const nlohmann::json& hex) { return std::stoul(hex.get<std::string>(), nullptr, 16); }

// A change to a built track as data: its tables (entries as arrays), `duration`, `edits`, `sound` (format,
// channels, bits, version; version 2 adds flags and bytes per packet) and `replace`, children of `stbl` given
// as a type and the 32-bit words of the payload.
inline void Apply(const nlohmann::json& change, TrackPlan& t)
{
    using Words = std::vector<std::uint32_t>;
    for (const auto& [key, v] : change.items()) {
        if (key == "stts") t.stts = v.get<decltype(t.stts)>();
        else if (key == "stsc") t.stsc = v.get<decltype(t.stsc)>();
        else if (key == "stco") t.stco = v.get<Words>();
        else if (key == "stsz") t.stszSizes = v.get<Words>();
        else if (key == "stszConstant") t.stszConstant = v.get<std::uint32_t>();
        else if (key == "co64") t.co64 = v.get<std::vector<std::uint64_t>>();
        else if (key == "edits") t.edits = v.get<std::vector<std::array<std::uint32_t, 3>>>();
        else if (key == "duration") t.duration = v.get<std::uint32_t>();
        else if (key == "sound" && v[3] == 2) t.descriptions = {SoundDescriptionV2(v[0].get<std::string>().c_str(),
                                                                                   48000, v[1], v[2], v[4], v[5])};
        else if (key == "sound") t.descriptions = {SoundDescriptionV0(v[0].get<std::string>().c_str(), v[1], v[2],
                                                                      48000u << 16, {}, v[3], v[3] == 1 ? 16 : 0)};
        else if (key == "replace") {
            for (const auto& [type, words] : v.get<std::vector<std::pair<std::string, Words>>>()) {
                ByteWriter w;
                for (std::uint32_t word : words) w.U32(word);
                t.replaceStbl.emplace_back(type, w.Take());
            }
        } else throw std::invalid_argument("no such change: " + key);
    }
}

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
