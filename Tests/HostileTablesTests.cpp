// Inputs found by fuzzing and the sanitizers: table counts that no file could
// back, and movie atoms larger than their file. Each ends quickly with the
// right result, reads nothing outside the copy and allocates nothing for it.

#include "Tests/Support/Open.h"

namespace {

TEST(HostileTables, ConstantSizeFramesBeyondWhatTheCopyDescribes)
{
    // 2^32-1 frames of constant size in one chunk. With the stored `stsz` count
    // of 1 the size table fails. With that count raised to match, the records
    // are those that the runs place: one chunk of one sample, then no run is
    // left; or, with a run of 2^32-1 samples, the limit of the call.
    const auto start = std::chrono::steady_clock::now();
    const std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, QT::ResultCode, std::size_t> cases[] = {
        {1, 0xFFFFFFFF, 0xFFFFFFFF, QT::kResultBadSampleTables, 0},
        {0xFFFFFFFF, 1, 0xFFFFFFFF, QT::kResultNotFound, 1},
        {0xFFFFFFFF, 0xFFFFFFFF, 1000, QT::kResultSuccess, 1000},
    };
    for (const auto& [stszCount, perChunk, maxEntries, result, records] : cases) {
        const TrackPlan track{.stts = {{0xFFFFFFFF, 1}}, .stsc = {{1, perChunk, 1}}, .replaceStbl = {Stsz(4, {4}, stszCount)}};
        const OpenResult r = OpenBytes(BuildMovieFile(MoviePlan{.tracks = {track}}));
        ASSERT_TRUE(r.movie);
        std::vector<QT::VideoSampleRecord> table;
        EXPECT_EQ(r.movie->GetIndTrack(0)->MakeVideoSampleTable(false, true, maxEntries, table), result);
        EXPECT_EQ(table.size(), records);
        EXPECT_LE(table.capacity(), std::max<std::size_t>(records, 1));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

long PeakAddressSpaceKb()
{
    std::ifstream in("/proc/self/status");
    for (std::string line; std::getline(in, line);)
        if (line.rfind("VmPeak:", 0) == 0) return std::stol(line.substr(7));
    return -1;
}

// Opens the file in a child process, whose peak address space starts afresh
// at the fork. The child exits with 2 unless the file is no movie, else with 1
// when the open reserved 64 MiB or more; an open that never ends is killed by the alarm.
void ExpectNoMovie(const Bytes& bytes, std::uint64_t sparseSize, bool copied)
{
    TempFile file(bytes);
    if (sparseSize) {
        ASSERT_EQ(::truncate(file.Path().c_str(), static_cast<off_t>(sparseSize)), 0);
    }
    EXPECT_EXIT({
        ::alarm(60);
        const long before = PeakAddressSpaceKb();
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        if (QT::MakeParser()->OpenMovie(file.Path16(), movie) != QT::kResultNotAMovie) ::_exit(2);
        ::_exit(PeakAddressSpaceKb() - before >= 65536 ? 1 : 0);
    }, testing::ExitedWithCode(copied ? 1 : 0), "") << sparseSize;
}

TEST(HostileFiles, MovieAtomLargerThanTheFileIsRefusedBeforeItsCopy)
{
    // Found by fuzzing: a movie atom claiming 80 MB in a file of under 1 KB.
    Bytes found = BuildMovieFile(MoviePlan{});
    std::copy_n(ByteWriter().U32(0x0500051f).Get().begin(), 4, found.begin() + 20);
    ExpectNoMovie(found, 0, false);
    // In sparse files: the largest movie atom is copied (and, all zeros, is no
    // movie); one byte more is refused at once.
    for (std::uint32_t size : {0x8000000u, 0x8000001u}) {
        const Bytes header = ByteWriter().Raw(Bytes(found.begin(), found.begin() + 20)).U32(size).Code("moov");
        ExpectNoMovie(header, 20 + size, size == 0x8000000u);
    }
}

} // namespace
