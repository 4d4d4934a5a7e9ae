// External references: the logical drive table, which turns the volume part
// of a stored path into a root on this machine. Listing and validating the
// references themselves is declared in Inc/ExternalReferences.h.
#pragma once

#include <vector>

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include "Inc/AtomscanTypes.h"
#include "Src/CountedPtr.h"

namespace QT {

// One mounted volume.
struct LogicalDrive {
    String16 rootPath;   // the mount point, closing "/" included
    String16 volumeName; // label in lower case; "noname" if empty; empty if unreadable
    bool isFloppy = false;
    bool isReady = false;
};

using LogicalDriveRows = std::vector<LogicalDrive, vellum::utility::SmallBlockAllocator<LogicalDrive>>;

// The volumes mounted now, rebuilt whole after every volume change. One
// instance per process, through GetLogicalDriveTable.
class LogicalDriveTable {
public:
    // Starts the change monitor, registers the rebuild with it and builds the rows.
    LogicalDriveTable();
    ~LogicalDriveTable();
    LogicalDriveTable(const LogicalDriveTable&) = delete;
    LogicalDriveTable& operator=(const LogicalDriveTable&) = delete;

    // Replaces all rows under the mutex, so no lookup sees a half-built table.
    void RebuildLogicalDriveTable();

    // The root of the ready volume that `name` names, or empty. A name with
    // a ":" is a drive and is compared with roots; any other is a label.
    // Floppy rows count only when `allowFloppy`.
    String16 FindDriveRoot(const String16& name, bool allowFloppy) const;

    // A copy of the rows, in listing order.
    LogicalDriveRows GetRows() const;

private:
    mutable boost::mutex mMutex;
    boost::shared_ptr<boost::function<void()>> mChangeCallback;
    LogicalDriveRows mRows;
};

// The process's table, made at the first call.
CountedPtr<LogicalDriveTable> GetLogicalDriveTable();

// Whether GetLogicalDriveTable has made the process's table yet.
bool IsLogicalDriveTableMade();

} // namespace QT
