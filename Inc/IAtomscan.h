// The parser: the host's way in.
#pragma once

#include "Inc/AtomscanTypes.h"

namespace QT {

class IQTMovie;

inline constexpr TesselIID kIID_IAtomscan = {{0x63, 0x31, 0xa2, 0x1f, 0xf7, 0xc2, 0x0d, 0x4a, 0xa2, 0xc4, 0x70, 0xb2, 0x3d, 0xa6, 0x66, 0xa0}};

class IAtomscan : public TesselUnknown {
public:
    // Opens the movie at `path` and delivers it in `outMovie`, which is written
    // only on success. 0, kResultNotAMovie or kResultCannotOpen.
    virtual ResultCode OpenMovie(String16 path, Tessel::InterfaceRef<IQTMovie>& outMovie) = 0;
    // The same, then searches the file's top level for `atomType`: `outFound`
    // tells whether it was found, with its offset and size.
    virtual ResultCode OpenMovieAndFindAtom(String16 path, Tessel::InterfaceRef<IQTMovie>& outMovie,
                                            FourCC atomType, bool& outFound, std::uint64_t& outOffset,
                                            std::uint64_t& outSize) = 0;
};

ATOMSCAN_EXPORT Tessel::InterfaceRef<IAtomscan> MakeParser();

} // namespace QT
