// The mounted volumes of this machine, and labels read from volume images.
#include <gtest/gtest.h>

#include <cstring>
#include <string_view>

#include "Src/ExternalReferences.h"
#include "Tests/Support/MovieBuilder.h"
#include "vellum/VolumeServices.h"

namespace fs = vellum::filesupport;
using testsupport::Bytes;
using namespace std::string_view_literals;

namespace {

// The real table lists the system's volumes in order. Roots close with "/",
// "/" is ready, and a pseudo file system has no label to read.
TEST(VolumeServices, RealTableListsTheSystemVolumes)
{
    const std::vector<fs::MountedVolume> volumes = fs::ListSystemMountedVolumes();
    const QT::LogicalDriveRows rows = QT::LogicalDriveTable().GetRows();
    ASSERT_EQ(rows.size(), volumes.size());
    bool rootReady = false;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const fs::MountedVolume& v = volumes[i];
        SCOPED_TRACE(vellum::utility::UTF16to8(v.rootPath));
        EXPECT_EQ(rows[i].rootPath, v.rootPath);
        EXPECT_TRUE(!v.rootPath.empty() && v.rootPath.front() == u'/' && v.rootPath.back() == u'/');
        EXPECT_TRUE(v.labelReadable || v.label.empty());
        EXPECT_TRUE(v.rootPath != u"/proc/" || (v.isReady && !v.labelReadable));
        rootReady |= v.rootPath == u"/" && v.isReady && !v.isFloppy;
    }
    EXPECT_TRUE(rootReady);
}

// A swap area of ten 4 KiB pages, version 1, with its label at 1052.
Bytes SwapImage(const std::string& label)
{
    Bytes image(40960, 0);
    image[1024] = 1; // version
    image[1028] = 9; // last page
    std::memcpy(&image[1052], label.data(), label.size());
    std::memcpy(&image[4096 - 10], "SWAPSPACE2", 10);
    return image;
}

// True with the label; true and empty without one; false, and empty, when no
// format is known or nothing can be opened.
TEST(VolumeServices, ReadVolumeLabelTellsEmptyFromUnreadable)
{
    const struct Case { Bytes image; bool read; const char16_t* label; } cases[] = {
        {SwapImage("Data Disk"), true, u"Data Disk"}, {SwapImage(""), true, u""}, {Bytes(40960, 0), false, u""}};
    QT::String16 label;
    for (const Case& c : cases) {
        testsupport::TempFile file(c.image, "volume.img");
        label = u"stale";
        EXPECT_EQ(fs::ReadVolumeLabel(file.Path().c_str(), label), c.read);
        EXPECT_EQ(label, c.label);
    }
    EXPECT_FALSE(fs::ReadVolumeLabel("/no/such/volume.img", label));
    EXPECT_FALSE(fs::ReadVolumeLabel(nullptr, label));
}

TEST(VolumeServices, MountPointsAndFloppyDevices)
{
    EXPECT_EQ(fs::MountPointToRoot("/media/Caf\xc3\xa9"), u"/media/Caf\u00e9/");
    for (auto path : {"/dev/fd0"sv, "/dev/fd1u1440"sv}) EXPECT_TRUE(fs::IsFloppyDevicePath(path)) << path;
    // The first is "/dev/fd" cut from "/dev/fd0": nothing past its end may be read.
    for (auto path : {"/dev/fd0"sv.substr(0, 7), "/dev/fd/0"sv, "fd0"sv})
        EXPECT_FALSE(fs::IsFloppyDevicePath(path)) << path;
}

} // namespace
