#include "Src/MovieAtomLoader.h"

#include <limits>

#include "Src/AtomReader.h"
#include "Src/QTMooVAtom.h"

namespace QT {

bool MovieAtomLoader::ReadAtomHeader(FileAtom& out)
{
    std::int64_t start = 0;
    if (mFile.GetFilePointer(start) < 0) return false;
    // The head as in the copy, then the 64-bit size where size 1 announces it.
    std::uint8_t bytes[16] = {};
    const AtomReader header(bytes, sizeof bytes);
    AtomHeader head;
    std::uint32_t got = 0;
    if (mFile.Read(bytes, 8, got) < 0 || got != 8 || !ReadAtomHead(header, 0, head)) return false;
    std::uint64_t size = head.size;
    if (head.size == 0) {
        // Runs to the end of the file.
        if (start < 0 || static_cast<std::uint64_t>(start) >= mFileSize) return false;
        size = mFileSize - static_cast<std::uint64_t>(start);
    } else if (head.size == 1) {
        std::uint64_t size64 = 0;
        if (mFile.Read(bytes + 8, 8, got) < 0 || got != 8 || !header.U64(8, size64)) return false;
        if (static_cast<std::int64_t>(size64) < 8) return false; // negative or below 8
        size = size64;
    } else if (head.size < 8) {
        return false;
    }
    // Seek behind the atom before the type is looked at; refuse a sum that
    // would not fit the signed file position.
    if (static_cast<std::uint64_t>(start) > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) - size)
        return false;
    if (mFile.SetFilePointer(start + static_cast<std::int64_t>(size), Tessel::kFromStart) < 0) return false;
    out.start = start;
    out.size = size;
    out.type = head.type;
    return true;
}

bool MovieAtomLoader::LoadMovieAtom(QTMooVAtom& store, std::uint32_t& outSize, std::uint64_t& outOffset)
{
    static_cast<void>(mFile.SetFilePointer(0, Tessel::kFromStart));
    FileAtom atom;
    for (;;) {
        if (!ReadAtomHeader(atom)) return false;
        if (atom.type == MakeFourCC("moov")) break;
        // Only reached when a header read at the very end succeeds, which the
        // short read of the next header prevents; kept as the stated rule.
        if (static_cast<std::uint64_t>(atom.start) >= mFileSize) return true;
    }
    if (atom.size < kMinMovieAtomSize || atom.size > kMaxMovieAtomSize) return false;
    // An atom that runs past the end of the file can only come up short: it
    // is refused before its copy is allocated, so a small file cannot make
    // an open allocate and fill 128 MiB.
    if (atom.size > mFileSize - static_cast<std::uint64_t>(atom.start)) return false;
    const auto size = static_cast<std::uint32_t>(atom.size);
    if (!store.ResizeAtomData(size) || store.GetAtomData() == nullptr) return false;
    if (mFile.SetFilePointer(atom.start, Tessel::kFromStart) < 0) return false;
    outSize = size;
    outOffset = static_cast<std::uint64_t>(atom.start);
    std::uint32_t got = 0;
    return mFile.Read(store.GetAtomData(), size, got) >= 0 && got == size;
}

bool MovieAtomLoader::FindTopLevelAtom(FourCC type, std::uint64_t& outOffset, std::uint64_t& outSize)
{
    static_cast<void>(mFile.SetFilePointer(0, Tessel::kFromStart));
    for (int counter = 0;;) {
        FileAtom atom;
        if (!ReadAtomHeader(atom)) return false;
        if (atom.type == type) {
            if (atom.size < kMinMovieAtomSize || atom.size > kMaxMovieAtomSize) return false;
            outOffset = static_cast<std::uint64_t>(atom.start);
            outSize = atom.size;
            return true;
        }
        if (static_cast<std::uint64_t>(atom.start) >= mFileSize) return true;
        if (atom.size <= 8) return false;
        if (++counter > 50) return false;
    }
}

} // namespace QT
