#include "fix/SafeFile.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

namespace atomscan_tool {

namespace {

// The temporary file to remove should a signal stop the process.
char gPending[PATH_MAX + 1];

extern "C" void RemovePendingAndStop(int signal)
{
    if (gPending[0] != '\0') ::unlink(gPending);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void SetPending(const std::string& path)
{
    static const bool kHandled = [] {
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, RemovePendingAndStop);
        return true;
    }();
    static_cast<void>(kHandled);
    gPending[0] = '\0';
    if (path.size() <= PATH_MAX) std::memcpy(gPending, path.c_str(), path.size() + 1);
}

std::string ErrorText() { return std::strerror(errno); }

// [from, to) of `in` to the same place in `out`: copy_file_range where the
// system offers it, else read and write.
bool CopyRange(int in, int out, std::uint64_t from, std::uint64_t to)
{
    bool ranges = true;
    std::vector<char> buffer;
    while (from < to) {
        const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(to - from, 1 << 30));
        ssize_t done = -1;
        if (ranges) {
            loff_t inAt = static_cast<loff_t>(from), outAt = static_cast<loff_t>(from);
            done = ::copy_file_range(in, &inAt, out, &outAt, want, 0);
            if (done < 0 && (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP)) {
                ranges = false;
                continue;
            }
        } else {
            buffer.resize(1 << 20);
            done = ::pread(in, buffer.data(), std::min(want, buffer.size()), static_cast<off_t>(from));
            for (ssize_t put = 0; done > 0 && put < done;) {
                const ssize_t n = ::pwrite(out, buffer.data() + put, static_cast<std::size_t>(done - put),
                                           static_cast<off_t>(from) + put);
                if (n < 0 && errno == EINTR) continue;
                if (n <= 0) return false;
                put += n;
            }
        }
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false; // an error, or the file ended early
        from += static_cast<std::uint64_t>(done);
    }
    return true;
}

// The whole of `in`, `size` bytes, data region by data region; the holes
// between them are left unwritten and so stay holes.
bool CopyContents(int in, int out, std::uint64_t size)
{
    if (::ftruncate(out, static_cast<off_t>(size)) != 0) return false;
    std::uint64_t at = 0;
    while (at < size) {
        off_t data = ::lseek(in, static_cast<off_t>(at), SEEK_DATA);
        if (data < 0 && errno == ENXIO) return true; // a hole up to the end
        off_t hole = data < 0 ? -1 : ::lseek(in, data, SEEK_HOLE);
        if (data < 0 || hole < 0) { // no holes known here: all of it is data
            data = static_cast<off_t>(at);
            hole = static_cast<off_t>(size);
        }
        const std::uint64_t end = std::min<std::uint64_t>(static_cast<std::uint64_t>(hole), size);
        if (!CopyRange(in, out, static_cast<std::uint64_t>(data), end)) return false;
        at = end;
    }
    return true;
}

// Renames unless `to` exists; where the file system has no such rename, a
// second link, which fails as well when `to` exists, and the first removed.
bool RenameNoReplace(const std::string& from, const std::string& to)
{
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    if (::link(from.c_str(), to.c_str()) != 0) return false;
    ::unlink(from.c_str());
    return true;
}

} // namespace

TempBeside::TempBeside(std::string finalPath) : mFinalPath(std::move(finalPath)) {}

TempBeside::~TempBeside() { Remove(); }

bool TempBeside::Fail(const std::string& what)
{
    mErrorNumber = errno;
    mError = what;
    Remove();
    return false;
}

void TempBeside::Remove()
{
    if (mFd >= 0) ::close(mFd);
    mFd = -1;
    if (!mPath.empty()) ::unlink(mPath.c_str());
    mPath.clear();
    SetPending({});
}

bool TempBeside::CopyFrom(const std::string& sourcePath)
{
    const std::filesystem::path final(mFinalPath);
    const std::filesystem::path folder = final.has_parent_path() ? final.parent_path() : ".";
    std::string pattern = (folder / ("." + final.filename().string() + ".atomscan-XXXXXX")).string();
    const int in = ::open(sourcePath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat source {};
    if (in < 0 || ::fstat(in, &source) != 0 || !S_ISREG(source.st_mode)) {
        const std::string error = in < 0 ? ErrorText() : "not a regular file";
        if (in >= 0) ::close(in);
        return Fail("cannot read " + sourcePath + ": " + error);
    }
    // mkstemp creates the file with O_EXCL under a name of its own.
    mFd = ::mkstemp(pattern.data());
    if (mFd < 0) {
        const std::string error = ErrorText();
        ::close(in);
        return Fail("cannot make a temporary file in " + folder.string() + ": " + error);
    }
    mPath = pattern;
    SetPending(mPath);
    mMode = source.st_mode & 07777;
    const bool copied = CopyContents(in, mFd, static_cast<std::uint64_t>(source.st_size));
    const std::string error = ErrorText();
    ::close(in);
    return copied || Fail("cannot copy " + sourcePath + " to " + mPath + ": " + error);
}

bool TempBeside::Commit(bool replace)
{
    if (mFd < 0) return Fail("nothing to commit");
    // The source's permission bits, given last: the copy stays writable while it is mended.
    if (::fchmod(mFd, mMode) != 0) return Fail("cannot set the permissions of " + mPath + ": " + ErrorText());
    if (::fsync(mFd) != 0) return Fail("cannot flush " + mPath + ": " + ErrorText());
    if (::close(mFd) != 0) {
        mFd = -1;
        return Fail("cannot write " + mPath + ": " + ErrorText());
    }
    mFd = -1;
    if (!(replace ? ::rename(mPath.c_str(), mFinalPath.c_str()) == 0 : RenameNoReplace(mPath, mFinalPath)))
        return Fail(mFinalPath + ": " + ErrorText());
    mPath.clear();
    SetPending({});
    // The new name lasts once the folder is flushed too.
    const std::filesystem::path final(mFinalPath);
    const std::string folder = final.has_parent_path() ? final.parent_path().string() : ".";
    const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool flushed = dir >= 0 && ::fsync(dir) == 0;
    mError = flushed ? std::string() : "cannot flush the folder " + folder + ": " + ErrorText();
    if (dir >= 0) ::close(dir);
    return flushed;
}

} // namespace atomscan_tool
