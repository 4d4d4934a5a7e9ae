// The volume change notice: a thread that watches the mount table through
// libmount and runs the registered callbacks after each change.
#include "vellum.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include <libmount/libmount.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace vellum {
namespace filesupport {

namespace {

void RunCallbacks();

// One watching thread. An eventfd wakes it to stop or to run the callbacks
// on request; the monitor's descriptor wakes it when the mount table changes.
class Watcher {
public:
    static std::shared_ptr<Watcher> Start()
    {
        std::shared_ptr<Watcher> watcher(new Watcher);
        watcher->mThread = std::thread([watcher] { watcher->Run(); });
        return watcher;
    }
    ~Watcher() { ::close(mWakeFd); }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    void Post()
    {
        mPosted.store(true);
        Wake();
    }

    // Ends the thread and waits for it. On the thread itself (a callback
    // that terminates the monitor) the thread is left to end on its own.
    void Stop()
    {
        mStop.store(true);
        Wake();
        if (mThread.get_id() == std::this_thread::get_id()) mThread.detach();
        else if (mThread.joinable()) mThread.join();
    }

private:
    Watcher() : mWakeFd(::eventfd(0, EFD_CLOEXEC))
    {
        if (mWakeFd < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    }

    void Wake()
    {
        const std::uint64_t one = 1;
        if (::write(mWakeFd, &one, sizeof one) < 0) {
            // Only a full counter fails, and then a wake is pending anyway.
        }
    }

    // The monitor's descriptor, or -1 when the mount table can't be watched;
    // then the thread serves stop and post requests only.
    static int OpenMonitor(libmnt_monitor* monitor)
    {
        if (!monitor) return -1;
        // The kernel's table tells of every mount and unmount; the userspace
        // table of those made by the mount tools.
        mnt_monitor_enable_kernel(monitor, 1);
        mnt_monitor_enable_userspace(monitor, 1, nullptr);
        int fd = mnt_monitor_get_fd(monitor);
        if (fd < 0) {
            mnt_monitor_enable_userspace(monitor, 0, nullptr);
            fd = mnt_monitor_get_fd(monitor);
        }
        return fd;
    }

    void Run()
    {
        libmnt_monitor* monitor = mnt_new_monitor();
        int monitorFd = OpenMonitor(monitor);
        while (!mStop.load()) {
            pollfd fds[2] = {{mWakeFd, POLLIN, 0}, {monitorFd, POLLIN, 0}};
            const nfds_t count = monitorFd >= 0 ? 2 : 1;
            if (::poll(fds, count, -1) < 0) {
                if (errno == EINTR) continue;
                break;
            }
            bool changed = false;
            if (fds[0].revents & POLLIN) {
                std::uint64_t value = 0;
                if (::read(mWakeFd, &value, sizeof value) < 0) {
                    // Nothing to drain: another read got there first.
                }
                changed = mPosted.exchange(false);
            }
            if (count == 2 && fds[1].revents) {
                const char* file = nullptr;
                int type = 0;
                int rc = 0;
                while ((rc = mnt_monitor_next_change(monitor, &file, &type)) == 0) changed = true;
                // A monitor that fails would wake us forever: stop watching it.
                if (rc < 0 || (fds[1].revents & (POLLERR | POLLHUP | POLLNVAL))) monitorFd = -1;
            }
            if (changed && !mStop.load()) {
                // Nobody could receive an error thrown here.
                try {
                    RunCallbacks();
                } catch (...) {
                }
            }
        }
        if (monitor) mnt_unref_monitor(monitor);
    }

    int mWakeFd;
    std::atomic<bool> mStop{false};
    std::atomic<bool> mPosted{false};
    std::thread mThread;
};

struct MonitorState {
    std::mutex mutex; // guards the three fields below
    int initCount = 0;
    std::vector<VolumeChangedCallback> callbacks;
    std::shared_ptr<Watcher> watcher;
    // Held while callbacks run, so that a removal can wait for a run in
    // progress. Recursive, so that a callback may remove callbacks.
    std::recursive_mutex running;
};

MonitorState& Monitor()
{
    static MonitorState* state = new MonitorState; // lives to process exit
    return *state;
}

bool IsRegistered(const VolumeChangedCallback& callback)
{
    MonitorState& st = Monitor();
    std::lock_guard<std::mutex> lock(st.mutex);
    return std::find(st.callbacks.begin(), st.callbacks.end(), callback) != st.callbacks.end();
}

void RunCallbacks()
{
    MonitorState& st = Monitor();
    std::lock_guard<std::recursive_mutex> running(st.running);
    std::vector<VolumeChangedCallback> callbacks;
    {
        std::lock_guard<std::mutex> lock(st.mutex);
        callbacks = st.callbacks;
    }
    for (const VolumeChangedCallback& callback : callbacks) {
        // One callback may have removed another in this run.
        if (IsRegistered(callback) && *callback) (*callback)();
    }
}

} // namespace

void DirectoryChangeMonitor::Initialize()
{
    MonitorState& st = Monitor();
    std::lock_guard<std::mutex> lock(st.mutex);
    if (st.initCount == 0) st.watcher = Watcher::Start();
    ++st.initCount;
}

void DirectoryChangeMonitor::Terminate()
{
    MonitorState& st = Monitor();
    std::shared_ptr<Watcher> stopping;
    {
        std::lock_guard<std::mutex> lock(st.mutex);
        if (st.initCount == 0) return;
        if (--st.initCount == 0) stopping = std::move(st.watcher);
    }
    // Joined outside the lock: the thread takes it to read the callbacks.
    if (stopping) stopping->Stop();
}

void DirectoryChangeMonitor::MonitorVolumeChanges(const VolumeChangedCallback& callback)
{
    if (!callback) return;
    MonitorState& st = Monitor();
    std::lock_guard<std::mutex> lock(st.mutex);
    st.callbacks.push_back(callback);
}

void DirectoryChangeMonitor::RemoveVolumeChangedCallback(const VolumeChangedCallback& callback)
{
    MonitorState& st = Monitor();
    {
        std::lock_guard<std::mutex> lock(st.mutex);
        auto& cbs = st.callbacks;
        cbs.erase(std::remove(cbs.begin(), cbs.end(), callback), cbs.end());
    }
    // A run that began before the removal may be calling it still.
    std::lock_guard<std::recursive_mutex> running(st.running);
}

void DirectoryChangeMonitor::NotifyVolumeChange() { RunCallbacks(); }

void DirectoryChangeMonitor::PostVolumeChange()
{
    MonitorState& st = Monitor();
    std::shared_ptr<Watcher> watcher;
    {
        std::lock_guard<std::mutex> lock(st.mutex);
        watcher = st.watcher;
    }
    if (watcher) watcher->Post();
}

bool DirectoryChangeMonitor::IsMonitoring()
{
    MonitorState& st = Monitor();
    std::lock_guard<std::mutex> lock(st.mutex);
    return st.watcher != nullptr;
}

} // namespace filesupport
} // namespace vellum
