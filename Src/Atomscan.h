// The parser object: opens a file, copies and walks its movie atom, and
// hands out the movie.
#pragma once

#include <cstdint>
#include <vector>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Src/CountedObject.h"
#include "Src/CountedPtr.h"
#include "Src/MovieAtomWalker.h"
#include "Src/QTMooVAtom.h"

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
    struct FindRequest {
        FourCC type;
        bool& found;
        std::uint64_t& offset;
        std::uint64_t& size;
    };
    ResultCode Open(const String16& path, Tessel::InterfaceRef<IQTMovie>& outMovie, const FindRequest* find);
    bool WalkMovieAtom();

    RefCount mRefCount;
    std::uint64_t mFileSize = 0;
    CountedPtr<QTMooVAtom> mStore;
    std::uint32_t mMovieAtomSize = 0;
    // The walk's working results, copied into the store when it succeeds.
    MovieAtomIndex mIndex;
};

} // namespace QT
