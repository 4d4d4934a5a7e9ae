// The mounted volumes of this machine, and the real table built from them.
#include <gtest/gtest.h>

#include <algorithm>

#include "Src/ExternalReferences.h"
#include "Tests/Support/MovieBuilder.h"
#include "vellum/VolumeServices.h"

using vellum::filesupport::MountedVolume;

namespace {

TEST(VolumeServices, SystemListHasTheRootAndClosedRoots)
{
    const std::vector<MountedVolume> volumes = vellum::filesupport::ListSystemMountedVolumes();
    ASSERT_FALSE(volumes.empty());
    const auto root = std::find_if(volumes.begin(), volumes.end(), [](const MountedVolume& v) { return v.rootPath == u"/"; });
    ASSERT_NE(root, volumes.end());
    EXPECT_TRUE(root->isReady);
    EXPECT_FALSE(root->isFloppy);
    for (const MountedVolume& v : volumes) {
        ASSERT_GE(v.rootPath.size(), 1u);
        EXPECT_EQ(v.rootPath.front(), u'/');
        EXPECT_EQ(v.rootPath.back(), u'/');
        // Only a label that was read may be non-empty.
        if (!v.labelReadable) {
            EXPECT_TRUE(v.label.empty());
        }
    }
    // /proc is a pseudo file system: present, readable now, without a label.
    const auto proc = std::find_if(volumes.begin(), volumes.end(), [](const MountedVolume& v) { return v.rootPath == u"/proc/"; });
    if (proc != volumes.end()) {
        EXPECT_FALSE(proc->labelReadable);
        EXPECT_TRUE(proc->isReady);
    }
}

TEST(VolumeServices, SystemListIsStable)
{
    const auto first = vellum::filesupport::ListSystemMountedVolumes();
    const auto second = vellum::filesupport::ListSystemMountedVolumes();
    ASSERT_EQ(first.size(), second.size());
    for (std::size_t i = 0; i < first.size(); ++i) {
        EXPECT_EQ(first[i].rootPath, second[i].rootPath);
        EXPECT_EQ(first[i].label, second[i].label);
        EXPECT_EQ(first[i].labelReadable, second[i].labelReadable);
        EXPECT_EQ(first[i].isReady, second[i].isReady);
    }
}

TEST(VolumeServices, RealTableRowsAreStableAndLookupsAgree)
{
    QT::LogicalDriveTable table;
    const QT::LogicalDriveRows before = table.GetRows();
    table.RebuildLogicalDriveTable();
    const QT::LogicalDriveRows after = table.GetRows();
    ASSERT_FALSE(after.empty());
    ASSERT_EQ(before.size(), after.size());
    for (std::size_t i = 0; i < after.size(); ++i) {
        EXPECT_EQ(before[i].rootPath, after[i].rootPath);
        EXPECT_EQ(before[i].volumeName, after[i].volumeName);
    }
    // Each ready, labelled row is found by its label, unless an earlier row has it too.
    for (std::size_t i = 0; i < after.size(); ++i) {
        const QT::LogicalDrive& row = after[i];
        if (!row.isReady || row.volumeName.empty()) continue;
        const QT::String16 found = table.FindDriveRoot(row.volumeName, true);
        const auto first = std::find_if(after.begin(), after.end(), [&](const QT::LogicalDrive& r) {
            return r.isReady && r.volumeName == row.volumeName;
        });
        EXPECT_EQ(found, first->rootPath);
    }
    EXPECT_EQ(table.FindDriveRoot(u"C:", true), u"");
}

// A swap area of ten 4 KiB pages: version 1 header at 1024, label at
// 1052, signature at the end of the first page.
testsupport::Bytes SwapImage(const std::string& label)
{
    testsupport::Bytes image(40960, 0);
    image[1024] = 1;     // version
    image[1028] = 9;     // last page
    for (std::size_t i = 0; i < label.size() && i < 16; ++i) image[1052 + i] = static_cast<std::uint8_t>(label[i]);
    const std::string magic = "SWAPSPACE2";
    std::copy(magic.begin(), magic.end(), image.begin() + 4096 - 10);
    return image;
}

TEST(VolumeServices, LabelsTellEmptyFromUnreadable)
{
    QT::String16 label = u"stale";
    testsupport::TempFile labelled(SwapImage("Data Disk"), "labelled.img");
    EXPECT_TRUE(vellum::filesupport::ReadVolumeLabel(labelled.Path().c_str(), label));
    EXPECT_EQ(label, u"Data Disk");

    testsupport::TempFile unlabelled(SwapImage(""), "unlabelled.img");
    label = u"stale";
    EXPECT_TRUE(vellum::filesupport::ReadVolumeLabel(unlabelled.Path().c_str(), label));
    EXPECT_EQ(label, u"");

    testsupport::TempFile blank(testsupport::Bytes(40960, 0), "blank.img");
    EXPECT_FALSE(vellum::filesupport::ReadVolumeLabel(blank.Path().c_str(), label));
    EXPECT_EQ(label, u"");
    EXPECT_FALSE(vellum::filesupport::ReadVolumeLabel((blank.Path().string() + ".missing").c_str(), label));
    EXPECT_FALSE(vellum::filesupport::ReadVolumeLabel(nullptr, label));
}

TEST(VolumeServices, MountPointToRoot)
{
    EXPECT_EQ(vellum::filesupport::MountPointToRoot("/"), u"/");
    EXPECT_EQ(vellum::filesupport::MountPointToRoot("/mnt/data"), u"/mnt/data/");
    EXPECT_EQ(vellum::filesupport::MountPointToRoot("/mnt/data/"), u"/mnt/data/");
    EXPECT_EQ(vellum::filesupport::MountPointToRoot("/media/Caf\xc3\xa9 Disk"), u"/media/Caf\u00e9 Disk/");
}

TEST(VolumeServices, FloppyDevicePaths)
{
    struct Case {
        const char* path;
        bool floppy;
    };
    const Case cases[] = {
        {"/dev/fd0", true},     {"/dev/fd1", true},   {"/dev/fd0u1440", true}, {"/dev/fd", false},
        {"/dev/fdx", false},    {"/dev/sda1", false}, {"fd0", false},          {"/dev/vda", false},
        {"/dev/fd/0", false},   {"", false},
    };
    for (const Case& c : cases) EXPECT_EQ(vellum::filesupport::IsFloppyDevicePath(c.path), c.floppy) << c.path;
}

} // namespace
