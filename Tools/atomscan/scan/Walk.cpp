#include "scan/Walk.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <utility>

namespace atomscan_tool {

namespace {

std::string ErrorText(int error) { return std::strerror(error); }

std::string SpecialKind(mode_t mode)
{
    if (S_ISFIFO(mode)) return "FIFO";
    if (S_ISSOCK(mode)) return "socket";
    if (S_ISCHR(mode)) return "character device";
    if (S_ISBLK(mode)) return "block device";
    return "file of an unknown kind";
}

std::string Join(const std::string& folder, const char* name)
{
    return folder.ends_with('/') ? folder + name : folder + "/" + name;
}

class Walker {
public:
    explicit Walker(const std::function<void(std::size_t)>& onFound) : mOnFound(onFound) {}

    // Classifies `path` from its metadata; a folder is queued for reading.
    // Gives false when nothing exists at `path`, not even a broken link.
    bool Add(const std::string& path)
    {
        struct stat st {};
        if (::lstat(path.c_str(), &st) != 0) {
            const int error = errno;
            Note(path, WalkEntry::Kind::Unreadable, ErrorText(error));
            return error != ENOENT && error != ENOTDIR;
        }
        if (S_ISLNK(st.st_mode) && ::stat(path.c_str(), &st) != 0) {
            Note(path, WalkEntry::Kind::Unreadable, "broken symbolic link: " + ErrorText(errno));
            return true;
        }
        if (S_ISDIR(st.st_mode)) {
            if (mFolders.insert({st.st_dev, st.st_ino}).second) mPending.push_back(path);
            else ++mResult.foldersSeenAgain;
        } else if (S_ISREG(st.st_mode)) {
            mResult.entries.push_back({path, WalkEntry::Kind::File, static_cast<std::uint64_t>(st.st_size), {}});
            Found();
        } else {
            Note(path, WalkEntry::Kind::Special, SpecialKind(st.st_mode));
        }
        return true;
    }

    void ReadPending()
    {
        while (!mPending.empty()) {
            const std::string folder = std::move(mPending.back());
            mPending.pop_back();
            Read(folder);
        }
    }

    WalkResult Finish()
    {
        std::sort(mResult.entries.begin(), mResult.entries.end(),
                  [](const WalkEntry& a, const WalkEntry& b) { return a.path < b.path; });
        return std::move(mResult);
    }

    WalkResult& Result() { return mResult; }

private:
    void Read(const std::string& folder)
    {
        // opendir asks for a folder and does not block, should the path have
        // become something else since it was classified.
        DIR* dir = ::opendir(folder.c_str());
        if (dir == nullptr) {
            Note(folder, WalkEntry::Kind::Unreadable, "cannot read the folder: " + ErrorText(errno));
            return;
        }
        ++mResult.foldersReached;
        std::vector<std::string> names;
        for (;;) {
            errno = 0;
            const dirent* entry = ::readdir(dir);
            if (entry == nullptr) {
                if (errno != 0) Note(folder, WalkEntry::Kind::Unreadable, "cannot read the folder: " + ErrorText(errno));
                break;
            }
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                names.emplace_back(entry->d_name);
        }
        ::closedir(dir);
        for (const std::string& name : names) Add(Join(folder, name.c_str()));
    }

    void Note(const std::string& path, WalkEntry::Kind kind, std::string note)
    {
        mResult.entries.push_back({path, kind, 0, std::move(note)});
        Found();
    }

    void Found()
    {
        if (mOnFound && mResult.entries.size() % 256 == 0) mOnFound(mResult.entries.size());
    }

    const std::function<void(std::size_t)>& mOnFound;
    WalkResult mResult;
    std::set<std::pair<dev_t, ino_t>> mFolders;
    std::vector<std::string> mPending;
};

} // namespace

WalkResult WalkPaths(const std::vector<std::string>& paths, const std::function<void(std::size_t)>& onFound)
{
    Walker walker(onFound);
    std::size_t found = 0;
    for (const std::string& path : paths) {
        if (walker.Add(path)) ++found;
        walker.ReadPending();
    }
    walker.Result().argumentsFound = found;
    return walker.Finish();
}

} // namespace atomscan_tool
