// The logical drive table over a fake volume list: lookups, rebuilds through
// the change notice, the process table, and lookups racing rebuilds.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "Src/ExternalReferences.h"
#include "Tests/Support/FakeVolumes.h"

using vellum::filesupport::DirectoryChangeMonitor;
using namespace testsupport;

namespace {

// Labels are lowered, an empty one reads "noname", an unreadable one stays
// empty. Rows without a medium never match, floppies only when allowed, and
// the first match wins. A name with ":" is a drive, compared with the roots.
TEST(LogicalDriveTable, FindDriveRoot)
{
    FakeVolumes fake({Volume(u"/", u"", kReady | kUnreadable), Volume(u"/media/off/", u"Data", 0),
                      Volume(u"/media/data/", u"Data"), Volume(u"/media/blank/", u""),
                      Volume(u"/media/floppy/", u"Disk", kReady | kFloppy), Volume(u"/media/disk/", u"DISK"),
                      Volume(u"/media/data2/", u"data"), Volume(u"/srv/c:/", u"Colon:Label"),
                      Volume(u"c:/", u"Backup")});
    QT::LogicalDriveTable table;
    const struct Case { const char16_t* name; bool allowFloppy; const char16_t* root; } cases[] = {
        {u"DATA", false, u"/media/data/"}, {u"/Da\\ta/", false, u"/media/data/"}, {u"noname", false, u"/media/blank/"},
        {u"unknown", true, u""},           {u"disk", false, u"/media/disk/"},     {u"disk", true, u"/media/floppy/"},
        {u"C:", false, u"c:/"},            {u"c:/anything", false, u"c:/"},       {u"backup:", false, u""},
        {u"colon:label", false, u""},      {u"srv:", true, u""},                  {u"", false, u"/"},
        // The key is cut from the name as given, separators included.
        {u"\\c:", false, u""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(vellum::utility::UTF16to8(c.name));
        EXPECT_EQ(table.FindDriveRoot(c.name, c.allowFloppy), c.root);
    }
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
    DirectoryChangeMonitor::NotifyVolumeChange();
    EXPECT_TRUE(table->GetRows().empty());
    fake.Set({Volume(u"/media/new/", u"New")});
    DirectoryChangeMonitor::PostVolumeChange();
    for (int i = 0; i < 5000 && fake.Calls() < calls + 4; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(table->FindDriveRoot(u"new", false), u"/media/new/");
    EXPECT_EQ(process->FindDriveRoot(u"NEW", false), u"/media/new/");
    table.reset();
    DirectoryChangeMonitor::NotifyVolumeChange();
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
    DirectoryChangeMonitor::NotifyVolumeChange(); // a table made before reads this list
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
        else if (i % 3 == 1) DirectoryChangeMonitor::NotifyVolumeChange();
        else DirectoryChangeMonitor::PostVolumeChange();
    }
    done = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_GE(fake.Calls(), 200);
    EXPECT_EQ(table.Get(), QT::GetLogicalDriveTable().Get());
}

} // namespace
