// No public operation leaves a file open when it returns, on a good movie or
// on files it gives up on part way.
#include <filesystem>
#include <iterator>

#include <gtest/gtest.h>

#include "Inc/IQTMovieFixer.h"
#include "Tests/Support/Corpus.h"
#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

std::ptrdiff_t OpenDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

template <typename Operation>
void ExpectNoLeak(const char* what, QT::ResultCode code, Operation&& operation)
{
    const std::ptrdiff_t before = OpenDescriptors();
    EXPECT_EQ(operation(), code) << what;
    EXPECT_EQ(OpenDescriptors(), before) << what;
}

TEST(FileDescriptors, EveryFileOperationClosesItsFile)
{
    const std::string name = "broadcast_2997_tc_c608_aac";
    const QT::String16 sample = ToString16(CorpusMovie(name).string());
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    const auto open = [&](const std::filesystem::path& path) {
        return QT::MakeParser()->OpenMovie(ToString16(path.string()), movie);
    };
    ExpectNoLeak("not a movie", QT::kResultNotAMovie, [&] { return open(CorpusDir() / (name + ".ffprobe.json")); });
    ExpectNoLeak("cut short", QT::kResultNotAMovie, [&] { return open(CorpusMovie("damaged_truncated_in_moov")); });
    ExpectNoLeak("open", QT::kResultSuccess, [&] { return open(CorpusMovie(name)); });
    // The captions are the third track (stream 2 in ffprobe); their table reads the file.
    QT::CaptionSampleMap captions;
    ExpectNoLeak("caption table", QT::kResultSuccess,
                 [&] { return movie->GetIndTrack(2)->MakeCaptionSampleTable(sample, captions, true); });
    EXPECT_FALSE(captions.empty());
    bool found = false;
    std::uint64_t offset = 0, size = 0;
    ExpectNoLeak("open and find", QT::kResultSuccess, [&] {
        return QT::MakeParser()->OpenMovieAndFindAtom(sample, movie, QT::MakeFourCC("ftyp"), found, offset, size);
    });
    EXPECT_TRUE(found);
    TempFile damaged(ReadFile(CorpusMovie("damaged_stco_topbyte_single")));
    ExpectNoLeak("repair", QT::kResultSuccess, [&] { return QT::MakeFixer()->FixMovie(damaged.Path16()); });
}

} // namespace
