#include "Src/MovieAtomLoader.h"

#include <limits>

#include "Src/QTMooVAtom.h"

namespace QT {

namespace {

std::uint32_t BigEndian32(const std::uint8_t* p)
{
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}

} // namespace

bool MovieAtomLoader::ReadAtomHeader(FileAtom& out)
{
    std::int64_t start = 0;
    if (mFile.GetFilePointer(start) < 0) return false;
    std::uint8_t header[8];
    std::uint32_t got = 0;
    if (mFile.Read(header, 8, got) < 0 || got != 8) return false;
    const std::uint32_t size32 = BigEndian32(header);
    std::uint64_t size = size32;
    if (size32 == 0) {
        // Runs to the end of the file.
        if (start < 0 || static_cast<std::uint64_t>(start) >= mFileSize) return false;
        size = mFileSize - static_cast<std::uint64_t>(start);
    } else if (size32 == 1) {
        std::uint8_t wide[8];
        if (mFile.Read(wide, 8, got) < 0 || got != 8) return false;
        const std::uint64_t size64 = (std::uint64_t{BigEndian32(wide)} << 32) | BigEndian32(wide + 4);
        if (static_cast<std::int64_t>(size64) < 8) return false; // negative or below 8
        size = size64;
    } else if (size32 < 8) {
        return false;
    }
    // Seek behind the atom before the type is looked at; refuse a sum that
    // would not fit the signed file position.
    if (static_cast<std::uint64_t>(start) > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) - size)
        return false;
    if (mFile.SetFilePointer(start + static_cast<std::int64_t>(size), Tessel::kFromStart) < 0) return false;
    out.start = start;
    out.size = size;
    out.type = BigEndian32(header + 4);
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
