// Opening a movie through the library, and the few reads of the file that the
// command makes itself.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"

namespace atomscan_tool {

struct OpenedMovie {
    QT::ResultCode code = QT::kResultCannotOpen;
    Tessel::InterfaceRef<QT::IQTMovie> movie; // set when `code` is 0
    std::string absolutePath;                 // the path made absolute
};

OpenedMovie OpenMovieFile(const std::string& path);

// `path` made absolute (as given when that fails).
std::string AbsolutePath(const std::string& path);

// What the library's result codes of an open mean, in a few words.
std::string OpenFailureText(QT::ResultCode code);

// A timecode sample is 4 or 8 bytes; a claimed size beyond this is not read.
constexpr std::uint32_t kLargestTimecodeSample = 1 << 20;

// A regular file open for reading, closed with the object. The open does not
// wait on a FIFO or a device: anything but a regular file is refused.
class RegularFile {
public:
    explicit RegularFile(const std::string& path);
    ~RegularFile();
    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;

    bool IsOpen() const { return mFd >= 0; }
    std::uint64_t Size() const { return mSize; }
    // `size` bytes at `offset`, or nothing when the file cannot give them all.
    std::optional<std::vector<std::uint8_t>> Read(std::uint64_t offset, std::uint64_t size) const;

private:
    int mFd = -1;
    std::uint64_t mSize = 0;
};

// `size` bytes at `offset` of the regular file at `path`, or nothing when it
// cannot give them all.
std::optional<std::vector<std::uint8_t>> ReadFileRange(const std::string& path, std::uint64_t offset,
                                                       std::uint64_t size);

} // namespace atomscan_tool
