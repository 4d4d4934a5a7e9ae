#include "fix/MovieAtomFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "fix/BigEndian.h"
#include "Inc/AtomscanTypes.h"

namespace atomscan_tool {

namespace {

constexpr std::uint64_t kLargestMovieAtom = 134217728;

// A file descriptor closed with the object.
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

bool ReadAt(int fd, std::uint64_t offset, std::uint8_t* out, std::size_t size)
{
    while (size > 0) {
        const ssize_t got = ::pread(fd, out, size, static_cast<off_t>(offset));
        if (got <= 0) return false;
        out += got;
        offset += static_cast<std::uint64_t>(got);
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

bool WriteAt(int fd, std::uint64_t offset, const std::uint8_t* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t put = ::pwrite(fd, data, size, static_cast<off_t>(offset));
        if (put <= 0) return false;
        data += put;
        offset += static_cast<std::uint64_t>(put);
        size -= static_cast<std::size_t>(put);
    }
    return true;
}

// The children of the atom at `[begin, end)` of `bytes` that have `type`, by
// their offsets; the walk stops at a size below 8 or one that leaves the atom.
template <typename Visit>
void ForEachChild(const std::vector<std::uint8_t>& bytes, std::uint64_t begin, std::uint64_t end, Visit&& visit)
{
    std::uint64_t at = begin;
    while (end - at >= 8) {
        const std::uint32_t size = BigEndian32(bytes.data() + at);
        if (size < 8 || size > end - at) return;
        visit(BigEndian32(bytes.data() + at + 4), at, at + size);
        at += size;
    }
}

// The first child of a type, as [begin, end); nothing without one.
std::optional<std::pair<std::uint64_t, std::uint64_t>> FirstChild(const std::vector<std::uint8_t>& bytes,
                                                                   std::pair<std::uint64_t, std::uint64_t> parent,
                                                                   QT::FourCC type)
{
    std::optional<std::pair<std::uint64_t, std::uint64_t>> found;
    ForEachChild(bytes, parent.first + 8, parent.second, [&](QT::FourCC t, std::uint64_t begin, std::uint64_t end) {
        if (!found && t == type) found.emplace(begin, end);
    });
    return found;
}

} // namespace

std::optional<TopLevelLayout> ScanTopLevel(const std::string& path)
{
    const Descriptor fd(::open(path.c_str(), O_RDONLY));
    if (fd.Get() < 0) return std::nullopt;
    std::error_code error;
    TopLevelLayout layout;
    layout.fileSize = std::filesystem::file_size(path, error);
    if (error) return std::nullopt;
    std::uint64_t at = 0;
    for (;;) {
        std::uint8_t header[16];
        if (layout.fileSize < 8 || at > layout.fileSize - 8 || !ReadAt(fd.Get(), at, header, 8)) return std::nullopt;
        layout.headerOffsets.push_back(at);
        std::uint64_t size = BigEndian32(header);
        if (size == 0) {
            size = layout.fileSize - at;
        } else if (size == 1) {
            if (at > layout.fileSize - 16 || !ReadAt(fd.Get(), at + 8, header + 8, 8)) return std::nullopt;
            size = BigEndian64(header + 8);
            if (size < 8 || size > static_cast<std::uint64_t>(INT64_MAX)) return std::nullopt;
        } else if (size < 8) {
            return std::nullopt;
        }
        if (BigEndian32(header + 4) == QT::MakeFourCC("moov")) {
            if (size < 9 || size > kLargestMovieAtom || size > layout.fileSize - at) return std::nullopt;
            layout.movieAtomOffset = at;
            layout.movieAtomSize = size;
            return layout;
        }
        if (size > layout.fileSize - at) return std::nullopt;
        at += size;
    }
}

std::vector<ChunkOffsetTable> FindChunkOffsetTables(const std::vector<std::uint8_t>& movieAtom)
{
    std::vector<ChunkOffsetTable> tables;
    std::uint32_t track = 0;
    ForEachChild(movieAtom, 8, movieAtom.size(), [&](QT::FourCC type, std::uint64_t begin, std::uint64_t end) {
        if (type != QT::MakeFourCC("trak")) return;
        const std::uint32_t index = track++;
        auto mdia = FirstChild(movieAtom, {begin, end}, QT::MakeFourCC("mdia"));
        auto minf = mdia ? FirstChild(movieAtom, *mdia, QT::MakeFourCC("minf")) : std::nullopt;
        auto stbl = minf ? FirstChild(movieAtom, *minf, QT::MakeFourCC("stbl")) : std::nullopt;
        if (!stbl) return;
        ForEachChild(movieAtom, stbl->first + 8, stbl->second, [&](QT::FourCC t, std::uint64_t b, std::uint64_t e) {
            const bool wide = t == QT::MakeFourCC("co64");
            if ((!wide && t != QT::MakeFourCC("stco")) || e - b < 16) return;
            const std::uint64_t room = (e - b - 16) / (wide ? 8 : 4);
            const std::uint32_t stored = BigEndian32(movieAtom.data() + b + 12);
            tables.push_back({index, wide, b + 16, static_cast<std::uint32_t>(stored < room ? stored : room)});
        });
    });
    return tables;
}

std::uint64_t ChunkOffsetEntry(const std::vector<std::uint8_t>& movieAtom, const ChunkOffsetTable& table,
                               std::uint32_t index)
{
    const std::uint8_t* p = movieAtom.data() + table.entriesAt + std::uint64_t{index} * (table.wide ? 8 : 4);
    return table.wide ? BigEndian64(p) : BigEndian32(p);
}

bool WriteSparseCopy(const std::string& path, const TopLevelLayout& layout, const std::string& copyPath)
{
    const Descriptor source(::open(path.c_str(), O_RDONLY));
    const Descriptor copy(::open(copyPath.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600));
    if (source.Get() < 0 || copy.Get() < 0) return false;
    if (::ftruncate(copy.Get(), static_cast<off_t>(layout.fileSize)) != 0) return false;
    auto copyRange = [&](std::uint64_t offset, std::uint64_t size) {
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
        return ReadAt(source.Get(), offset, bytes.data(), bytes.size()) &&
               WriteAt(copy.Get(), offset, bytes.data(), bytes.size());
    };
    for (const std::uint64_t offset : layout.headerOffsets) {
        const std::uint64_t left = layout.fileSize - offset;
        if (!copyRange(offset, left < 16 ? left : 16)) return false;
    }
    return copyRange(layout.movieAtomOffset, layout.movieAtomSize);
}

} // namespace atomscan_tool
