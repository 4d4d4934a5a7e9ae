// Files: no public operation leaves one open when it returns, on a good movie
// or on files it gives up on part way, and none waits on a path that is no
// regular file.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <future>
#include <iterator>

#include <gtest/gtest.h>

#include "Inc/IQTMovieFixer.h"
#include "Tests/Support/Corpus.h"
#include "Tests/Support/Open.h"

using namespace testsupport;
namespace fs = std::filesystem;

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

// `operation`, run on a thread of its own; the test fails when it has not
// returned within 5 seconds, and a reader blocked in opening a named pipe is
// then let go by opening the pipe's other end.
template <typename Operation>
auto WithoutWaiting(const fs::path& path, Operation&& operation)
{
    auto result = std::async(std::launch::async, std::forward<Operation>(operation));
    if (result.wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
        ADD_FAILURE() << "the operation waits on " << path;
        const int other = ::open(path.c_str(), O_RDWR | O_NONBLOCK);
        result.wait();
        if (other >= 0) ::close(other);
    }
    return result.get();
}

TEST(FileDescriptors, PathsThatAreNoRegularFileAreRefusedAtOnce)
{
    // A `c608` sample of 12 bytes in a file without `cdat`: the check of the
    // movie's own file finds none and reads 6 pairs; where it cannot read the
    // file it keeps the 8-byte header, and 2 pairs are left.
    TrackPlan captions;
    captions.mediaType = "clcp";
    captions.descriptions = {SampleDescription("c608", {})};
    captions.stco = {kMdatPayloadStart};
    captions.stszSizes = {12};
    MoviePlan plan;
    plan.tracks = {captions};
    const OpenedTrack track = OpenTrackOf(BuildMovieFileMediaFirst(plan, Bytes(12, 0)));
    QT::CaptionSampleMap fromFile;
    ASSERT_EQ(track.track->MakeCaptionSampleTable(track.Path16(), fromFile, true), QT::kResultSuccess);
    ASSERT_EQ(fromFile.size(), 6u);

    const fs::path dir = track.path.parent_path();
    ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);
    fs::create_directory(dir / "folder");
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (dir / "socket").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    std::vector<fs::path> paths = {dir / "pipe", dir / "socket", "/dev/null", dir / "folder"};
    for (const auto& entry : fs::directory_iterator("/dev")) { // a block device, where one can be read
        if (entry.is_block_file() && ::access(entry.path().c_str(), R_OK) == 0) {
            paths.push_back(entry.path());
            break;
        }
    }
    for (const fs::path& path : paths) {
        SCOPED_TRACE(path.string());
        const QT::String16 path16 = ToString16(path.string());
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        bool found = false;
        std::uint64_t offset = 0, size = 0;
        QT::CaptionSampleMap table;
        ExpectNoLeak("open", QT::kResultCannotOpen,
                     [&] { return WithoutWaiting(path, [&] { return QT::MakeParser()->OpenMovie(path16, movie); }); });
        ExpectNoLeak("open and find", QT::kResultCannotOpen, [&] {
            return WithoutWaiting(path, [&] {
                return QT::MakeParser()->OpenMovieAndFindAtom(path16, movie, QT::MakeFourCC("moov"), found, offset,
                                                              size);
            });
        });
        ExpectNoLeak("repair", QT::kResultSuccess,
                     [&] { return WithoutWaiting(path, [&] { return QT::MakeFixer()->FixMovie(path16); }); });
        ExpectNoLeak("caption table", QT::kResultSuccess, [&] {
            return WithoutWaiting(path, [&] { return track.track->MakeCaptionSampleTable(path16, table, true); });
        });
        EXPECT_EQ(table.size(), 2u);
        EXPECT_FALSE(movie);
    }
    ::close(listener);
}

} // namespace
