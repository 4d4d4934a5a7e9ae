#include "scan/Examine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <vector>

#include "Inc/IAtomscan.h"
#include "common/MovieFile.h"
#include "common/References.h"
#include "common/Text.h"

namespace atomscan_tool {

namespace {

class Descriptor {
public:
    explicit Descriptor(int fd) : mFd(fd) {}
    ~Descriptor()
    {
        if (mFd >= 0) ::close(mFd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return mFd; }

private:
    int mFd;
};

void SetUnreadable(ScanRecord& r, std::string reason)
{
    r.status = ScanRecord::Status::Unreadable;
    r.reason = std::move(reason);
    r.movie = {};
    r.missingReferences.clear();
    r.offsetsBeyondEnd.clear();
}

std::string OpenErrorText(int error) { return error == ENOENT ? "vanished during the scan" : std::strerror(error); }

// The path by which the library reads the file: the descriptor already open
// on it, so that it reads this very file, even should the path meanwhile
// name another one (a FIFO, which would block an open). The path itself where
// the system has no such names.
std::string ReadPath(const std::string& path, int fd)
{
    static const bool kProcFd = ::access("/proc/self/fd", X_OK) == 0;
    return kProcFd ? "/proc/self/fd/" + std::to_string(fd) : path;
}

// Frames, sound ranges and timecode samples that start beyond the end of the
// file: their chunk offset is damaged.
void FindOffsetsBeyondEnd(QT::IQTMovie& movie, std::uint64_t fileSize, ScanRecord& r)
{
    const std::uint32_t count = movie.GetTrackCount();
    for (std::uint32_t i = 0; i < count; ++i) {
        Tessel::InterfaceRef<QT::IQTTrack> track = movie.GetIndTrack(i);
        const QT::FourCC type = track->GetTrackMediaType();
        std::uint64_t beyond = 0;
        if (type == QT::kVideoMediaType) {
            std::vector<QT::VideoSampleRecord> frames;
            static_cast<void>(track->MakeFullVideoSampleTable(false, true, frames));
            beyond = static_cast<std::uint64_t>(std::count_if(
                frames.begin(), frames.end(), [&](const QT::VideoSampleRecord& f) { return f.mOffset > fileSize; }));
        } else if (type == QT::kAudioMediaType) {
            QT::AudioSampleRangeMap ranges;
            static_cast<void>(track->MakeAudioSampleRangeMap(ranges, true));
            for (const auto& entry : ranges)
                if (entry.second.mOffsetInFile > fileSize) ++beyond;
        } else if (type == QT::kTimecodeMediaType) {
            std::uint64_t offset = 0;
            std::uint32_t size = 0;
            if (track->GetTimecodeMediaSampleLocation(offset, size) == 0 && offset > fileSize) beyond = 1;
        }
        if (beyond != 0) r.offsetsBeyondEnd.push_back({i, beyond});
    }
}

void ExamineFile(const WalkEntry& entry, ScanRecord& r)
{
    // Classified again, since the walk: a path that now names no regular file
    // is not opened at all (opening a device can act on it).
    struct stat st {};
    if (::stat(entry.path.c_str(), &st) != 0) return SetUnreadable(r, OpenErrorText(errno));
    if (!S_ISREG(st.st_mode)) return SetUnreadable(r, "no longer a regular file");
    const Descriptor fd(::open(entry.path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (fd.Get() < 0) return SetUnreadable(r, OpenErrorText(errno));
    struct stat opened {};
    if (::fstat(fd.Get(), &opened) != 0 || !S_ISREG(opened.st_mode))
        return SetUnreadable(r, "no longer a regular file");

    const std::string readPath = ReadPath(entry.path, fd.Get());
    const std::string absolutePath = AbsolutePath(entry.path);
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    r.open = QT::MakeParser()->OpenMovie(ToString16(readPath), movie);
    if (r.open == QT::kResultCannotOpen) return SetUnreadable(r, OpenFailureText(r.open));
    if (r.open != QT::kResultSuccess || !movie) {
        r.status = ScanRecord::Status::NotAMovie;
        r.refusal = OpenFailureText(r.open);
    } else {
        r.status = ScanRecord::Status::Movie;
        r.movie = SummarizeMovie(*movie, readPath);
        const ReferenceReport references = CheckReferences(movie, absolutePath);
        r.referencesReadable = references.readable;
        for (const ReferenceStatus& s : references.references)
            if (!s.found) r.missingReferences.push_back(ToUtf8(s.reference.fullPath));
        FindOffsetsBeyondEnd(*movie, static_cast<std::uint64_t>(opened.st_size), r);
    }

    struct stat after {};
    if (::fstat(fd.Get(), &after) != 0) return SetUnreadable(r, std::strerror(errno));
    if (after.st_nlink == 0) return SetUnreadable(r, "removed during the scan");
    if (static_cast<std::uint64_t>(after.st_size) < entry.size)
        return SetUnreadable(r, "shrank during the scan, from " + std::to_string(entry.size) + " to " +
                                    std::to_string(after.st_size) + " bytes");
}

} // namespace

ScanRecord Examine(const WalkEntry& entry)
{
    ScanRecord r;
    r.path = entry.path;
    r.size = entry.size;
    if (entry.kind != WalkEntry::Kind::File) {
        r.status = entry.kind == WalkEntry::Kind::Special ? ScanRecord::Status::Skipped : ScanRecord::Status::Unreadable;
        r.reason = entry.note;
        return r;
    }
    try {
        ExamineFile(entry, r);
    } catch (const std::exception& e) {
        SetUnreadable(r, e.what());
    } catch (...) {
        SetUnreadable(r, "an unexpected failure");
    }
    return r;
}

} // namespace atomscan_tool
