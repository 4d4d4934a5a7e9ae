#include "Src/Atomscan.h"

namespace QT {

ResultCode Atomscan::OpenMovie(String16 path, Tessel::InterfaceRef<IQTMovie>& outMovie)
{
    return Open(path, outMovie, nullptr);
}

ResultCode Atomscan::OpenMovieAndFindAtom(String16 path, Tessel::InterfaceRef<IQTMovie>& outMovie, FourCC atomType,
                                          bool& outFound, std::uint64_t& outOffset, std::uint64_t& outSize)
{
    const TopLevelSearch find{atomType, outFound, outOffset, outSize};
    return Open(path, outMovie, &find);
}

ResultCode Atomscan::Open(const String16& path, Tessel::InterfaceRef<IQTMovie>& outMovie, const TopLevelSearch* find)
{
    const OpenSettings settings{find ? Tessel::kFileShareRead : Tessel::kFileShareReadWrite, kParserGuard};
    return OpenMovieFile(path, settings, mOpen, outMovie, find);
}

Tessel::InterfaceRef<IAtomscan> MakeParser()
{
    return HandOut<IAtomscan>(MakeCounted<Atomscan>());
}

} // namespace QT
