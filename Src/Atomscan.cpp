#include "Src/Atomscan.h"

#include "Inc/AtomscanInternal.h"

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

ResultCode Atomscan::Open(const String16& path, Tessel::InterfaceRef<IQTMovie>& outMovie, const TopLevelSearch* find,
                          RefusalPoint* refusal)
{
    const OpenSettings settings{find ? Tessel::kFileShareRead : Tessel::kFileShareReadWrite, kParserGuard};
    return OpenMovieFile(path, settings, mOpen, outMovie, find, refusal);
}

Tessel::InterfaceRef<IAtomscan> MakeParser()
{
    return HandOut<IAtomscan>(MakeCounted<Atomscan>());
}

namespace internal {

ResultCode OpenMovieExplained(const String16& path, Tessel::InterfaceRef<IQTMovie>& outMovie,
                              OpenRefusal& outRefusal)
{
    RefusalPoint point;
    const ResultCode result = MakeCounted<Atomscan>()->Open(path, outMovie, nullptr, &point);
    outRefusal = Explain(point);
    return result;
}

} // namespace internal

} // namespace QT
