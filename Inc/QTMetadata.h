// Values of the movie's key/value metadata.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include <boost/variant.hpp>

#include "API/Inc/PeltBinaryData.h"
#include "Inc/AtomscanTypes.h"

namespace QT {

// Alternatives in this order: binary (type 0), 8-bit string (1), 16-bit
// string (2), signed 32-bit (21; 22 of 1 or 2 bytes), unsigned 32-bit (22 of
// 4 bytes), float (23), double (24).
using MetadataVariant = boost::variant<Pelt::BinaryData, std::string, String16, std::int32_t, std::uint32_t, float, double>;

struct MetadataValue {
    std::uint32_t mDataType = 0; // the data type code as stored
    MetadataVariant mValue;
};

// Keys are raw bytes, ordered byte by byte (unsigned), shorter first on a tie.
using MetadataMap = std::map<std::string, MetadataValue>;

} // namespace QT
