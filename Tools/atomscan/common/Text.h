// Text forms shared by the commands: codes, four-character codes, bytes,
// strings of the library, durations and timecodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Inc/AtomscanTypes.h"

namespace atomscan_tool {

QT::String16 ToString16(const std::string& utf8);
// Unpaired surrogates become U+FFFD.
std::string ToUtf8(const QT::String16& text);

// "0x%08x", lowercase.
std::string CodeText(std::uint32_t code);
// The four characters when all are printable ASCII, else the code as "0x%08x".
std::string FourCCText(QT::FourCC code);
// As FourCCText, but the copyright sign of classic user data types shows as such.
std::string FourCCDisplay(QT::FourCC code);
// Lowercase hex; "" for no bytes.
std::string HexText(const std::uint8_t* data, std::size_t size);
bool IsValidUtf8(std::string_view bytes);
// The bytes themselves when they are UTF-8, else "hex:" and the bytes in hex.
std::string Bytes8Text(std::string_view bytes);

// `units` of `scale` a second as h:mm:ss.fff, rounded to the millisecond;
// "-" for a scale of 0.
std::string ClockText(std::uint64_t units, std::uint32_t scale);

// A frame number as HH:MM:SS:FF at `framesPerSecond` (taken modulo 24 hours),
// or with `dropFrame` as the drop-frame count HH:MM:SS;FF. Nothing without a rate.
std::optional<std::string> TimecodeText(std::int64_t frame, std::uint32_t framesPerSecond, bool dropFrame);

} // namespace atomscan_tool
