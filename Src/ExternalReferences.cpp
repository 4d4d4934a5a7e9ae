#include "Src/ExternalReferences.h"

#include <atomic>

#include <boost/make_shared.hpp>
#include <boost/thread/lock_guard.hpp>

#include "vellum/VolumeServices.h"

namespace QT {

namespace {

using vellum::filesupport::DirectoryChangeMonitor;

// The three characters that names and keys are taken apart by.
struct Separators {
    String16 colon;
    String16 backslash;
    String16 slash;
};

const Separators& GetSeparators()
{
    static const Separators separators{vellum::utility::AsciiToUTF16(":", 1),
                                       vellum::utility::AsciiToUTF16("\\", 1),
                                       vellum::utility::AsciiToUTF16("/", 1)};
    return separators;
}

LogicalDrive MakeRow(const vellum::filesupport::MountedVolume& volume)
{
    LogicalDrive row;
    row.rootPath = volume.rootPath;
    if (volume.labelReadable) {
        if (volume.label.empty()) {
            row.volumeName = u"noname";
        } else {
            row.volumeName = volume.label;
            vellum::utility::ToLowerCase(row.volumeName);
        }
    }
    row.isFloppy = volume.isFloppy;
    row.isReady = volume.isReady;
    return row;
}

// Locks the process-wide recursive mutex for one scope.
class RecursiveLock {
public:
    explicit RecursiveLock(vellum::threads::RecursiveMutex& mutex) : mMutex(mutex) { mMutex.Lock(nullptr); }
    ~RecursiveLock() { mMutex.Unlock(); }
    RecursiveLock(const RecursiveLock&) = delete;
    RecursiveLock& operator=(const RecursiveLock&) = delete;

private:
    vellum::threads::RecursiveMutex& mMutex;
};

CountedPtr<LogicalDriveTable> gLogicalDriveTable;
std::atomic<bool> gLogicalDriveTableSet{false};
vellum::threads::RecursiveMutex gLogicalDriveTableLock;

} // namespace

LogicalDriveTable::LogicalDriveTable()
{
    GetSeparators();
    DirectoryChangeMonitor::Initialize();
    try {
        mChangeCallback = boost::make_shared<boost::function<void()>>([this] { RebuildLogicalDriveTable(); });
        DirectoryChangeMonitor::MonitorVolumeChanges(mChangeCallback);
        RebuildLogicalDriveTable();
    } catch (...) {
        // No callback may outlive a table that was never made.
        if (mChangeCallback) DirectoryChangeMonitor::RemoveVolumeChangedCallback(mChangeCallback);
        DirectoryChangeMonitor::Terminate();
        throw;
    }
}

// The rows, the callback and the mutex go after the body, in that order.
LogicalDriveTable::~LogicalDriveTable()
{
    DirectoryChangeMonitor::RemoveVolumeChangedCallback(mChangeCallback);
    DirectoryChangeMonitor::Terminate();
}

void LogicalDriveTable::RebuildLogicalDriveTable()
{
    boost::lock_guard<boost::mutex> lock(mMutex);
    mRows.clear();
    // Mount points stand for the drive roots; there are no drive letters to
    // open, so the volume list gives readiness and the floppy format itself.
    const std::vector<vellum::filesupport::MountedVolume> volumes = vellum::filesupport::ListMountedVolumes();
    if (volumes.empty()) return;
    mRows.reserve(volumes.size());
    for (const auto& volume : volumes) mRows.push_back(MakeRow(volume));
}

String16 LogicalDriveTable::FindDriveRoot(const String16& name, bool allowFloppy) const
{
    boost::lock_guard<boost::mutex> lock(mMutex);
    const Separators& separators = GetSeparators();

    String16 wanted;
    wanted.reserve(name.size());
    for (char16_t c : name)
        if (c != separators.backslash[0] && c != separators.slash[0]) wanted.push_back(c);
    vellum::utility::ToLowerCase(wanted);

    const std::size_t colon = wanted.find(separators.colon);
    const bool byRoot = colon != String16::npos;
    if (byRoot) {
        // A drive: the key is the name as given up to that index, lowered,
        // with ":" and the root separator. Roots here are mount points,
        // which begin with "/", so a drive letter finds nothing; roots are
        // compared exactly, as paths on this platform are case-sensitive.
        wanted = name.substr(0, colon);
        vellum::utility::ToLowerCase(wanted);
        wanted += separators.colon;
        wanted.push_back(Tessel::PathUtils::kSeparator);
    }

    for (const LogicalDrive& row : mRows) {
        if (!row.isReady || (row.isFloppy && !allowFloppy)) continue;
        if ((byRoot ? row.rootPath : row.volumeName) == wanted) return row.rootPath;
    }
    return String16();
}

LogicalDriveRows LogicalDriveTable::GetRows() const
{
    boost::lock_guard<boost::mutex> lock(mMutex);
    return mRows;
}

CountedPtr<LogicalDriveTable> GetLogicalDriveTable()
{
    if (!gLogicalDriveTableSet.load(std::memory_order_acquire)) {
        RecursiveLock lock(gLogicalDriveTableLock);
        if (!gLogicalDriveTableSet.load(std::memory_order_relaxed)) {
            gLogicalDriveTable = CountedPtr<LogicalDriveTable>(new LogicalDriveTable());
            gLogicalDriveTableSet.store(true, std::memory_order_release);
        }
    }
    return gLogicalDriveTable;
}

} // namespace QT
