// Types, codes and constants shared across the library's boundary.
#pragma once

#include <cstdint>

#include "Tessel/TesselFoundation.h"

#define ATOMSCAN_EXPORT __attribute__((visibility("default")))

namespace QT {

using FourCC = std::uint32_t;
using ResultCode = std::uint32_t;
using String16 = vellum::utility::String16;

// A four-character code: first character in the top byte.
constexpr FourCC MakeFourCC(const char (&text)[5])
{
    return (static_cast<FourCC>(static_cast<unsigned char>(text[0])) << 24) |
           (static_cast<FourCC>(static_cast<unsigned char>(text[1])) << 16) |
           (static_cast<FourCC>(static_cast<unsigned char>(text[2])) << 8) |
           static_cast<FourCC>(static_cast<unsigned char>(text[3]));
}

constexpr FourCC kVideoMediaType = MakeFourCC("vide");
constexpr FourCC kAudioMediaType = MakeFourCC("soun");
constexpr FourCC kTimecodeMediaType = MakeFourCC("tmcd");
constexpr FourCC kTextMediaType = MakeFourCC("text");
constexpr FourCC kClosedCaptionMediaType = MakeFourCC("clcp");
constexpr FourCC kUnknownMediaType = MakeFourCC("unkn");

constexpr ResultCode kResultSuccess = 0;
constexpr ResultCode kResultNotAMovie = 0xa0800001u;          // the file is no movie that can be read
constexpr ResultCode kResultCannotOpen = 0xa0800004u;         // the file could not be opened
constexpr ResultCode kResultEditListNotSimple = 0xa0800005u;  // the edit list is not simple enough
constexpr ResultCode kResultAudioShape = 0xa0800006u;         // audio the range map cannot describe
constexpr ResultCode kResultBadSampleTables = 0xa0800007u;    // sample tables absent or invalid
constexpr ResultCode kResultImageDescriptionItem = 0xa0800008u; // image description item absent or malformed
constexpr ResultCode kResultNoInterface = 0xa00a0001u;        // interface identifier not supported
constexpr ResultCode kResultCaptionTables = 0xa00f0001u;      // caption sample tables unusable
constexpr ResultCode kResultNotFound = 0xffffffffu;           // not found, or a walk failed

// Left, top, right, bottom.
struct QTRect {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;
};

} // namespace QT
