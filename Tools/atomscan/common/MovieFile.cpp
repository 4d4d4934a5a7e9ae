#include "common/MovieFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "common/Text.h"

namespace atomscan_tool {

std::string AbsolutePath(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    return error ? path : absolute.string();
}

OpenedMovie OpenMovieFile(const std::string& path)
{
    OpenedMovie opened;
    opened.absolutePath = AbsolutePath(path);
    opened.code = QT::MakeParser()->OpenMovie(ToString16(path), opened.movie);
    if (opened.code != QT::kResultSuccess) opened.movie = {};
    return opened;
}

std::string OpenFailureText(QT::ResultCode code)
{
    switch (code) {
    case QT::kResultCannotOpen: return "cannot open the file";
    case QT::kResultNotAMovie: return "not a movie that can be read";
    default: return "cannot open the movie (" + CodeText(code) + ")";
    }
}

RegularFile::RegularFile(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat status {};
    if (fd < 0) return;
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(fd);
        return;
    }
    mFd = fd;
    mSize = static_cast<std::uint64_t>(status.st_size);
}

RegularFile::~RegularFile()
{
    if (mFd >= 0) ::close(mFd);
}

std::optional<std::vector<std::uint8_t>> RegularFile::Read(std::uint64_t offset, std::uint64_t size) const
{
    if (mFd < 0 || offset > mSize || size > mSize - offset) return std::nullopt;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t got = ::pread(mFd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return std::nullopt;
        done += static_cast<std::size_t>(got);
    }
    return bytes;
}

std::optional<std::vector<std::uint8_t>> ReadFileRange(const std::string& path, std::uint64_t offset,
                                                       std::uint64_t size)
{
    return RegularFile(path).Read(offset, size);
}

} // namespace atomscan_tool
