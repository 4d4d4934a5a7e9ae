// The parser object: opens a file, copies and walks its movie atom, and
// hands out the movie.
#pragma once

#include <cstdint>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Src/CountedObject.h"
#include "Src/OpenSequence.h"

namespace QT {

class Atomscan : public IAtomscan {
public:
    Atomscan() = default;

    void AddRef() override { mRefCount.Add(); }
    void Release() override
    {
        if (mRefCount.Drop()) delete this;
    }
    ~Atomscan() override = default;
    ResultCode QueryInterface(const TesselIID& id, void** out) override;
    TesselUnknown* GetSelf() override { return this; }

    ResultCode OpenMovie(String16 path, Tessel::InterfaceRef<IQTMovie>& outMovie) override;
    ResultCode OpenMovieAndFindAtom(String16 path, Tessel::InterfaceRef<IQTMovie>& outMovie, FourCC atomType,
                                    bool& outFound, std::uint64_t& outOffset, std::uint64_t& outSize) override;

    virtual Tessel::InterfaceRef<TesselUnknown> GetSelfRef() { return Tessel::InterfaceRef<TesselUnknown>(GetSelf()); }

private:
    ResultCode Open(const String16& path, Tessel::InterfaceRef<IQTMovie>& outMovie, const TopLevelSearch* find);

    RefCount mRefCount;
    // File size, store, movie atom size and the walk's working results.
    OpenedMovie mOpen;
};

} // namespace QT
