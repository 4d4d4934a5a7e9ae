// The repair object: opens a movie as the parser does and writes single
// entries of its first enabled video track's chunk offset table.
#pragma once

#include <cstdint>
#include <optional>

#include "Inc/AtomscanInternal.h"
#include "Inc/IQTMovie.h"
#include "Inc/IQTMovieFixer.h"
#include "Src/CountedObject.h"
#include "Src/OpenSequence.h"

namespace QT {

class QTMovieFixer : public IQTMovieFixer {
public:
    QTMovieFixer() = default;

    void AddRef() override { mRefCount.Add(); }
    void Release() override
    {
        if (mRefCount.Drop()) delete this;
    }
    ~QTMovieFixer() override = default;
    ResultCode QueryInterface(const TesselIID& id, void** out) override;
    TesselUnknown* GetSelf() override { return this; }

    ResultCode FixMovie(String16 path) override { return Repair(path, nullptr); }

    // The repair of FixMovie; tells in `outPlace`, unless it is null, where the
    // table it examined lies.
    ResultCode Repair(const String16& path, internal::RepairTablePlace* outPlace);

    virtual Tessel::InterfaceRef<TesselUnknown> GetSelfRef() { return Tessel::InterfaceRef<TesselUnknown>(GetSelf()); }

private:
    // The parser's open sequence with the walk settings of the repair object.
    ResultCode OpenMovie(const String16& path, Tessel::InterfaceRef<IQTMovie>& outMovie);
    // Index of the first track that is enabled video.
    static std::optional<std::uint32_t> FindEnabledVideoTrack(IQTMovie& movie);

    RefCount mRefCount;
    // File size, `moov` offset, store, movie atom size and the walk's records;
    // replaced at each open.
    OpenedMovie mOpen;
};

} // namespace QT
