// No public operation leaves a file open when it returns.
#include <filesystem>

#include <gtest/gtest.h>

#include "Inc/IQTMovieFixer.h"
#include "Tests/Support/Corpus.h"
#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

std::size_t OpenDescriptors()
{
    std::size_t n = 0;
    for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator("/proc/self/fd")) ++n;
    return n;
}

template <typename F>
void ExpectNoLeak(const char* what, F&& operation)
{
    const std::size_t before = OpenDescriptors();
    operation();
    EXPECT_EQ(OpenDescriptors(), before) << what;
}

TEST(FileDescriptors, EveryFileOperationClosesItsFile)
{
    const QT::String16 sample = ToString16(CorpusMovie("broadcast_2997_tc_c608_aac").string());
    TempFile damaged(ReadFile(CorpusMovie("damaged_stco_topbyte_single")));
    TempFile notAMovie(Bytes(64, 0x11));
    TempFile cutInMoov(ReadFile(CorpusMovie("damaged_truncated_in_moov")));

    Tessel::InterfaceRef<QT::IQTMovie> movie;
    ExpectNoLeak("open", [&] { EXPECT_EQ(QT::MakeParser()->OpenMovie(sample, movie), 0u); });
    ExpectNoLeak("open, not a movie", [&] {
        Tessel::InterfaceRef<QT::IQTMovie> m;
        EXPECT_EQ(QT::MakeParser()->OpenMovie(notAMovie.Path16(), m), QT::kResultNotAMovie);
    });
    ExpectNoLeak("open, cut in the movie atom", [&] {
        Tessel::InterfaceRef<QT::IQTMovie> m;
        EXPECT_EQ(QT::MakeParser()->OpenMovie(cutInMoov.Path16(), m), QT::kResultNotAMovie);
    });
    ExpectNoLeak("open, missing", [&] {
        Tessel::InterfaceRef<QT::IQTMovie> m;
        EXPECT_EQ(QT::MakeParser()->OpenMovie(ToString16("/no/such/file.mov"), m), QT::kResultCannotOpen);
    });
    ExpectNoLeak("open and find", [&] {
        Tessel::InterfaceRef<QT::IQTMovie> m;
        bool found = false;
        std::uint64_t offset = 0, size = 0;
        EXPECT_EQ(QT::MakeParser()->OpenMovieAndFindAtom(sample, m, QT::MakeFourCC("ftyp"), found, offset, size), 0u);
        EXPECT_TRUE(found);
    });
    ExpectNoLeak("repair", [&] { EXPECT_EQ(QT::MakeFixer()->FixMovie(damaged.Path16()), 0u); });
    ExpectNoLeak("repair, missing", [&] { EXPECT_EQ(QT::MakeFixer()->FixMovie(ToString16("/no/such/file.mov")), 0u); });
    ASSERT_TRUE(movie);
    for (std::uint32_t i = 0; i < movie->GetTrackCount(); ++i) {
        auto track = movie->GetIndTrack(i);
        if (track->GetTrackMediaType() != QT::kClosedCaptionMediaType) continue;
        for (bool byOffset : {false, true}) {
            ExpectNoLeak("caption table", [&] {
                QT::CaptionSampleMap map;
                EXPECT_EQ(track->MakeCaptionSampleTable(sample, map, byOffset), 0u);
                EXPECT_FALSE(map.empty());
            });
        }
        ExpectNoLeak("caption table, missing file", [&] {
            QT::CaptionSampleMap map;
            track->MakeCaptionSampleTable(ToString16("/no/such/file.mov"), map, true);
        });
    }
}

} // namespace
