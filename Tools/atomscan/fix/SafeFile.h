// Files that `fix` writes beside the movie: a new file comes into being under
// its name complete or not at all.
#pragma once

#include <string>

namespace atomscan_tool {

// A temporary file in the folder of `finalPath` (a unique name, created with
// O_EXCL), renamed to `finalPath` by Commit once flushed. Removed if it is not
// committed: on any failure, when the object goes, and when the process is
// stopped by SIGINT, SIGTERM or SIGHUP. One at a time in a process.
class TempBeside {
public:
    explicit TempBeside(std::string finalPath);
    ~TempBeside();
    TempBeside(const TempBeside&) = delete;
    TempBeside& operator=(const TempBeside&) = delete;

    // Creates the temporary file with a copy of `sourcePath`'s bytes (holes
    // stay holes where the file system tells them). False with `Error()` set.
    bool CopyFrom(const std::string& sourcePath);
    const std::string& Path() const { return mPath; }

    // Gives the file the source's permission bits, flushes it, renames it to the final path (with `replace` false,
    // only when nothing is there yet) and flushes the folder. False with
    // `Error()` set, and the temporary file removed.
    bool Commit(bool replace);
    const std::string& Error() const { return mError; }
    // errno of the failure.
    int ErrorNumber() const { return mErrorNumber; }

private:
    bool Fail(const std::string& what);
    void Remove();

    std::string mFinalPath, mPath, mError;
    int mFd = -1;
    int mErrorNumber = 0;
    unsigned mMode = 0600; // the source's permission bits
};

} // namespace atomscan_tool
