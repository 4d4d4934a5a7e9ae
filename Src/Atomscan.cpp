#include "Src/Atomscan.h"

#include "Src/MovieAtomLoader.h"
#include "Src/QTMovie.h"

namespace QT {

namespace {

// Values of the host file layer's flag types.
constexpr int kAccessRead = 1;
constexpr int kShareRead = 1;
constexpr int kShareReadWrite = 3;
constexpr int kOpenExisting = 8;
constexpr int kAttributesNormal = 1;

} // namespace

ResultCode Atomscan::QueryInterface(const TesselIID& id, void** out)
{
    return QueryOne(this, kIID_IAtomscan, id, out);
}

ResultCode Atomscan::OpenMovie(String16 path, Tessel::InterfaceRef<IQTMovie>& outMovie)
{
    return Open(path, outMovie, nullptr);
}

ResultCode Atomscan::OpenMovieAndFindAtom(String16 path, Tessel::InterfaceRef<IQTMovie>& outMovie, FourCC atomType,
                                          bool& outFound, std::uint64_t& outOffset, std::uint64_t& outSize)
{
    const FindRequest find{atomType, outFound, outOffset, outSize};
    return Open(path, outMovie, &find);
}

bool Atomscan::WalkMovieAtom()
{
    const AtomReader reader = mStore->Reader();
    return MovieAtomWalker(AtomReader(reader.Bytes(0, mMovieAtomSize), mMovieAtomSize), kParserGuard, mIndex)
        .WalkMovieAtom();
}

ResultCode Atomscan::Open(const String16& path, Tessel::InterfaceRef<IQTMovie>& outMovie, const FindRequest* find)
{
    Tessel::File file;
    auto local = Tessel::InterfaceRef<QTMovie>::Adopt(new QTMovie());
    local->AddRef();
    mStore = CountedPtr<QTMooVAtom>(new QTMooVAtom());
    // A second open must not see the records of the first, which point into
    // the earlier store.
    mIndex = MovieAtomIndex();
    mMovieAtomSize = 0;

    const int share = find ? kShareRead : kShareReadWrite;
    if (file.Create(path, kAccessRead, share, kOpenExisting, kAttributesNormal, false) < 0) return kResultCannotOpen;

    ResultCode result = kResultNotAMovie;
    mFileSize = file.SizeOnDisk();
    MovieAtomLoader loader(file, mFileSize);
    std::uint64_t movieAtomOffset = 0;
    if (mFileSize >= 8 && loader.LoadMovieAtom(*mStore, mMovieAtomSize, movieAtomOffset) && WalkMovieAtom()) {
        mStore->Adopt(mIndex.mMvhd, mIndex.mTracks, mIndex.mUserData, mIndex.mMetadata);
        if (!local) throw Tessel::NullInterfaceException();
        local->SetStore(mStore);
        outMovie = HandOut<IQTMovie>(local, kIID_IQTMovie);
        result = kResultSuccess;
        if (find) find->found = loader.FindTopLevelAtom(find->type, find->offset, find->size);
    }
    file.Close();
    return result;
}

Tessel::InterfaceRef<IAtomscan> MakeParser()
{
    auto local = Tessel::InterfaceRef<Atomscan>::Adopt(new Atomscan());
    local->AddRef();
    return HandOut<IAtomscan>(local, kIID_IAtomscan);
}

} // namespace QT
