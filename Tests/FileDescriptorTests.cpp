// Files: no public operation leaves one open when it returns, on a good movie
// or on files it gives up on part way, and none waits on a path that is no
// regular file.
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <future>
#include <iterator>

#include "Tests/Support/Open.h"

namespace fs = std::filesystem;

namespace {

std::ptrdiff_t OpenDescriptors() { return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()); }

// Runs `operation` on a thread of its own: it must give `code` within 5 seconds (a reader blocked in opening a
// named pipe is then let go by opening the pipe's other end), and leave no more files open than there were.
template <typename Operation>
void ExpectAtOnceAndClosed(const char* what, const fs::path& path, QT::ResultCode code, Operation&& operation)
{
    const std::ptrdiff_t before = OpenDescriptors();
    auto result = std::async(std::launch::async, std::forward<Operation>(operation));
    if (result.wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
        ADD_FAILURE() << what << " waits on " << path;
        const int other = ::open(path.c_str(), O_RDWR | O_NONBLOCK);
        result.wait();
        if (other >= 0) ::close(other);
    }
    EXPECT_EQ(result.get(), code) << what;
    EXPECT_EQ(OpenDescriptors(), before) << what;
}

// Each operation that opens a file, on movies, on files it gives up on part way, and on paths that are no regular
// file: a named pipe, a socket, a device, a folder, and a block device where one can be read.
TEST(FileDescriptors, EveryFileOperationReturnsAtOnceAndClosesItsFile)
{
    // The caption table reads 8 bytes of a `c608` sample of 12 in the file it is given: without `cdat` there, 6
    // pairs; where it cannot read the file it keeps the 8-byte header, and 2 pairs are left.
    const TrackPlan captions = CaptionTrack("c608", {12}, {kMdatPayloadStart});
    const OpenedTrack track = OpenTrackOf(BuildMovieFileMediaFirst(MoviePlan{600, 100, {captions}, {}}, Bytes(12, 0)));
    const fs::path dir = track.file->Path().parent_path();
    ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);
    fs::create_directory(dir / "folder");
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (dir / "socket").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const TempFile good(ReadFile(CorpusMovie("broadcast_2997_tc_c608_aac"))), damaged(ReadFile(CorpusMovie(
        "damaged_stco_topbyte_single"))), cut(ReadFile(CorpusMovie("damaged_truncated_in_moov"))), text(Bytes(64, 'x'));
    constexpr QT::ResultCode kOk = QT::kResultSuccess, kNo = QT::kResultNotAMovie, kCannot = QT::kResultCannotOpen;
    // What the open and the open that looks for `ftyp` give, and the pairs of the caption table.
    std::vector<std::tuple<fs::path, QT::ResultCode, std::size_t>> cases = {
        {good.Path(), kOk, 6}, {damaged.Path(), kOk, 6}, {cut.Path(), kNo, 6}, {text.Path(), kNo, 6},
        {dir / "pipe", kCannot, 2}, {dir / "socket", kCannot, 2}, {"/dev/null", kCannot, 2}, {dir / "folder", kCannot, 2}};
    for (const auto& entry : fs::directory_iterator("/dev")) {
        if (entry.is_block_file() && ::access(entry.path().c_str(), R_OK) == 0) {
            cases.push_back({entry.path(), kCannot, 2});
            break;
        }
    }
    for (const auto& [path, code, pairs] : cases) {
        SCOPED_TRACE(path.string());
        const QT::String16 path16 = ToString16(path.string());
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        bool found = false;
        std::uint64_t offset = 0, size = 0;
        QT::CaptionSampleMap table;
        ExpectAtOnceAndClosed("open", path, code, [&] { return QT::MakeParser()->OpenMovie(path16, movie); });
        EXPECT_EQ(static_cast<bool>(movie), code == kOk);
        ExpectAtOnceAndClosed("open and find", path, code, [&] {
            return QT::MakeParser()->OpenMovieAndFindAtom(path16, movie, QT::MakeFourCC("ftyp"), found, offset, size);
        });
        EXPECT_EQ(found, code == kOk);
        ExpectAtOnceAndClosed("repair", path, kOk, [&] { return QT::MakeFixer()->FixMovie(path16); });
        ExpectAtOnceAndClosed("caption table", path, kOk,
                              [&] { return track.track->MakeCaptionSampleTable(path16, table, true); });
        EXPECT_EQ(table.size(), pairs);
    }
    EXPECT_EQ(ReadFile(damaged.Path()), ReadFile(CorpusMovie("layout_faststart"))); // the repair was done
    ::close(listener);
}

} // namespace
