#include "Src/OpenSequence.h"

#include "Src/CountedObject.h"
#include "Src/QTMovie.h"

namespace QT {

namespace {

// Walks the store's copy and, when it describes a movie, moves the walk's
// records into the store. A refusal's offset in the copy becomes one in the
// file, the copy standing at `movieAtomOffset`.
bool WalkMovieAtom(QTMooVAtom& store, std::uint32_t guard, std::uint64_t movieAtomOffset, RefusalPoint* refusal)
{
    MovieAtomIndex index;
    if (!MovieAtomWalker(store.Reader(), guard, index, refusal).WalkMovieAtom()) {
        if (refusal && refusal->offset) *refusal->offset += movieAtomOffset;
        return false;
    }
    store.Adopt(index.mMvhd, std::move(index.mTracks), std::move(index.mUserData), std::move(index.mMetadata));
    return true;
}

void NoteRefusal(RefusalPoint* refusal, RefusalRule rule)
{
    if (refusal) {
        *refusal = RefusalPoint();
        refusal->rule = rule;
    }
}

} // namespace

ResultCode OpenMovieFile(const String16& path, const OpenSettings& settings, OpenedMovie& state,
                         Tessel::InterfaceRef<IQTMovie>& outMovie, const TopLevelSearch* search,
                         RefusalPoint* refusal)
{
    Tessel::File file;
    auto local = MakeCounted<QTMovie>();
    state.mStore = CountedPtr<QTMooVAtom>(new QTMooVAtom());
    state.mMovieAtomSize = 0;
    state.mMovieAtomOffset = 0;

    if (file.Create(path, Tessel::kFileAccessRead, settings.shareMode, Tessel::kFileOpenExisting,
                    Tessel::kFileAttributesNormal, false) < 0) {
        NoteRefusal(refusal, RefusalRule::kCannotOpen);
        return kResultCannotOpen;
    }

    ResultCode result = kResultNotAMovie;
    state.mFileSize = file.SizeOnDisk();
    MovieAtomLoader loader(file, state.mFileSize, refusal);
    if (state.mFileSize < 8) {
        NoteRefusal(refusal, RefusalRule::kFileTooShort);
    } else if (loader.LoadMovieAtom(*state.mStore, state.mMovieAtomSize, state.mMovieAtomOffset) &&
               WalkMovieAtom(*state.mStore, settings.guard, state.mMovieAtomOffset, refusal)) {
        local->SetStore(state.mStore);
        outMovie = HandOut<IQTMovie>(std::move(local));
        result = kResultSuccess;
        if (search) search->found = loader.FindTopLevelAtom(search->type, search->offset, search->size);
    }
    file.Close();
    return result;
}

} // namespace QT
