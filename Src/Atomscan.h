// The parser object: opens a file, copies and walks its movie atom, and
// hands out the movie.
#pragma once

#include <cstdint>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Src/CountedObject.h"
#include "Src/OpenSequence.h"

namespace QT {

class Atomscan : public CountedObject<IAtomscan, kIID_IAtomscan> {
public:
    ResultCode OpenMovie(String16 path, Tessel::InterfaceRef<IQTMovie>& outMovie) override;
    ResultCode OpenMovieAndFindAtom(String16 path, Tessel::InterfaceRef<IQTMovie>& outMovie, FourCC atomType,
                                    bool& outFound, std::uint64_t& outOffset, std::uint64_t& outSize) override;

private:
    ResultCode Open(const String16& path, Tessel::InterfaceRef<IQTMovie>& outMovie, const TopLevelSearch* find);

    // File size, store and movie atom size of the current open.
    OpenedMovie mOpen;
};

} // namespace QT
