// Tracks of one movie used from several threads at once; references dropped anywhere.
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "Src/QTTrack.h"
#include "Tests/Support/Corpus.h"
#include "Tests/Support/Open.h"

using namespace testsupport;

namespace {

TEST(ConcurrencyTracks, ManyThreadsReadOneMovie)
{
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    ASSERT_EQ(QT::MakeParser()->OpenMovie(ToString16(CorpusMovie("broadcast_2997_tc_c608_aac").string()), movie),
              QT::kResultSuccess);
    // Expected answers, worked out on this thread first.
    std::vector<std::uint32_t> expected;
    for (std::uint32_t i = 0; i < movie->GetTrackCount(); ++i) {
        auto t = movie->GetIndTrack(i);
        expected.push_back(t->GetEditSampleCount() ^ t->GetTrackMediaType() ^ t->GetEditDuration());
    }
    // One shared track object too, so its caches are filled from several threads.
    auto shared = movie->GetIndTrack(0);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int n = 0; n < 4; ++n) {
        // Each thread holds a reference of its own, taken before it starts.
        threads.emplace_back([&, mine = movie] {
            for (int round = 0; round < 50; ++round) {
                for (std::uint32_t i = 0; i < mine->GetTrackCount(); ++i) {
                    auto t = mine->GetIndTrack(i);
                    if ((t->GetEditSampleCount() ^ t->GetTrackMediaType() ^ t->GetEditDuration()) != expected[i])
                        ++mismatches;
                }
                static_cast<QT::QTTrack*>(shared.Get())->GetTotalSampleCount();
                shared->GetEditSampleCount();
                QT::QTRect r;
                mine->GetBounds(r);
                if (r.right != 192) ++mismatches;
            }
        });
    }
    // The main thread lets go of the movie while the others still use it.
    movie.Clear();
    for (auto& t : threads) t.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(shared->GetTrackMediaType(), QT::kVideoMediaType);
}

} // namespace
