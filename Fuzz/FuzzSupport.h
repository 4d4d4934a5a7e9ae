// Shared by the fuzz targets: each input becomes a file of this process.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Inc/AtomscanTypes.h"

namespace fuzz {

// Writes the input to this process's scratch file and gives its path.
QT::String16 WriteInput(const std::uint8_t* data, std::size_t size);
const char* ScratchPath();

} // namespace fuzz
