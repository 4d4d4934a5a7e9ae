// `atomscan scan PATH...`: every file under the paths, a line each, and a summary.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "Commands.h"
#include "scan/Examine.h"
#include "scan/Progress.h"
#include "scan/Report.h"
#include "scan/Walk.h"

namespace atomscan_tool {

namespace {

// Examines the walk's entries on `jobs` threads, each with parsers of its own,
// and hands the records to `emit` in the order of the entries, in batches of
// those whose predecessors are all done.
class ScanPool {
public:
    ScanPool(const std::vector<WalkEntry>& entries, std::vector<ScanRecord>& records)
        : mEntries(entries), mRecords(records), mDone(entries.size(), false)
    {
        mRecords.resize(entries.size());
    }

    template <typename Emit>
    void Run(unsigned jobs, Progress& progress, Emit&& emit)
    {
        const std::size_t total = mEntries.size();
        std::vector<std::jthread> workers;
        for (unsigned i = 0; i < std::min<std::size_t>(jobs, total); ++i) workers.emplace_back([this] { Work(); });
        std::size_t emitted = 0;
        while (emitted < total) {
            std::size_t ready = emitted, done = 0, movies = 0;
            std::uint64_t bytes = 0;
            {
                std::unique_lock lock(mMutex);
                // Woken when all are done, else ten times a second: not at every file.
                mChanged.wait_for(lock, std::chrono::milliseconds(100), [&] { return mDoneCount == total; });
                while (ready < total && mDone[ready]) ++ready;
                done = mDoneCount;
                movies = mMovies;
                bytes = mBytes;
            }
            // Records before `ready` are no longer written by the workers.
            if (ready > emitted) emit(emitted, ready);
            emitted = ready;
            progress.Update(done, total, movies, bytes);
        }
    }

private:
    void Work()
    {
        for (;;) {
            const std::size_t i = mNext.fetch_add(1);
            if (i >= mEntries.size()) return;
            ScanRecord record = Examine(mEntries[i]);
            bool last = false;
            {
                const std::lock_guard lock(mMutex);
                mRecords[i] = std::move(record);
                mDone[i] = true;
                ++mDoneCount;
                if (mRecords[i].status == ScanRecord::Status::Movie) ++mMovies;
                mBytes += mEntries[i].size;
                last = mDoneCount == mEntries.size();
            }
            if (last) mChanged.notify_one();
        }
    }

    const std::vector<WalkEntry>& mEntries;
    std::vector<ScanRecord>& mRecords;
    std::atomic<std::size_t> mNext{0};
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<bool> mDone; // guarded by mMutex, as are the three counts
    std::size_t mDoneCount = 0, mMovies = 0;
    std::uint64_t mBytes = 0;
};

} // namespace

int RunScan(const ScanOptions& options)
{
    Progress progress(::isatty(2) == 1);
    const WalkResult walk = WalkPaths(options.paths, [&](std::size_t found) { progress.Walking(found); });
    if (walk.argumentsFound == 0) {
        progress.Clear();
        for (const WalkEntry& e : walk.entries) ReportError(e.path + ": " + e.note);
        return kScanExitNoPath;
    }

    std::vector<ScanRecord> records;
    ScanPool pool(walk.entries, records);
    pool.Run(options.jobs, progress, [&](std::size_t from, std::size_t to) {
        if (!options.json) return;
        progress.Clear();
        for (std::size_t i = from; i < to; ++i) std::fputs(ScanJsonLine(records[i]).c_str(), stdout);
        std::fflush(stdout);
    });
    progress.Clear();

    const ScanSummary summary = Summarize(records, walk);
    if (options.json) std::fputs(ScanJsonSummaryLine(summary).c_str(), stdout);
    else PrintScanText(stdout, records, summary);
    std::fflush(stdout);

    const bool failed = (options.failOnMissingReferences && !summary.withMissingReferences.empty()) ||
                        (options.failOnDamaged && !summary.withOffsetsBeyondEnd.empty());
    return failed ? kScanExitFound : kExitOk;
}

} // namespace atomscan_tool
