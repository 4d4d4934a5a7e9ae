// The cells of `info`: one track in a row, and short forms of values.
#pragma once

#include <cstdint>
#include <string>

#include "API/Inc/PeltBinaryData.h"
#include "Inc/QTTrack.h"

namespace atomscan_tool {

struct TrackSummary {
    std::string type;     // media type
    std::string enabled;  // yes / no
    std::string codec = "-"; // the description's format code
    std::string format;   // size, or rate/channels/format, or timecode start, or caption data
    std::string samples;  // frames (sound: sample frames) the edit shows
    std::string rate;     // frames a second
    std::string edit;     // where the edit starts in the media (or that it is empty) and how long it lasts
};

// `moviePath`: the movie's file, for the two places where a host reads it.
TrackSummary SummarizeTrack(QT::IQTTrack& track, std::uint32_t movieTimeScale, const std::string& moviePath);

// A number with at most two decimals and no trailing zeros.
std::string FormatNumber(double value);
// UTF-8 text in quotes, control characters shown as dots.
std::string QuotedText(const std::string& utf8);
// Printable text in quotes, else the first bytes in hex.
std::string BytesPreview(const std::uint8_t* data, std::size_t size);
// A user data item: the text of a classic item (length, language, text), else a preview.
std::string UserDataPreview(std::uint32_t type, const Pelt::BinaryData& data);

} // namespace atomscan_tool
