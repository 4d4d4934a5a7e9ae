#include "Fuzz/FuzzSupport.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

namespace fuzz {

const char* ScratchPath()
{
    static const std::string path = [] {
        const char* dir = std::getenv("TMPDIR");
        return std::string(dir && *dir ? dir : "/tmp") + "/atomscan-fuzz-" + std::to_string(::getpid()) + ".mov";
    }();
    return path.c_str();
}

QT::String16 WriteInput(const std::uint8_t* data, std::size_t size)
{
    FILE* f = std::fopen(ScratchPath(), "wb");
    if (!f) std::abort();
    if (size && std::fwrite(data, 1, size, f) != size) std::abort();
    std::fclose(f);
    return vellum::utility::UTF8to16(ScratchPath(), nullptr, nullptr);
}

} // namespace fuzz
