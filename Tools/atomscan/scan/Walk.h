// The walk of `scan`: the files under the paths given, found from their
// metadata alone; nothing is opened but folders.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace atomscan_tool {

struct WalkEntry {
    enum class Kind {
        File,       // a regular file, to be opened
        Special,    // a FIFO, socket or device: never opened; `note` names the kind
        Unreadable, // a path or folder that could not be read; `note` says why
    };
    std::string path;
    Kind kind = Kind::File;
    std::uint64_t size = 0; // of a file, when it was found
    std::string note;
};

struct WalkResult {
    std::vector<WalkEntry> entries; // sorted by path
    std::size_t argumentsFound = 0; // paths given that exist
    std::size_t foldersReached = 0; // folders read
    std::size_t foldersSeenAgain = 0; // through links, or named twice: not read again
};

// Walks each path: folders recursively, links followed, each real folder
// (device and inode) read once, so a link to a folder above it ends there.
// `onFound` is called now and then with the number of entries found so far.
WalkResult WalkPaths(const std::vector<std::string>& paths, const std::function<void(std::size_t)>& onFound);

} // namespace atomscan_tool
