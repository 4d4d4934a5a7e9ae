// The mounted volumes of this machine, as the logical drive table needs them:
// their roots in a stable order, their labels, and whether each can be read
// now and is a floppy disk.
#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "vellum/vellum.h"

namespace vellum {
namespace filesupport {

struct MountedVolume {
    // The mount point with its closing "/".
    utility::String16 rootPath;
    // False when the label could not be read: a pseudo or network file
    // system, or a device that cannot be opened or holds no known format.
    bool labelReadable = false;
    // The label as read; empty for a volume without one.
    utility::String16 label;
    // The mount point is a directory whose file system answers now, and no
    // other mount hides it.
    bool isReady = false;
    // The source is a floppy disk device.
    bool isFloppy = false;
};

using MountedVolumeLister = std::function<std::vector<MountedVolume>()>;

// The volumes through the current lister: the system's own unless a test
// has replaced it.
VELLUM_API std::vector<MountedVolume> ListMountedVolumes();

// The system's volumes, in the order of the kernel's mount table.
VELLUM_API std::vector<MountedVolume> ListSystemMountedVolumes();

// For tests: lists volumes through `lister` from now on, or through the
// system again when it is empty. Gives the lister that was in force.
VELLUM_API MountedVolumeLister ReplaceMountedVolumeLister(MountedVolumeLister lister);

// The root of a mount point: the path with a closing "/".
VELLUM_API utility::String16 MountPointToRoot(std::string_view mountPoint);

// The label of the file system on a device or image file. False when it
// can't be opened or holds no format that the probe knows; true with an
// empty label for a file system without one.
VELLUM_API bool ReadVolumeLabel(const char* devicePath, utility::String16& outLabel);

// Whether a device path names a floppy drive (/dev/fd0, /dev/fd1u1440, ...).
VELLUM_API bool IsFloppyDevicePath(std::string_view devicePath);

} // namespace filesupport
} // namespace vellum
