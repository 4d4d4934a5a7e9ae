// Tracks of one movie used from several threads at once; references dropped anywhere.
#include <atomic>
#include <thread>

#include "Tests/Support/Open.h"

namespace {

std::uint32_t Answer(const Tessel::InterfaceRef<QT::IQTTrack>& t)
{
    return t->GetEditSampleCount() ^ t->GetTrackMediaType() ^ t->GetEditDuration();
}

// Each thread holds a reference of its own and the main thread lets go while
// they run; one shared track has its caches filled from several threads.
TEST(ConcurrencyTracks, ManyThreadsReadOneMovie)
{
    const auto path = ToString16(CorpusMovie("broadcast_2997_tc_c608_aac").string());
    // The answers come from an open of their own, so the threads find the
    // caches of their movie's tracks empty and race to fill them.
    Tessel::InterfaceRef<QT::IQTMovie> probe, movie;
    ASSERT_EQ(QT::MakeParser()->OpenMovie(path, probe), QT::kResultSuccess);
    ASSERT_EQ(QT::MakeParser()->OpenMovie(path, movie), QT::kResultSuccess);
    std::vector<std::uint32_t> expected;
    for (std::uint32_t i = 0; i < probe->GetTrackCount(); ++i) expected.push_back(Answer(probe->GetIndTrack(i)));
    auto shared = movie->GetIndTrack(0);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int n = 0; n < 4; ++n) {
        threads.emplace_back([&, mine = movie] {
            // First, before any reference count orders the threads.
            if (Answer(shared) != expected[0]) ++mismatches;
            for (int round = 0; round < 50; ++round) {
                for (std::uint32_t i = 0; i < mine->GetTrackCount(); ++i)
                    if (Answer(mine->GetIndTrack(i)) != expected[i]) ++mismatches;
                if (Answer(shared) != expected[0]) ++mismatches;
                QT::QTRect r;
                mine->GetBounds(r);
                if (r.right != 192) ++mismatches; // the width ffprobe gives
            }
        });
    }
    movie.Clear();
    for (auto& t : threads) t.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(shared->GetTrackMediaType(), QT::kVideoMediaType);
}

} // namespace
