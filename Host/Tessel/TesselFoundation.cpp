#include "TesselFoundation.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessel {

Exception::~Exception() = default;
const char* Exception::what() const noexcept { return "Tessel exception"; }

NullInterfaceException::~NullInterfaceException() = default;
const char* NullInterfaceException::what() const noexcept
{
    return "A NULL interface pointer has been dereferenced.";
}

void* Allocator::Allocate(std::size_t size) { return ::operator new(size); }
void Allocator::Dispose(void* pointer, std::size_t) noexcept { ::operator delete(pointer); }

namespace {

std::string ToNative(const String16& path) { return vellum::utility::UTF16to8(path); }

} // namespace

File::~File() { Close(); }

int File::Create(const String16& path, FileAccessFlags access, FileShareModeFlags, FileCreateDispositionFlags,
                 FileAttributesFlags, bool)
{
    Close();
    if (path.empty()) return -1;
    const std::string native = ToNative(path);
    if (native.find('\0') != std::string::npos) return -1;
    int mode = O_RDONLY;
    if ((access & kFileAccessRead) && (access & kFileAccessWrite)) mode = O_RDWR;
    else if (access & kFileAccessWrite) mode = O_WRONLY;
    // Only existing regular files are opened; nothing is created or truncated.
    // The open itself does not wait: a named pipe would block it until a
    // writer came, and a device may too. What is no regular file (a pipe,
    // socket, device or directory) is refused as a file that cannot be opened.
    const int fd = ::open(native.c_str(), mode | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return -1;
    struct stat st {};
    const int flags = ::fcntl(fd, F_GETFL);
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || flags < 0 ||
        ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0) {
        ::close(fd);
        return -1;
    }
    mFd = fd;
    return 0;
}

std::uint64_t File::SizeOnDisk() const
{
    struct stat st {};
    if (mFd < 0 || ::fstat(mFd, &st) != 0) return 0;
    return static_cast<std::uint64_t>(st.st_size);
}

int File::SizeOnDisk(const String16& path, std::uint64_t& out)
{
    struct stat st {};
    if (path.empty() || ::stat(ToNative(path).c_str(), &st) != 0) return -1;
    out = static_cast<std::uint64_t>(st.st_size);
    return 0;
}

int File::Read(void* buffer, std::uint32_t count, std::uint32_t& outRead)
{
    outRead = 0;
    if (mFd < 0) return -1;
    auto* p = static_cast<char*>(buffer);
    while (outRead < count) {
        const std::size_t chunk = std::min<std::size_t>(count - outRead, 1u << 30);
        const ssize_t n = ::read(mFd, p + outRead, chunk);
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (n == 0) break;
        outRead += static_cast<std::uint32_t>(n);
    }
    return 0;
}

int File::Write(const void* buffer, std::uint32_t count, std::uint32_t& outWritten)
{
    outWritten = 0;
    if (mFd < 0) return -1;
    const auto* p = static_cast<const char*>(buffer);
    while (outWritten < count) {
        const ssize_t n = ::write(mFd, p + outWritten, count - outWritten);
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (n == 0) break;
        outWritten += static_cast<std::uint32_t>(n);
    }
    return 0;
}

int File::SetFilePointer(std::int64_t offset, FilePointerMoveMethod method)
{
    if (mFd < 0) return -1;
    const int whence = method == kFromStart ? SEEK_SET : method == kFromCurrent ? SEEK_CUR : SEEK_END;
    return ::lseek(mFd, static_cast<off_t>(offset), whence) < 0 ? -1 : 0;
}

int File::GetFilePointer(std::int64_t& outPosition) const
{
    if (mFd < 0) return -1;
    const off_t pos = ::lseek(mFd, 0, SEEK_CUR);
    if (pos < 0) return -1;
    outPosition = pos;
    return 0;
}

void File::Close()
{
    if (mFd >= 0) {
        ::close(mFd);
        mFd = -1;
    }
}

String16 MakeString(const char* text)
{
    if (!text) return String16();
    return vellum::utility::UTF8to16(text, nullptr, nullptr);
}

namespace PathUtils {

String16 GetFullDirectoryPart(const String16& path)
{
    const auto pos = path.rfind(kSeparator);
    if (pos == String16::npos) return String16();
    return path.substr(0, pos + 1);
}

String16 GetFullFilePart(const String16& path)
{
    const auto pos = path.rfind(kSeparator);
    if (pos == String16::npos) return path;
    return path.substr(pos + 1);
}

String16 AddTrailingSlash(const String16& path)
{
    if (!path.empty() && path.back() == kSeparator) return path;
    String16 out = path;
    out.push_back(kSeparator);
    return out;
}

bool ExistsOnDisk(const String16& path)
{
    if (path.empty()) return false;
    struct stat st {};
    return ::stat(ToNative(path).c_str(), &st) == 0;
}

} // namespace PathUtils

} // namespace Tessel
