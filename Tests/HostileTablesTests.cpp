// Inputs found by fuzzing and the sanitizers: table counts that no file could
// back, and movie atoms larger than their file. Each ends quickly with the
// right result, reads nothing outside the copy and allocates nothing for it.
#include <unistd.h>

#include <chrono>
#include <fstream>

#include <gtest/gtest.h>

#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

// Overwrites the big-endian word `at` bytes behind the type of the first `type` atom.
void Poke(Bytes& bytes, const char* type, std::ptrdiff_t at, std::uint32_t value)
{
    const auto it = std::search(bytes.begin(), bytes.end(), type, type + 4);
    ASSERT_NE(it, bytes.end()) << type;
    for (int i = 0; i < 4; ++i) it[at + i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}

TEST(HostileTables, CountsBeyondTheFileEndQuickly)
{
    const auto start = std::chrono::steady_clock::now();
    // 2^32-1 frames of constant size: with the stored `stsz` count of 1 the size
    // table fails; with that count raised to match, the file size refuses the frames.
    MovieSpec plan;
    TrackSpec& t = plan.tracks[0];
    t.stts = {{0xFFFFFFFF, 1}};
    t.stsc = {{1, 0xFFFFFFFF, 1}};
    t.stszConstant = 4;
    t.stszSizes = {4};
    for (bool raised : {false, true}) {
        Bytes bytes = BuildMovieFile(plan);
        if (raised) Poke(bytes, "stsz", 12, 0xFFFFFFFF);
        const OpenResult r = OpenBytes(bytes);
        ASSERT_TRUE(r.movie);
        std::vector<QT::VideoSampleRecord> table;
        EXPECT_EQ(r.movie->GetIndTrack(0)->MakeFullVideoSampleTable(false, true, table), QT::kResultBadSampleTables);
        EXPECT_TRUE(table.empty());
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

// Opens the file in a child process, whose peak address space starts afresh at
// the fork. The child exits with 2 unless the file is no movie, else with 1
// when the open reserved 64 MiB or more.
void ExpectNoMovie(const TempFile& file, bool copied)
{
    EXPECT_EXIT(
        {
            const long before = PeakAddressSpaceKb();
            Tessel::InterfaceRef<QT::IQTMovie> movie;
            if (QT::MakeParser()->OpenMovie(file.Path16(), movie) != QT::kResultNotAMovie) ::_exit(2);
            ::_exit(PeakAddressSpaceKb() - before >= 65536 ? 1 : 0);
        },
        testing::ExitedWithCode(copied ? 1 : 0), "");
}

TEST(HostileFiles, MovieAtomLargerThanTheFileIsRefusedBeforeItsCopy)
{
    // Found by fuzzing: a movie atom claiming 80 MB in a file of under 1 KB.
    Bytes bytes = BuildMovieFile(MovieSpec{});
    Poke(bytes, "moov", -4, 0x0500051f);
    ExpectNoMovie(TempFile(bytes), false);
    // In sparse files: the largest movie atom is copied (and holds only
    // zeros), one byte more is refused at once.
    for (std::uint32_t size : {0x8000000u, 0x8000001u}) {
        Atom moov("moov");
        moov.size = size;
        TempFile file(Concat({Atom("ftyp", ByteWriter().Code("qt  ").U32(0x200).Code("qt  ")), moov}));
        ASSERT_EQ(::truncate(file.Path().c_str(), static_cast<off_t>(20 + size)), 0);
        ExpectNoMovie(file, size == 0x8000000u);
    }
}

} // namespace
