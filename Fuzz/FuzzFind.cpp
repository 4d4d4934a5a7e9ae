// Bytes → a file → OpenMovieAndFindAtom with a type drawn from the input: its
// last four bytes, so that whole movies serve as seeds.
#include <cstring>

#include "Fuzz/FuzzSupport.h"
#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 4) return 0;
    QT::FourCC type = 0;
    for (std::size_t i = size - 4; i < size; ++i) type = (type << 8) | data[i];
    const QT::String16 path = fuzz::WriteInput(data, size - 4);
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    bool found = false;
    std::uint64_t offset = 0, atomSize = 0;
    const QT::ResultCode rc = QT::MakeParser()->OpenMovieAndFindAtom(path, movie, type, found, offset, atomSize);
    if (rc == QT::kResultSuccess && found && (atomSize < 9 || offset + atomSize < offset)) __builtin_trap();
    return 0;
}
