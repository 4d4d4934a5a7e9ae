// The facts of a movie that `info` prints and `scan` reports, under one set of
// names; and short forms of values for `info`.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "API/Inc/PeltBinaryData.h"
#include "Inc/IQTMovie.h"
#include "Inc/QTTrack.h"

namespace atomscan_tool {

// A fact's name: its key in JSON and its heading or label in text.
struct FactName {
    const char* key;
    const char* heading;
};

enum MovieFact : std::size_t { kFactPath, kFactTimeScale, kFactDuration, kFactBounds, kFactTracks, kMovieFactCount };
inline constexpr std::array<FactName, kMovieFactCount> kMovieFacts = {
    {{"path", "path"}, {"timeScale", "time scale"}, {"duration", "duration"}, {"bounds", "bounds"}, {"tracks", "tracks"}}};

enum TrackFact : std::size_t {
    kFactType, kFactEnabled, kFactCodec, kFactFormat, kFactFrames, kFactRate, kFactEdit, kTrackFactCount
};
inline constexpr std::array<FactName, kTrackFactCount> kTrackFacts = {
    {{"type", "type"}, {"enabled", "enabled"}, {"codec", "codec"}, {"format", "format"}, {"frames", "frames"},
     {"rate", "rate"}, {"edit", "edit"}}};

struct TrackSummary {
    QT::FourCC type = 0;
    bool enabled = false;
    std::optional<QT::FourCC> codec;     // the description's format code
    std::string format;                  // size, or rate/channels/format, or timecode start, or caption data
    std::optional<std::uint64_t> frames; // frames (sound: sample frames) the edit shows
    std::optional<double> rate;          // frames a second
    bool dropFrame = false;              // the rate is counted in drop frame
    std::string edit;                    // where the edit starts in the media (or that it is empty) and how long it lasts
};

// `moviePath`: the movie's file, for the two places where a host reads it.
TrackSummary SummarizeTrack(QT::IQTTrack& track, std::uint32_t movieTimeScale, const std::string& moviePath);

// The cells of a track's row, in the order of `kTrackFacts`.
std::array<std::string, kTrackFactCount> TrackCells(const TrackSummary& summary);

struct MovieSummary {
    std::uint32_t timeScale = 0;
    std::uint32_t duration = 0;
    QT::QTRect bounds{};
    std::vector<TrackSummary> tracks;
};

MovieSummary SummarizeMovie(QT::IQTMovie& movie, const std::string& moviePath);

// A number with at most two decimals and no trailing zeros.
std::string FormatNumber(double value);
// UTF-8 text in quotes, control characters shown as dots.
std::string QuotedText(const std::string& utf8);
// Printable text in quotes, else the first bytes in hex.
std::string BytesPreview(const std::uint8_t* data, std::size_t size);
// A user data item: the text of a classic item (length, language, text), else a preview.
std::string UserDataPreview(std::uint32_t type, const Pelt::BinaryData& data);

} // namespace atomscan_tool
