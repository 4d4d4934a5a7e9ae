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
    if (QT::OpenMovieFile(path, QT::OpenSettings{Tessel::kFileShareRead, QT::kFixerGuard}, state, movie) != QT::kResultSuccess) return ranges;
    const QT::AtomReader reader = state.mStore->Reader();
    for (std::uint32_t i = 0; i < state.mStore->GetTrackCount(); ++i) {
        const QT::TrackItem& item = state.mStore->GetTrackItem(i);
        for (const auto& [table, width] : {std::pair{item.mStco, 4u}, std::pair{item.mCo64, 8u}}) {
            if (!table) continue;
            const std::uint64_t first = table.Field(16);
            const std::uint32_t count = reader.FitCount(first, reader.U32Or(table.Field(12)), width);
            ranges.emplace_back(state.mMovieAtomOffset + first, state.mMovieAtomOffset + first + std::uint64_t{count} * width);
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
