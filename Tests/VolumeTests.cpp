// Volumes: the system's mounted volumes and labels read from volume images; the
// logical drive table over a fake volume list (lookups, rebuilds through the
// change notice, the process table, lookups racing rebuilds); the volume change
// notice (registration, removal, the monitor thread).
#include <boost/make_shared.hpp>

#include <atomic>
#include <cstring>
#include <string_view>
#include <thread>
#include <vector>

#include "Tests/Support/Open.h"
#include "vellum/VolumeServices.h"
#include "vellum/vellum.h"

namespace fs = vellum::filesupport;
using Monitor = fs::DirectoryChangeMonitor;
using fs::VolumeChangedCallback;
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
        TempFile file(c.image, "volume.img");
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

// Labels are lowered, an empty one reads "noname", an unreadable one stays
// empty. Rows without a medium never match, floppies only when allowed, and
// the first match wins. A name with ":" is a drive, compared with the roots.
// The cases are in Data/drive-roots.json.
TEST(LogicalDriveTable, FindDriveRoot)
{
    FakeVolumes fake({Volume(u"/", u"", kReady | kUnreadable), Volume(u"/media/off/", u"Data", 0),
                      Volume(u"/media/data/", u"Data"), Volume(u"/media/blank/", u""),
                      Volume(u"/media/floppy/", u"Disk", kReady | kFloppy), Volume(u"/media/disk/", u"DISK"),
                      Volume(u"/media/data2/", u"data"), Volume(u"/srv/c:/", u"Colon:Label"),
                      Volume(u"c:/", u"Backup")});
    QT::LogicalDriveTable table;
    const nlohmann::json cases = DataRows("drive-roots.json");
    ASSERT_EQ(cases.size(), 13u);
    for (const nlohmann::json& c : cases)
        EXPECT_EQ(table.FindDriveRoot(ToString16(c[0]), c[1]), ToString16(c[2])) << c[0];
}

// The change notice, straight or posted to the monitor thread, rebuilds every
// table, the process's too, but not one that is gone (that would use freed memory).
TEST(LogicalDriveTable, RebuildsOnChangeNoticeUntilDestroyed)
{
    FakeVolumes fake({Volume(u"/media/old/", u"Old")});
    auto table = std::make_unique<QT::LogicalDriveTable>();
    QT::CountedPtr<QT::LogicalDriveTable> process = QT::GetLogicalDriveTable();
    fake.Set({});
    const int calls = fake.Calls();
    Monitor::NotifyVolumeChange();
    EXPECT_TRUE(table->GetRows().empty());
    fake.Set({Volume(u"/media/new/", u"New")});
    Monitor::PostVolumeChange();
    for (int i = 0; i < 5000 && fake.Calls() < calls + 4; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(table->FindDriveRoot(u"new", false), u"/media/new/");
    EXPECT_EQ(process->FindDriveRoot(u"NEW", false), u"/media/new/");
    table.reset();
    Monitor::NotifyVolumeChange();
    EXPECT_EQ(fake.Calls(), calls + 5);
}

// Threads that ask for the process table at once share one, and lookups while
// its rows are replaced in all three ways never see a half-built table: both
// lists have "alpha" and "beta" on ready rows.
TEST(ConcurrencyDriveTable, FirstCallersShareOneTableAndLookupsDuringRebuilds)
{
    const Volumes lists[] = {{Volume(u"/a/", u"Alpha"), Volume(u"/b/", u"Beta")},
                                                {Volume(u"/c/", u"Beta"), Volume(u"/b/", u"ALPHA")}};
    FakeVolumes fake(lists[0]);
    std::atomic<int> started{0}, wrong{0};
    std::atomic<bool> done{false};
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t) {
        readers.emplace_back([&] {
            for (++started; started.load() < 4;) std::this_thread::yield();
            QT::CountedPtr<QT::LogicalDriveTable> mine = QT::GetLogicalDriveTable();
            for (int rounds = 0; !done.load() || rounds < 500; ++rounds) {
                const QT::String16 alpha = mine->FindDriveRoot(u"alpha", false);
                const QT::String16 beta = QT::GetLogicalDriveTable()->FindDriveRoot(u"/BETA/", false);
                if ((alpha != u"/a/" && alpha != u"/b/") || (beta != u"/b/" && beta != u"/c/")) ++wrong;
            }
            if (mine.Get() != QT::GetLogicalDriveTable().Get()) ++wrong;
        });
    }
    for (++started; started.load() < 4;) std::this_thread::yield();
    QT::CountedPtr<QT::LogicalDriveTable> table = QT::GetLogicalDriveTable();
    for (int i = 0; i < 300; ++i) {
        fake.Set(lists[i % 2]);
        if (i % 3 == 0) table->RebuildLogicalDriveTable();
        else if (i % 3 == 1) Monitor::NotifyVolumeChange();
        else Monitor::PostVolumeChange();
    }
    done = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_GE(fake.Calls(), 200);
    EXPECT_EQ(table.Get(), QT::GetLogicalDriveTable().Get());
}

VolumeChangedCallback MakeCallback(std::function<void()> body)
{
    return boost::make_shared<boost::function<void()>>(std::move(body));
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
    for (int i = 0; i < 10000 && !entered.load(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(entered.load());
    Monitor::RemoveVolumeChangedCallback(slow);
    EXPECT_TRUE(finished.load());
    EXPECT_NE(where.load(), std::this_thread::get_id());
    EXPECT_FALSE(Monitor::IsMonitoring());
}

} // namespace
