// An open movie.
#pragma once

#include <cstdint>
#include <string>

#include "API/Inc/PeltBinaryData.h"
#include "Inc/AtomscanTypes.h"
#include "Inc/QTMetadata.h"
#include "Inc/QTTrack.h"

namespace QT {

inline constexpr TesselIID kIID_IQTMovie = {{0x63, 0x31, 0xa2, 0x1f, 0xf7, 0xc2, 0x0d, 0x4a, 0xa2, 0xc4, 0x70, 0xb2, 0x3d, 0xa6, 0x66, 0xa0}};

class IQTMovie : public TesselUnknown {
public:
    // The union of all track rectangles and the origin.
    virtual void GetBounds(QTRect& outBounds) = 0;
    // A new track object at each call. Contract: inWhichTrack < GetTrackCount().
    virtual Tessel::InterfaceRef<IQTTrack> GetIndTrack(std::uint64_t inWhichTrack) = 0;
    virtual std::uint32_t GetTimeScale() = 0;
    virtual std::uint32_t GetDuration() = 0;
    virtual std::uint32_t GetTrackCount() = 0;
    virtual std::uint32_t GetPosterTime() = 0;
    // Size of the movie atom, header included.
    virtual std::uint64_t GetMovieAtomSize() = 0;
    virtual std::uint32_t GetUserDataCount() = 0;
    virtual void GetUserData(std::uint32_t inIndex, Pelt::BinaryData& outData, std::uint32_t& outType) = 0;
    virtual bool GetUserDataByType(FourCC inType, Pelt::BinaryData& outData) = 0;
    virtual bool GetMetadataValue(std::string inKey, MetadataValue& outValue) = 0;
    // Content of the first direct child of the movie atom of this type: 0, or kResultNotFound.
    virtual std::uint32_t GetChildAtom(FourCC inType, Pelt::BinaryData& outData) = 0;
};

} // namespace QT
