// The volume change notice: registration, removal, and the monitor thread.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <boost/make_shared.hpp>

#include "vellum/vellum.h"

using Monitor = vellum::filesupport::DirectoryChangeMonitor;
using vellum::filesupport::VolumeChangedCallback;

namespace {

VolumeChangedCallback MakeCallback(std::function<void()> body)
{
    return boost::make_shared<boost::function<void()>>(std::move(body));
}

bool WaitFor(const std::atomic<bool>& flag)
{
    for (int i = 0; i < 10000 && !flag.load(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return flag.load();
}

// The remover takes `a` out in the middle of a run that has listed it already;
// removing it again, and registering an empty callback, do nothing.
TEST(DirectoryChangeMonitor, CallbacksRunUntilRemovedEvenDuringARun)
{
    int aRuns = 0, bRuns = 0;
    VolumeChangedCallback a = MakeCallback([&] { ++aRuns; });
    VolumeChangedCallback b = MakeCallback([&] { ++bRuns; });
    VolumeChangedCallback remover = MakeCallback([&] { Monitor::RemoveVolumeChangedCallback(a); });
    for (const auto& callback : {b, remover, a, VolumeChangedCallback()}) Monitor::MonitorVolumeChanges(callback);
    Monitor::NotifyVolumeChange();
    Monitor::NotifyVolumeChange();
    Monitor::RemoveVolumeChangedCallback(b);
    Monitor::NotifyVolumeChange();
    EXPECT_EQ(aRuns, 0);
    EXPECT_EQ(bRuns, 2);
    Monitor::RemoveVolumeChangedCallback(remover);
}

// The thread starts at the first Initialize and stops at the last Terminate,
// here one made by a callback on that thread, which cannot join itself. A
// posted change runs there, and a removal waits for the run to end.
TEST(DirectoryChangeMonitor, ThreadRunsPostedChangesAndStopsWithBalancedCalls)
{
    if (Monitor::IsMonitoring()) GTEST_SKIP() << "the monitor is held elsewhere";
    Monitor::Terminate();        // unbalanced: counts not below zero
    Monitor::PostVolumeChange(); // without a thread: goes nowhere
    Monitor::Initialize();
    Monitor::Initialize();
    Monitor::Terminate();
    EXPECT_TRUE(Monitor::IsMonitoring());
    std::atomic<bool> entered{false}, finished{false};
    std::atomic<std::thread::id> where{};
    VolumeChangedCallback slow = MakeCallback([&] {
        where = std::this_thread::get_id();
        entered = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        Monitor::Terminate();
        finished = true;
    });
    Monitor::MonitorVolumeChanges(slow);
    Monitor::PostVolumeChange();
    EXPECT_TRUE(WaitFor(entered));
    Monitor::RemoveVolumeChangedCallback(slow);
    EXPECT_TRUE(finished.load());
    EXPECT_NE(where.load(), std::this_thread::get_id());
    EXPECT_FALSE(Monitor::IsMonitoring());
}

} // namespace
