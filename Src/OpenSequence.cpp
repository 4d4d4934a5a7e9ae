#include "Src/OpenSequence.h"

#include "Src/CountedObject.h"
#include "Src/QTMovie.h"

namespace QT {

namespace {

// Walks the store's copy and, when it describes a movie, moves the walk's
// records into the store.
bool WalkMovieAtom(QTMooVAtom& store, std::uint32_t guard)
{
    MovieAtomIndex index;
    if (!MovieAtomWalker(store.Reader(), guard, index).WalkMovieAtom()) return false;
    store.Adopt(index.mMvhd, std::move(index.mTracks), std::move(index.mUserData), std::move(index.mMetadata));
    return true;
}

} // namespace

ResultCode OpenMovieFile(const String16& path, const OpenSettings& settings, OpenedMovie& state,
                         Tessel::InterfaceRef<IQTMovie>& outMovie, const TopLevelSearch* search)
{
    Tessel::File file;
    auto local = MakeCounted<QTMovie>();
    state.mStore = CountedPtr<QTMooVAtom>(new QTMooVAtom());
    state.mMovieAtomSize = 0;
    state.mMovieAtomOffset = 0;

    if (file.Create(path, Tessel::kFileAccessRead, settings.shareMode, Tessel::kFileOpenExisting,
                    Tessel::kFileAttributesNormal, false) < 0)
        return kResultCannotOpen;

    ResultCode result = kResultNotAMovie;
    state.mFileSize = file.SizeOnDisk();
    MovieAtomLoader loader(file, state.mFileSize);
    if (state.mFileSize >= 8 && loader.LoadMovieAtom(*state.mStore, state.mMovieAtomSize, state.mMovieAtomOffset) &&
        WalkMovieAtom(*state.mStore, settings.guard)) {
        local->SetStore(state.mStore);
        outMovie = HandOut<IQTMovie>(std::move(local));
        result = kResultSuccess;
        if (search) search->found = loader.FindTopLevelAtom(search->type, search->offset, search->size);
    }
    file.Close();
    return result;
}

} // namespace QT
