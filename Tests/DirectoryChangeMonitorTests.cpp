// The volume change notice: registration, removal, and the monitor thread.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <boost/make_shared.hpp>

#include "vellum/vellum.h"

using vellum::filesupport::DirectoryChangeMonitor;
using vellum::filesupport::VolumeChangedCallback;

namespace {

VolumeChangedCallback MakeCallback(std::function<void()> body)
{
    return boost::make_shared<boost::function<void()>>(std::move(body));
}

template <typename Pred>
bool WaitFor(Pred pred)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Balances one Initialize.
struct Initialized {
    Initialized() { DirectoryChangeMonitor::Initialize(); }
    ~Initialized() { DirectoryChangeMonitor::Terminate(); }
};

TEST(DirectoryChangeMonitor, RegisteredCallbacksRunUntilRemoved)
{
    int first = 0, second = 0;
    VolumeChangedCallback a = MakeCallback([&] { ++first; });
    VolumeChangedCallback b = MakeCallback([&] { ++second; });
    DirectoryChangeMonitor::MonitorVolumeChanges(a);
    DirectoryChangeMonitor::MonitorVolumeChanges(b);
    DirectoryChangeMonitor::MonitorVolumeChanges(VolumeChangedCallback()); // ignored
    DirectoryChangeMonitor::NotifyVolumeChange();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);

    DirectoryChangeMonitor::RemoveVolumeChangedCallback(a);
    DirectoryChangeMonitor::NotifyVolumeChange();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);

    DirectoryChangeMonitor::RemoveVolumeChangedCallback(b);
    DirectoryChangeMonitor::RemoveVolumeChangedCallback(b); // already gone
    DirectoryChangeMonitor::NotifyVolumeChange();
    EXPECT_EQ(second, 2);
}

TEST(DirectoryChangeMonitor, CallbackRemovedDuringARunDoesNotRun)
{
    int laterRuns = 0;
    VolumeChangedCallback later = MakeCallback([&] { ++laterRuns; });
    VolumeChangedCallback remover = MakeCallback([&] { DirectoryChangeMonitor::RemoveVolumeChangedCallback(later); });
    DirectoryChangeMonitor::MonitorVolumeChanges(remover);
    DirectoryChangeMonitor::MonitorVolumeChanges(later);
    DirectoryChangeMonitor::NotifyVolumeChange();
    EXPECT_EQ(laterRuns, 0);
    DirectoryChangeMonitor::RemoveVolumeChangedCallback(remover);
}

TEST(DirectoryChangeMonitor, ThreadStartsAndStopsWithBalancedCalls)
{
    const bool before = DirectoryChangeMonitor::IsMonitoring();
    for (int i = 0; i < 20; ++i) {
        DirectoryChangeMonitor::Initialize();
        EXPECT_TRUE(DirectoryChangeMonitor::IsMonitoring());
        DirectoryChangeMonitor::Initialize();
        DirectoryChangeMonitor::Terminate();
        EXPECT_TRUE(DirectoryChangeMonitor::IsMonitoring());
        DirectoryChangeMonitor::Terminate();
        EXPECT_EQ(DirectoryChangeMonitor::IsMonitoring(), before);
    }
    if (!before) {
        // An unbalanced Terminate does not count below zero.
        DirectoryChangeMonitor::Terminate();
        DirectoryChangeMonitor::Initialize();
        EXPECT_TRUE(DirectoryChangeMonitor::IsMonitoring());
        DirectoryChangeMonitor::Terminate();
        EXPECT_FALSE(DirectoryChangeMonitor::IsMonitoring());
    }
}

TEST(DirectoryChangeMonitor, PostedChangeRunsOnTheMonitorThread)
{
    std::atomic<int> runs{0};
    std::atomic<std::thread::id> where{};
    VolumeChangedCallback callback = MakeCallback([&] {
        where = std::this_thread::get_id();
        ++runs;
    });
    DirectoryChangeMonitor::MonitorVolumeChanges(callback);
    {
        Initialized monitor;
        DirectoryChangeMonitor::PostVolumeChange();
        ASSERT_TRUE(WaitFor([&] { return runs.load() == 1; }));
        EXPECT_NE(where.load(), std::this_thread::get_id());
    }
    if (!DirectoryChangeMonitor::IsMonitoring()) {
        // Without a monitor thread a post goes nowhere.
        DirectoryChangeMonitor::PostVolumeChange();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(runs.load(), 1);
    }
    DirectoryChangeMonitor::RemoveVolumeChangedCallback(callback);
}

TEST(DirectoryChangeMonitor, RemovalWaitsForARunInProgress)
{
    Initialized monitor;
    std::atomic<bool> entered{false}, finished{false};
    VolumeChangedCallback slow = MakeCallback([&] {
        entered = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        finished = true;
    });
    DirectoryChangeMonitor::MonitorVolumeChanges(slow);
    DirectoryChangeMonitor::PostVolumeChange();
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));
    DirectoryChangeMonitor::RemoveVolumeChangedCallback(slow);
    EXPECT_TRUE(finished.load());
}

TEST(DirectoryChangeMonitor, CallbackMayTerminateTheMonitor)
{
    if (DirectoryChangeMonitor::IsMonitoring()) GTEST_SKIP() << "the monitor is held elsewhere";
    DirectoryChangeMonitor::Initialize();
    std::atomic<bool> ran{false};
    VolumeChangedCallback stopper = MakeCallback([&] {
        DirectoryChangeMonitor::Terminate();
        ran = true;
    });
    DirectoryChangeMonitor::MonitorVolumeChanges(stopper);
    DirectoryChangeMonitor::PostVolumeChange();
    ASSERT_TRUE(WaitFor([&] { return ran.load(); }));
    EXPECT_FALSE(DirectoryChangeMonitor::IsMonitoring());
    DirectoryChangeMonitor::RemoveVolumeChangedCallback(stopper);
}

} // namespace
