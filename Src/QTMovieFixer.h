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

class QTMovieFixer : public CountedObject<IQTMovieFixer, kIID_IQTMovieFixer> {
public:
    ResultCode FixMovie(String16 path) override { return Repair(path, nullptr); }

    // The repair of FixMovie; tells in `outPlace`, unless it is null, where the
    // table it examined lies.
    ResultCode Repair(const String16& path, internal::RepairTablePlace* outPlace);

private:
    // The parser's open sequence with the walk settings of the repair object.
    ResultCode OpenMovie(const String16& path, Tessel::InterfaceRef<IQTMovie>& outMovie);
    // Index of the first track that is enabled video.
    static std::optional<std::uint32_t> FindEnabledVideoTrack(IQTMovie& movie);

    // File size, `moov` offset, store (with the walk's records) and movie atom
    // size; replaced at each open.
    OpenedMovie mOpen;
};

} // namespace QT
