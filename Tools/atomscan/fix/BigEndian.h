// Big-endian numbers in bytes that the command reads itself.
#pragma once

#include <cstdint>

namespace atomscan_tool {

inline std::uint32_t BigEndian32(const std::uint8_t* p)
{
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}

inline std::uint64_t BigEndian64(const std::uint8_t* p)
{
    return (std::uint64_t{BigEndian32(p)} << 32) | BigEndian32(p + 4);
}

} // namespace atomscan_tool
