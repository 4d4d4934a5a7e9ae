// Bytes → a file → FixMovie. After each run the file has its length, and
// every byte that changed lies inside a chunk offset entry of the movie.
#include <cstdio>
#include <vector>

#include "Fuzz/FuzzSupport.h"
#include "Inc/IQTMovieFixer.h"
#include "Src/OpenSequence.h"

namespace {

std::vector<std::uint8_t> ReadBack()
{
    std::vector<std::uint8_t> bytes;
    FILE* f = std::fopen(fuzz::ScratchPath(), "rb");
    if (!f) std::abort();
    std::uint8_t buffer[4096];
    std::size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) bytes.insert(bytes.end(), buffer, buffer + n);
    std::fclose(f);
    return bytes;
}

// File ranges of every chunk offset entry of every track, as the repair
// object's walk finds them.
std::vector<std::pair<std::uint64_t, std::uint64_t>> EntryRanges(const QT::String16& path)
{
    std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges;
    QT::OpenedMovie state;
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    const QT::OpenSettings settings{Tessel::kFileShareRead, QT::kFixerGuard};
    if (QT::OpenMovieFile(path, settings, state, movie) != QT::kResultSuccess) return ranges;
    for (std::uint32_t i = 0; i < state.mStore->GetTrackCount(); ++i) {
        const QT::TrackItem& item = state.mStore->GetTrackItem(i);
        const std::uint64_t narrow = item.mStcoEntries.Count() * 4ull, wide = item.mCo64Entries.Count() * 8ull;
        for (const auto& [table, bytes] : {std::pair{item.mStco, narrow}, std::pair{item.mCo64, wide}}) {
            if (!table) continue;
            const std::uint64_t first = state.mMovieAtomOffset + table.Field(16);
            ranges.emplace_back(first, first + bytes);
        }
    }
    return ranges;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QT::String16 path = fuzz::WriteInput(data, size);
    const auto ranges = EntryRanges(path);
    if (QT::MakeFixer()->FixMovie(path) != 0) __builtin_trap();
    const std::vector<std::uint8_t> after = ReadBack();
    if (after.size() != size) __builtin_trap();
    for (std::size_t i = 0; i < size; ++i) {
        if (after[i] == data[i]) continue;
        bool inside = false;
        for (const auto& [begin, end] : ranges) inside = inside || (i >= begin && i < end);
        if (!inside) __builtin_trap();
    }
    return 0;
}
