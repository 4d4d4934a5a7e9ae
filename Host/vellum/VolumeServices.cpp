#include "VolumeServices.h"

#include <cctype>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include <blkid/blkid.h>
#include <libmount/libmount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

namespace vellum {
namespace filesupport {

namespace {

constexpr unsigned kFloppyMajor = 2;

struct ListerSlot {
    std::mutex mutex;
    MountedVolumeLister lister;
};

ListerSlot& Slot()
{
    static ListerSlot* slot = new ListerSlot; // lives to process exit
    return *slot;
}

struct TableDeleter {
    void operator()(libmnt_table* table) const { mnt_unref_table(table); }
};
struct IterDeleter {
    void operator()(libmnt_iter* iter) const { mnt_free_iter(iter); }
};
struct ProbeDeleter {
    void operator()(blkid_struct_probe* probe) const { blkid_free_probe(probe); }
};

MountedVolume MakeVolume(libmnt_table* table, libmnt_fs* fs)
{
    MountedVolume volume;
    const char* target = mnt_fs_get_target(fs);
    volume.rootPath = MountPointToRoot(target ? target : "");

    struct stat st {};
    struct statvfs vfs {};
    libmnt_fs* over = nullptr;
    const bool hidden = mnt_table_over_fs(table, fs, &over) == 0 && over;
    volume.isReady = target && !hidden && ::stat(target, &st) == 0 && S_ISDIR(st.st_mode) &&
                     ::statvfs(target, &vfs) == 0;

    // Only a source that is a block device has a label to read; pseudo and
    // network file systems name no device.
    const char* source = mnt_fs_get_srcpath(fs);
    struct stat dev {};
    if (source && source[0] == '/' && ::stat(source, &dev) == 0 && S_ISBLK(dev.st_mode)) {
        volume.isFloppy = IsFloppyDevicePath(source) || major(dev.st_rdev) == kFloppyMajor;
        volume.labelReadable = ReadVolumeLabel(source, volume.label);
    } else if (source) {
        volume.isFloppy = IsFloppyDevicePath(source);
    }
    return volume;
}

} // namespace

std::vector<MountedVolume> ListMountedVolumes()
{
    MountedVolumeLister lister;
    {
        std::lock_guard<std::mutex> lock(Slot().mutex);
        lister = Slot().lister;
    }
    return lister ? lister() : ListSystemMountedVolumes();
}

std::vector<MountedVolume> ListSystemMountedVolumes()
{
    std::vector<MountedVolume> volumes;
    std::unique_ptr<libmnt_table, TableDeleter> table(mnt_new_table());
    if (!table || mnt_table_parse_file(table.get(), "/proc/self/mountinfo") != 0) return volumes;
    std::unique_ptr<libmnt_iter, IterDeleter> iter(mnt_new_iter(MNT_ITER_FORWARD));
    if (!iter) return volumes;
    libmnt_fs* fs = nullptr;
    while (mnt_table_next_fs(table.get(), iter.get(), &fs) == 0) volumes.push_back(MakeVolume(table.get(), fs));
    return volumes;
}

bool ReadVolumeLabel(const char* devicePath, utility::String16& outLabel)
{
    outLabel.clear();
    if (!devicePath) return false;
    std::unique_ptr<blkid_struct_probe, ProbeDeleter> probe(blkid_new_probe_from_filename(devicePath));
    if (!probe) return false;
    blkid_probe_enable_superblocks(probe.get(), 1);
    blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_LABEL | BLKID_SUBLKS_TYPE);
    // 1 is nothing recognised, below 0 an error or two formats at once.
    if (blkid_do_safeprobe(probe.get()) != 0) return false;
    const char* label = nullptr;
    if (blkid_probe_lookup_value(probe.get(), "LABEL", &label, nullptr) == 0 && label)
        outLabel = utility::UTF8to16(label, nullptr, nullptr);
    return true;
}

MountedVolumeLister ReplaceMountedVolumeLister(MountedVolumeLister lister)
{
    std::lock_guard<std::mutex> lock(Slot().mutex);
    std::swap(Slot().lister, lister);
    return lister;
}

utility::String16 MountPointToRoot(std::string_view mountPoint)
{
    utility::String16 root = utility::UTF8to16(std::string(mountPoint), nullptr, nullptr);
    if (root.empty() || root.back() != u'/') root.push_back(u'/');
    return root;
}

bool IsFloppyDevicePath(std::string_view devicePath)
{
    constexpr std::string_view kPrefix = "/dev/fd";
    return devicePath.size() > kPrefix.size() && devicePath.substr(0, kPrefix.size()) == kPrefix &&
           std::isdigit(static_cast<unsigned char>(devicePath[kPrefix.size()]));
}

} // namespace filesupport
} // namespace vellum
