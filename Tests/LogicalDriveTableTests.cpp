// The logical drive table over a fake volume list: rows, lookups, rebuilds
// through the change notice, and lookups racing rebuilds.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "Src/ExternalReferences.h"
#include "Tests/Support/FakeVolumes.h"

using vellum::filesupport::DirectoryChangeMonitor;
using vellum::filesupport::MountedVolume;
using namespace testsupport;

namespace {

std::vector<MountedVolume> SampleVolumes()
{
    return {
        Volume(u"/", u"", kReady | kUnreadable),
        Volume(u"/media/data/", u"Data"),
        Volume(u"/media/blank/", u""),
        Volume(u"/media/cdrom/", u"Movies", 0),
        Volume(u"/media/floppy/", u"Disk", kReady | kFloppy),
        Volume(u"/media/data2/", u"DATA"),
        Volume(u"c:/", u"Backup"),
        Volume(u"/srv/c:/", u"Colon:Label"),
    };
}

TEST(LogicalDriveTable, RowsKeepListingOrderWithLabelsLoweredOrNoname)
{
    FakeVolumes fake(SampleVolumes());
    QT::LogicalDriveTable table;
    const QT::LogicalDriveRows rows = table.GetRows();
    struct Expected {
        const char16_t* root;
        const char16_t* name;
        bool ready, floppy;
    };
    const Expected expected[] = {
        {u"/", u"", true, false},
        {u"/media/data/", u"data", true, false},
        {u"/media/blank/", u"noname", true, false},
        {u"/media/cdrom/", u"movies", false, false},
        {u"/media/floppy/", u"disk", true, true},
        {u"/media/data2/", u"data", true, false},
        {u"c:/", u"backup", true, false},
        {u"/srv/c:/", u"colon:label", true, false},
    };
    ASSERT_EQ(rows.size(), std::size(expected));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(rows[i].rootPath, expected[i].root);
        EXPECT_EQ(rows[i].volumeName, expected[i].name);
        EXPECT_EQ(rows[i].isReady, expected[i].ready);
        EXPECT_EQ(rows[i].isFloppy, expected[i].floppy);
    }
}

