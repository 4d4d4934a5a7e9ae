// The movie atom as the file holds it, read by the command itself: where it
// lies, and where in it the chunk offset tables are. `fix` compares these
// bytes before and after the repair.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace atomscan_tool {

// The top level of a file up to its first `moov` atom.
struct TopLevelLayout {
    std::uint64_t fileSize = 0;
    std::uint64_t movieAtomOffset = 0;
    std::uint64_t movieAtomSize = 0;
    std::vector<std::uint64_t> headerOffsets; // every top-level atom up to and with `moov`
};

// Steps over the top-level atoms as the library's loader does; nothing
// without a `moov` atom of 9 bytes to 128 MiB.
std::optional<TopLevelLayout> ScanTopLevel(const std::string& path);

// A `stco` or `co64` atom inside a copy of the movie atom.
struct ChunkOffsetTable {
    std::uint32_t track = 0;        // position of its `trak` among the movie atom's tracks
    bool wide = false;              // `co64`
    std::uint64_t entriesAt = 0;    // offset of entry 0 in the copy
    std::uint32_t count = 0;        // entries, as far as the atom holds them
};

std::vector<ChunkOffsetTable> FindChunkOffsetTables(const std::vector<std::uint8_t>& movieAtom);

std::uint64_t ChunkOffsetEntry(const std::vector<std::uint8_t>& movieAtom, const ChunkOffsetTable& table,
                               std::uint32_t index);

// A file of `layout.fileSize` bytes at `copyPath` with the top-level headers
// and the movie atom of `path` in place and holes elsewhere: all that the
// library reads of a movie, at the cost of the movie atom alone.
bool WriteSparseCopy(const std::string& path, const TopLevelLayout& layout, const std::string& copyPath);

} // namespace atomscan_tool
