#include "Src/QTMovieFixer.h"

#include "Inc/QTTrack.h"

namespace QT {

namespace {

// The chunk offset table of the track being mended, for one repair, read
// through the track's ChunkOffsetHelper. Entries are read from the copy of the
// movie atom and written to the file; the copy never changes, so every read
// gives the value that the file held at the open.
class ChunkOffsetHelperPrivate {
public:
    // A count whose entries would run past the table's atom (or the copy)
    // says the table itself is broken, which is not the damage mended here:
    // such a table is left alone.
    explicit ChunkOffsetHelperPrivate(const TrackItem& trackItem)
        : mEntries(trackItem), mTable(mEntries.IsWide() ? trackItem.mCo64 : trackItem.mStco),
          mNumEntries((mEntries.IsWide() ? trackItem.mCo64Entries.IsCut() : trackItem.mStcoEntries.IsCut())
                          ? 0
                          : mEntries.NumEntries())
    {
    }

    std::uint32_t NumEntries() const { return mNumEntries; }
    bool IsWide() const { return mEntries.IsWide(); }
    // Offset in the copy of entry 0.
    std::uint64_t EntriesOffset() const { return EntryOffset(0); }

    std::uint64_t GetEntry(std::uint32_t entryIdx) const
    {
        VELLUM_CONTRACT(entryIdx < mNumEntries, "QT::`anonymous-namespace'::ChunkOffsetHelperPrivate::GetEntry");
        return mEntries.GetEntry(entryIdx);
    }

    // Writes the entry, big-endian and as wide as the table's entries, at its
    // place in the file; the copy in memory keeps the old value. The file is
    // opened for this one entry and closed again. A file that cannot be opened
    // for writing is left as it is.
    void SetEntry(std::uint32_t entryIdx, std::uint64_t value, const String16& path,
                  std::uint64_t movieAtomOffset) const
    {
        VELLUM_CONTRACT(entryIdx < mNumEntries, "QT::`anonymous-namespace'::ChunkOffsetHelperPrivate::SetEntry");
        const std::uint32_t width = Width();
        std::uint8_t bytes[8];
        for (std::uint32_t i = 0; i < width; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * (width - 1 - i)));
        const std::uint64_t position = movieAtomOffset + EntryOffset(entryIdx);

        Tessel::File file;
        if (file.Create(path, Tessel::kFileAccessWrite, Tessel::kFileShareReadWrite, Tessel::kFileOpenExisting,
                        Tessel::kFileAttributesNormal, false) < 0)
            return;
        // The entry lies inside the movie atom that was read from this file.
        // Should the file have shrunk since, or the seek fail, nothing is
        // written: a write must neither grow the file nor land elsewhere.
        if (file.SizeOnDisk() < position + width) return;
        if (file.SetFilePointer(static_cast<std::int64_t>(position), Tessel::kFromStart) < 0) return;
        std::uint32_t written = 0;
        static_cast<void>(file.Write(bytes, width, written));
    }

private:
    std::uint32_t Width() const { return IsWide() ? 8 : 4; }
    std::uint64_t EntryOffset(std::uint32_t entryIdx) const
    {
        return mTable.Field(16 + std::uint64_t{entryIdx} * Width());
    }

    const ChunkOffsetHelper mEntries;
    const AtomPtr mTable; // the `co64` or `stco` atom that mEntries reads
    std::uint32_t mNumEntries;
};

// A damaged entry with its high-order bytes cleared, one byte at a time from
// the top, until it is no longer above the entry that follows it. When no
// mask brings it that low, its low byte is what is left.
std::uint64_t MendedOffset(std::uint64_t damaged, std::uint64_t next)
{
    std::uint64_t candidate = damaged;
    for (std::uint64_t mask = ~std::uint64_t{0}; candidate > next && mask != 0; mask >>= 8) candidate = damaged & mask;
    return candidate;
}

} // namespace

ResultCode QTMovieFixer::OpenMovie(const String16& path, Tessel::InterfaceRef<IQTMovie>& outMovie)
{
    // Each open replaces the store and empties the walk's records, so a second
    // FixMovie on this object acts on its own movie alone.
    return OpenMovieFile(path, OpenSettings{Tessel::kFileShareRead, kFixerGuard}, mOpen, outMovie);
}

std::optional<std::uint32_t> QTMovieFixer::FindEnabledVideoTrack(IQTMovie& movie)
{
    const std::uint32_t count = movie.GetTrackCount();
    for (std::uint32_t i = 0; i < count; ++i) {
        Tessel::InterfaceRef<IQTTrack> track = movie.GetIndTrack(i);
        if (!track) continue;
        if (track->GetTrackMediaType() == kVideoMediaType && track->IsTrackEnabled()) return i;
    }
    return std::nullopt;
}

ResultCode QTMovieFixer::Repair(const String16& path, internal::RepairTablePlace* outPlace)
{
    Tessel::InterfaceRef<IQTMovie> movie;
    static_cast<void>(OpenMovie(path, movie));
    if (!movie) return kResultSuccess;
    const std::optional<std::uint32_t> chosen = FindEnabledVideoTrack(*movie);
    if (!chosen) return kResultSuccess;

    const ChunkOffsetHelperPrivate table(mOpen.mStore->GetTrackItem(*chosen));
    const std::uint32_t numEntries = table.NumEntries();
    if (outPlace) {
        *outPlace = {true, *chosen, table.IsWide(), mOpen.mMovieAtomOffset + table.EntriesOffset(), numEntries};
    }
    // An entry is damaged when it lies beyond the end of the file (one equal
    // to the size is sound). The last entry has no next one to be judged by,
    // so it is never mended.
    for (std::uint32_t j = 0; j + 1 < numEntries; ++j) {
        const std::uint64_t entry = table.GetEntry(j);
        if (entry <= mOpen.mFileSize) continue;
        table.SetEntry(j, MendedOffset(entry, table.GetEntry(j + 1)), path, mOpen.mMovieAtomOffset);
    }
    return kResultSuccess;
}

Tessel::InterfaceRef<IQTMovieFixer> MakeFixer()
{
    return HandOut<IQTMovieFixer>(MakeCounted<QTMovieFixer>());
}

namespace internal {

ResultCode FixMovieAndLocate(const String16& path, RepairTablePlace& outPlace)
{
    outPlace = RepairTablePlace();
    return MakeCounted<QTMovieFixer>()->Repair(path, &outPlace);
}

} // namespace internal

} // namespace QT