TEST(LogicalDriveTable, FindDriveRootCases)
{
    FakeVolumes fake(SampleVolumes());
    QT::LogicalDriveTable table;
    struct Case {
        const char16_t* name;
        bool allowFloppy;
        const char16_t* root;
    };
    const Case cases[] = {
        // Labels in any case; the first of two equal labels wins.
        {u"data", false, u"/media/data/"},
        {u"DATA", false, u"/media/data/"},
        {u"Data", true, u"/media/data/"},
        // Separators are dropped before the comparison.
        {u"/Da\\ta/", false, u"/media/data/"},
        {u"noname", false, u"/media/blank/"},
        {u"NoName", false, u"/media/blank/"},
        {u"unknown", true, u""},
        // A volume without a medium is never found.
        {u"movies", true, u""},
        // A floppy only when allowed.
        {u"disk", false, u""},
        {u"disk", true, u"/media/floppy/"},
        // Names with ":" are compared with roots only: the key is the text
        // before the colon, lowered, with ":/".
        {u"C:", false, u"c:/"},
        {u"c:\\", false, u"c:/"},
        {u"c:/anything", false, u"c:/"},
        {u"colon:label", false, u""},
        {u"backup:", false, u""},
        {u"d:", true, u""},
        // The key is cut from the name as given, separators included.
        {u"\\c:", false, u""},
        // An unreadable label is empty, which only an empty name matches.
        {u"", false, u"/"},
        {u"/", false, u"/"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(vellum::utility::UTF16to8(c.name));
        EXPECT_EQ(table.FindDriveRoot(c.name, c.allowFloppy), c.root);
    }
}

TEST(LogicalDriveTable, FirstReadyRowOfALabelWins)
{
    FakeVolumes fake({Volume(u"/a/", u"Same", 0), Volume(u"/b/", u"same", kReady | kFloppy),
                      Volume(u"/c/", u"SAME"), Volume(u"/d/", u"same")});
    QT::LogicalDriveTable table;
    EXPECT_EQ(table.FindDriveRoot(u"same", false), u"/c/");
    EXPECT_EQ(table.FindDriveRoot(u"same", true), u"/b/");
}

TEST(LogicalDriveTable, DriveNamesFindNoMountPoint)
{
    // Real roots are mount points and begin with "/": a drive letter finds none.
    FakeVolumes fake({Volume(u"/", u"System"), Volume(u"/mnt/c/", u"C")});
    QT::LogicalDriveTable table;
    for (const char16_t* name : {u"C:", u"c:\\", u"/C:/", u"mnt:"})
        EXPECT_EQ(table.FindDriveRoot(name, true), u"") << vellum::utility::UTF16to8(name);
    EXPECT_EQ(table.FindDriveRoot(u"c", true), u"/mnt/c/");
}

TEST(LogicalDriveTable, RebuildToEmptyAndBack)
{
    FakeVolumes fake({Volume(u"/media/data/", u"Data")});
    QT::LogicalDriveTable table;
    EXPECT_EQ(table.FindDriveRoot(u"data", false), u"/media/data/");

    fake.Set({});
    table.RebuildLogicalDriveTable();
    EXPECT_TRUE(table.GetRows().empty());
    EXPECT_EQ(table.FindDriveRoot(u"data", true), u"");
    EXPECT_EQ(table.FindDriveRoot(u"", true), u"");

    fake.Set({Volume(u"/run/media/data/", u"Data")});
    table.RebuildLogicalDriveTable();
    EXPECT_EQ(table.FindDriveRoot(u"data", false), u"/run/media/data/");
    EXPECT_EQ(table.GetRows().size(), 1u);
}

TEST(LogicalDriveTable, ChangeNoticeRebuilds)
{
    FakeVolumes fake({Volume(u"/media/old/", u"Old")});
    QT::LogicalDriveTable table;
    EXPECT_TRUE(DirectoryChangeMonitor::IsMonitoring());
    fake.Set({Volume(u"/media/new/", u"New")});
    EXPECT_EQ(table.FindDriveRoot(u"new", false), u""); // nothing polls

    DirectoryChangeMonitor::NotifyVolumeChange();
    EXPECT_EQ(table.FindDriveRoot(u"new", false), u"/media/new/");
    EXPECT_EQ(table.FindDriveRoot(u"old", false), u"");

    // The same through the monitor's own thread.
    fake.Set({Volume(u"/media/third/", u"Third")});
    DirectoryChangeMonitor::PostVolumeChange();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (table.FindDriveRoot(u"third", false).empty() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(table.FindDriveRoot(u"third", false), u"/media/third/");
}

TEST(LogicalDriveTable, DestroyedTableLeavesNoCallback)
{
    FakeVolumes fake({Volume(u"/media/a/", u"A")});
    // With the process table in place exactly one table stays registered.
    QT::CountedPtr<QT::LogicalDriveTable> processTable = QT::GetLogicalDriveTable();
    auto table = std::make_unique<QT::LogicalDriveTable>();
    const int callsWithBoth = fake.Calls();
    DirectoryChangeMonitor::NotifyVolumeChange();
    EXPECT_EQ(fake.Calls(), callsWithBoth + 2);

    table.reset();
    EXPECT_TRUE(DirectoryChangeMonitor::IsMonitoring());
    // A rebuild of the freed table would be a use after free.
    DirectoryChangeMonitor::NotifyVolumeChange();
    EXPECT_EQ(fake.Calls(), callsWithBoth + 3);
}

TEST(LogicalDriveTable, ProcessTableIsSharedAndFollowsChanges)
{
    FakeVolumes fake({Volume(u"/media/shared/", u"Shared")});
    QT::CountedPtr<QT::LogicalDriveTable> first = QT::GetLogicalDriveTable();
    QT::CountedPtr<QT::LogicalDriveTable> second = QT::GetLogicalDriveTable();
    ASSERT_TRUE(first);
    EXPECT_EQ(first.Get(), second.Get());
    // The process-wide pointer holds one more.
    EXPECT_EQ(second.UseCount(), 3u);
    second.Reset();
    EXPECT_EQ(first.UseCount(), 2u);

    DirectoryChangeMonitor::NotifyVolumeChange();
    EXPECT_EQ(first->FindDriveRoot(u"SHARED", false), u"/media/shared/");
}

// Lookups run on several threads while the rows are replaced by direct
// rebuilds, by the change notice, and by the monitor thread. Each list has
// "alpha" on a ready row, so a lookup that saw a half-built table would miss it.
TEST(ConcurrencyDriveTable, LookupsDuringRebuilds)
{
    const std::vector<MountedVolume> listA = {Volume(u"/a/", u"Alpha"), Volume(u"/b/", u"Beta")};
    const std::vector<MountedVolume> listB = {Volume(u"/c/", u"Beta"), Volume(u"/b/", u"ALPHA"),
                                              Volume(u"/a/", u"alpha")};
    FakeVolumes fake(listA);
    QT::CountedPtr<QT::LogicalDriveTable> table = QT::GetLogicalDriveTable();
    table->RebuildLogicalDriveTable();

    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t) {
        readers.emplace_back([&] {
            int rounds = 0;
            while (!done.load() || rounds < 500) {
                const QT::String16 alpha = QT::GetLogicalDriveTable()->FindDriveRoot(u"alpha", false);
                const QT::String16 beta = table->FindDriveRoot(u"/BETA/", false);
                if ((alpha != u"/a/" && alpha != u"/b/") || (beta != u"/b/" && beta != u"/c/")) ++wrong;
                ++rounds;
            }
        });
    }
    for (int i = 0; i < 300; ++i) {
        fake.Set(i % 2 ? listA : listB);
        switch (i % 3) {
        case 0: table->RebuildLogicalDriveTable(); break;
        case 1: DirectoryChangeMonitor::NotifyVolumeChange(); break;
        default: DirectoryChangeMonitor::PostVolumeChange(); break;
        }
    }
    done = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_GE(fake.Calls(), 200);
}

TEST(ConcurrencyDriveTable, FirstCallersShareOneTable)
{
    FakeVolumes fake({Volume(u"/media/one/", u"One")});
    std::vector<QT::LogicalDriveTable*> seen(4, nullptr);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < seen.size(); ++t)
        threads.emplace_back([&seen, t] { seen[t] = QT::GetLogicalDriveTable().Get(); });
    for (std::thread& thread : threads) thread.join();
    for (QT::LogicalDriveTable* table : seen) EXPECT_EQ(table, seen[0]);
    EXPECT_NE(seen[0], nullptr);
}

} // namespace
