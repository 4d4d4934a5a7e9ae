#include "fix/MovieAtomCopy.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "common/MovieFile.h"
#include "common/Text.h"
#include "Src/MovieAtomLoader.h"

namespace atomscan_tool {

namespace {

bool WriteAt(int fd, std::uint64_t offset, const std::uint8_t* data, std::size_t size)
{
    for (std::size_t done = 0; done < size;) {
        const ssize_t put = ::pwrite(fd, data + done, size - done, static_cast<off_t>(offset + done));
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        done += static_cast<std::size_t>(put);
    }
    return true;
}

// The header of a `free` atom of `size` bytes: the 64-bit size form when the
// size does not fit the 32-bit field.
std::vector<std::uint8_t> FreeAtomHeader(std::uint64_t size)
{
    std::vector<std::uint8_t> header;
    const auto put = [&](std::uint64_t value, int bytes) {
        for (int i = bytes - 1; i >= 0; --i) header.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    };
    const bool wide = size > 0xFFFFFFFFu;
    put(wide ? 1 : size, 4);
    put(QT::MakeFourCC("free"), 4);
    if (wide) put(size, 8);
    return header;
}

} // namespace

QT::ResultCode LoadMovieAtom(const std::string& path, MovieAtomCopy& out)
{
    // Refused here, a FIFO or a device never reaches the library's open, which would wait on it.
    if (!RegularFile(path).IsOpen()) return QT::kResultCannotOpen;
    Tessel::File file;
    if (file.Create(ToString16(path), Tessel::kFileAccessRead, Tessel::kFileShareRead, Tessel::kFileOpenExisting,
                    Tessel::kFileAttributesNormal, false) < 0)
        return QT::kResultCannotOpen;
    out.fileSize = file.SizeOnDisk();
    std::uint32_t size = 0;
    QT::MovieAtomLoader loader(file, out.fileSize);
    if (!loader.LoadMovieAtom(*out.atom, size, out.offset) || size < QT::kMinMovieAtomSize)
        return QT::kResultNotAMovie;
    return QT::kResultSuccess;
}

bool WriteStandIn(const MovieAtomCopy& movie, const std::string& standInPath)
{
    const int fd = ::open(standInPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    const QT::AtomReader atom = movie.Reader();
    const std::vector<std::uint8_t> free = FreeAtomHeader(movie.offset);
    const bool written = ::ftruncate(fd, static_cast<off_t>(movie.fileSize)) == 0 &&
                         (movie.offset == 0 || WriteAt(fd, 0, free.data(), free.size())) &&
                         WriteAt(fd, movie.offset, atom.Bytes(0, atom.Size()), atom.Size());
    return ::close(fd) == 0 && written;
}

} // namespace atomscan_tool
