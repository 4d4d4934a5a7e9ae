// The repair object: mends damaged chunk offsets of a movie file in place.
#pragma once

#include "Inc/AtomscanTypes.h"

namespace QT {

inline constexpr TesselIID kIID_IQTMovieFixer = {{0xd8, 0x38, 0x2a, 0x6f, 0x5a, 0x9b, 0x92, 0x44, 0x9c, 0xd4, 0xda, 0x5e, 0xcb, 0xb3, 0x09, 0xe6}};

class IQTMovieFixer : public TesselUnknown {
public:
    // Mends, in the file at `path`, the chunk offsets of the first enabled
    // video track that lie beyond the end of the file because their
    // high-order bytes are wrong. Nothing else in the file changes, nor its
    // length. Always 0, whether anything was mended or not.
    virtual ResultCode FixMovie(String16 path) = 0;
};

ATOMSCAN_EXPORT Tessel::InterfaceRef<IQTMovieFixer> MakeFixer();

} // namespace QT
