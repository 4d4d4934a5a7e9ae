#include "Src/ExternalReferences.h"

#include <algorithm>
#include <atomic>

#include <boost/make_shared.hpp>
#include <boost/thread/lock_guard.hpp>

#include "Inc/ExternalReferences.h"
#include "Inc/IQTMovie.h"
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

bool IsLogicalDriveTableMade() { return gLogicalDriveTableSet.load(std::memory_order_acquire); }

void GetExternalReferences(Tessel::InterfaceRef<IQTMovie>& movie, TrackReferenceMap& videoReferences,
                           TrackReferenceMap& audioReferences, TrackReferenceMap& timecodeReferences)
{
    const std::uint32_t count = movie->GetTrackCount();
    for (std::uint32_t i = 0; i < count; ++i) {
        Tessel::InterfaceRef<IQTTrack> track = movie->GetIndTrack(i);
        // A disabled timecode track still counts; disabled video and sound don't.
        const bool enabled = track->IsTrackEnabled();
        const FourCC type = track->GetTrackMediaType();
        if (!enabled && type != kTimecodeMediaType) continue;
        String16 path;
        if (!track->GetSingleExternalReferencePath(&path)) continue;
        switch (type) {
        case kVideoMediaType: videoReferences[i] = path; break;
        case kAudioMediaType: audioReferences[i] = path; break;
        case kTimecodeMediaType: timecodeReferences[i] = path; break;
        default: break;
        }
    }
}

bool GetAllExternalReferences(Tessel::InterfaceRef<IQTMovie>& movie, ExternalReferenceMap& references)
{
    const std::uint32_t count = movie->GetTrackCount();
    for (std::uint32_t i = 0; i < count; ++i) {
        Tessel::InterfaceRef<IQTTrack> track = movie->GetIndTrack(i);
        if (!track->IsTrackEnabled() && track->GetTrackMediaType() != kTimecodeMediaType) continue;
        if (!track->GetTrackExternalReferences(references)) return false;
    }
    return true;
}

namespace {

using Tessel::PathUtils::AddTrailingSlash;
using Tessel::PathUtils::ExistsOnDisk;
using Tessel::PathUtils::GetFullFilePart;

// Stored paths separate their parts by "/"; this turns them into the
// separator of the local file system. On this platform both are "/", so the
// conversion changes nothing; it stays to keep the lookups' form.
void ToNativeSeparators(String16& path)
{
    std::replace(path.begin(), path.end(), GetSeparators().slash[0], Tessel::PathUtils::kSeparator);
}

// Erases `count` units at every place where `pattern` begins, left to right,
// looking again at the same place after each erasure. That finds what a search
// from the head after each erasure finds, since an erasure creates no match
// before its place.
void EraseAtEach(String16& path, const char16_t* pattern, std::size_t skip, std::size_t count)
{
    for (std::size_t pos = path.find(pattern); pos != String16::npos; pos = path.find(pattern, pos))
        path.erase(pos + skip, count);
}

enum class StoredPathResult { kFound, kTryNearMovie, kNotFound };

// Looks for the file at its stored path `s`, relative to `base` if it is
// relative. A relative path that isn't there fails the reference outright.
StoredPathResult LookUpStoredPath(const String16& base, String16 s)
{
    const char16_t slash = GetSeparators().slash[0];
    if (s.size() >= 2 && s[0] == slash && s[1] == slash) {
        // A network path, tried once as it is.
        ToNativeSeparators(s);
        return ExistsOnDisk(s) ? StoredPathResult::kFound : StoredPathResult::kTryNearMovie;
    }
    if (s[0] != slash) return ExistsOnDisk(base + s) ? StoredPathResult::kFound : StoredPathResult::kNotFound;

    // A volume path: "/volume/rest". "/./" becomes "/", "//" becomes "/".
    EraseAtEach(s, u"/./", 1, 2);
    EraseAtEach(s, u"//", 0, 1);
    const std::size_t k = s.find(slash, 1);
    if (k == String16::npos) return StoredPathResult::kTryNearMovie;
    const String16 volume = s.substr(1, k - 1);
    String16 rest = s.substr(k + 1);

    // The table is made here, at the first reference that needs it; floppy
    // drives are always allowed.
    const String16 root = GetLogicalDriveTable()->FindDriveRoot(volume, true);
    if (root.empty()) return StoredPathResult::kTryNearMovie;
    ToNativeSeparators(rest);
    return ExistsOnDisk(root + rest) ? StoredPathResult::kFound : StoredPathResult::kTryNearMovie;
}

// Looks for the file near the movie: the bare file name, then the stored
// directory below the movie's directory, then the movie's directory, each by
// the file name and then by the file part of the stored path. The movie
// itself is no answer.
bool LookUpNearMovie(const String16& moviePath, const String16& base, const ExtRefData& reference)
{
    String16 candidate = reference.fileName;
    const String16& directory = reference.directoryName;
    const String16& fullPath = reference.fullPath;
    if (!ExistsOnDisk(candidate) && !candidate.empty() && !directory.empty())
        candidate = base + AddTrailingSlash(directory) + GetFullFilePart(candidate);
    if (!ExistsOnDisk(candidate) && !candidate.empty()) candidate = base + GetFullFilePart(candidate);
    if (!ExistsOnDisk(candidate) && !fullPath.empty() && !directory.empty())
        candidate = base + AddTrailingSlash(directory) + GetFullFilePart(fullPath);
    if (!ExistsOnDisk(candidate) && !fullPath.empty()) candidate = base + GetFullFilePart(fullPath);
    return ExistsOnDisk(candidate) && candidate != moviePath;
}

} // namespace

bool ValidateExternalReferences(const String16& moviePath, const ExternalReferenceMap& references)
{
    const String16 base = Tessel::PathUtils::GetFullDirectoryPart(moviePath);
    for (const auto& entry : references) {
        const ExtRefData& reference = entry.second;
        if (!reference.fullPath.empty()) {
            const StoredPathResult stored = LookUpStoredPath(base, reference.fullPath);
            if (stored == StoredPathResult::kFound) continue;
            if (stored == StoredPathResult::kNotFound) return false;
        }
        if (!LookUpNearMovie(moviePath, base, reference)) return false;
    }
    return true;
}

} // namespace QT
