// Data references: where a track's media lives, the `alis` records of
// external files, and the payload of a `hndl` reference.
#include <gtest/gtest.h>

#include "Tests/Support/DataReferenceBuilder.h"
#include "Tests/Support/TrackOpener.h"

using namespace testsupport;

namespace {

OpenedTrack TrackWithDinf(const Atom& dinf)
{
    TrackSpec plan;
    plan.dinf = dinf;
    return OpenTrackOf(plan);
}

AliasRecordSpec WithFlags(AliasRecordSpec plan, std::uint8_t flags)
{
    plan.flags = flags;
    return plan;
}

QT::String16 U(const char* text) { return ToString16(text); }

QT::ExtRefData Ref(const char* fileName, const char* directoryName, const char* fullPath)
{
    return QT::ExtRefData{U(fileName), U(directoryName), U(fullPath)};
}

struct AliasCase {
    const char* name;
    AliasRecordSpec record;
    QT::ExtRefData expected;
};

TEST(DataReference, AliasRecordsGiveFileDirectoryAndPath)
{
    const AliasCase cases[] = {
        {"absolute path from mount point and volume path",
         Alias("a.mov", {{0, "Clips"}, {19, "/Volumes/Media"}, {18, "/Clips/a.mov"}}),
         Ref("a.mov", "Clips", "/Volumes/Media/Clips/a.mov")},
        {"tags in any order", Alias("a.mov", {{18, "/x/a.mov"}, {19, "/Volumes/V"}}),
         Ref("a.mov", "", "/Volumes/V/x/a.mov")},
        {"relative: no path tags", Alias("a.mov", {{0, "Clips"}}), Ref("a.mov", "Clips", "a.mov")},
        {"only the volume path", Alias("a.mov", {{18, "/Clips/a.mov"}}), Ref("a.mov", "", "a.mov")},
        {"empty mount point", Alias("a.mov", {{19, ""}, {18, "/a.mov"}}), Ref("a.mov", "", "a.mov")},
        {"odd lengths are padded", Alias("b.mov", {{0, "Odd"}, {19, "/V"}, {18, "/abc.mov"}}),
         Ref("b.mov", "Odd", "/V/abc.mov")},
        {"unknown tags are stepped over",
         Alias("c.mov", {{2, "/:x"}, {14, std::string("\0\x05\0c\0.", 6)}, {19, "/M"}, {18, "/c.mov"}}),
         Ref("c.mov", "", "/M/c.mov")},
        {"a later tag replaces an earlier one", Alias("d.mov", {{0, "First"}, {0, "Second"}}),
         Ref("d.mov", "Second", "d.mov")},
        {"UTF-8 texts", Alias("caf\xc3\xa9.mov", {{19, "/Volumes/\xc3\x9c"}, {18, "/caf\xc3\xa9.mov"}}),
         QT::ExtRefData{u"caf\u00e9.mov", u"", u"/Volumes/\u00dc/caf\u00e9.mov"}},
        {"a flags byte of 3 is not 1", WithFlags(Alias("e.mov"), 3), Ref("e.mov", "", "e.mov")},
        {"no tags at all, only the closing one", Alias("f.mov"), Ref("f.mov", "", "f.mov")},
    };
    for (const AliasCase& c : cases) {
        SCOPED_TRACE(c.name);
        OpenedTrack t = TrackWithDinf(DataInformation({AliasEntry(c.record)}));
        QT::ExternalReferenceMap refs;
        ASSERT_TRUE(t.track->GetTrackExternalReferences(refs));
        ASSERT_EQ(refs.size(), 1u);
        EXPECT_EQ(refs.begin()->first, c.expected.fullPath);
        EXPECT_EQ(refs.begin()->second, c.expected);
        EXPECT_FALSE(t.track->IsDataReferenceSelfContained());
        EXPECT_EQ(t.track->GetDataReferenceType(), QT::MakeFourCC("alis"));
        QT::String16 path;
        EXPECT_TRUE(t.track->GetSingleExternalReferencePath(&path));
        EXPECT_EQ(path, c.expected.fullPath);
        EXPECT_TRUE(t.track->GetSingleExternalReferencePath(nullptr));
    }
}

TEST(DataReference, SelfContainedReferences)
{
    struct Case {
        const char* name;
        std::vector<Bytes> entries;
        bool selfContained;
        QT::FourCC type;
    };
    const Case cases[] = {
        {"alis in this file", {ReferenceEntry("alis", 1)}, true, QT::MakeFourCC("alis")},
        {"url in this file", {ReferenceEntry("url ", 1)}, true, QT::MakeFourCC("url ")},
        {"url elsewhere", {ReferenceEntry("url ", 0, ByteWriter().Text("file:///a.mov").U8(0))}, false,
         QT::MakeFourCC("url ")},
        {"url flags 3", {ReferenceEntry("url ", 3)}, false, QT::MakeFourCC("url ")},
        {"a lone hndl", {HandleEntry(ByteWriter().U32(7))}, true, QT::MakeFourCC("hndl")},
        {"two in this file", {ReferenceEntry("alis", 1), ReferenceEntry("alis", 1)}, false, QT::MakeFourCC("????")},
        {"none", {}, false, QT::MakeFourCC("????")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        OpenedTrack t = TrackWithDinf(DataInformation(c.entries));
        EXPECT_EQ(t.track->IsDataReferenceSelfContained(), c.selfContained);
        EXPECT_EQ(t.track->HasSingleDataReference(), c.entries.size() == 1);
        EXPECT_EQ(t.track->GetDataReferenceType(), c.type);
        QT::ExternalReferenceMap refs;
        EXPECT_TRUE(t.track->GetTrackExternalReferences(refs));
        EXPECT_TRUE(refs.empty());
        EXPECT_FALSE(t.track->GetSingleExternalReferencePath(nullptr));
    }
}

TEST(DataReference, ScanOfSeveralEntries)
{
    const Bytes a = AliasEntry(Alias("a.mov", {{0, "A"}, {19, "/V"}, {18, "/same.mov"}}));
    const Bytes b = AliasEntry(Alias("b.mov", {{0, "B"}, {19, "/V"}, {18, "/same.mov"}}));
    const Bytes c = AliasEntry(Alias("c.mov"));
    const Bytes here = ReferenceEntry("alis", 1);
    const Bytes url = ReferenceEntry("url ", 0, ByteWriter().Text("x").U8(0));

    {
        SCOPED_TRACE("the same full path twice: the first stays");
        OpenedTrack t = TrackWithDinf(DataInformation({a, url, b, c}));
        QT::ExternalReferenceMap refs;
        ASSERT_TRUE(t.track->GetTrackExternalReferences(refs));
        ASSERT_EQ(refs.size(), 2u);
        EXPECT_EQ(refs.at(U("/V/same.mov")), Ref("a.mov", "A", "/V/same.mov"));
        EXPECT_EQ(refs.at(U("c.mov")), Ref("c.mov", "", "c.mov"));
        EXPECT_FALSE(t.track->GetSingleExternalReferencePath(nullptr)); // two files
        EXPECT_FALSE(t.track->HasSingleDataReference());
    }
    {
        SCOPED_TRACE("an entry in this file ends the scan");
        OpenedTrack t = TrackWithDinf(DataInformation({c, here, a}));
        QT::ExternalReferenceMap refs;
        ASSERT_TRUE(t.track->GetTrackExternalReferences(refs));
        ASSERT_EQ(refs.size(), 1u);
        EXPECT_EQ(refs.begin()->first, U("c.mov"));
    }
    {
        SCOPED_TRACE("the map is added to, and a key already there keeps its value");
        OpenedTrack t = TrackWithDinf(DataInformation({a, c}));
        QT::ExternalReferenceMap refs;
        refs[U("/V/same.mov")] = Ref("old", "old", "/V/same.mov");
        refs[U("other")] = Ref("other", "", "other");
        ASSERT_TRUE(t.track->GetTrackExternalReferences(refs));
        EXPECT_EQ(refs.size(), 3u);
        EXPECT_EQ(refs.at(U("/V/same.mov")).fileName, U("old"));
    }
    {
        SCOPED_TRACE("the record size, not the entry size, leads to the next entry");
        Bytes claimsMore = c; // its entry size says 0x1000; the next entry begins right behind the record
        claimsMore[2] = 0x10;
        const Bytes second = AliasEntry(Alias("g.mov"));
        claimsMore.insert(claimsMore.end(), second.begin(), second.end());
        OpenedTrack t = TrackWithDinf(DataInformation({claimsMore}, 2));
        QT::ExternalReferenceMap refs;
        ASSERT_TRUE(t.track->GetTrackExternalReferences(refs));
        EXPECT_EQ(refs.size(), 2u);
        EXPECT_EQ(refs.count(U("g.mov")), 1u);
    }
}

TEST(DataReference, BrokenReferencesFailAndKeepEarlierEntries)
{
    const Bytes good = AliasEntry(Alias("good.mov"));
    struct Case {
        const char* name;
        Atom dinf;
    };
    AliasRecordSpec unclosedSpec = Alias("u.mov", {{0, "dir"}});
    unclosedSpec.closeTags = false;
    Bytes unclosed = AliasEntry(unclosedSpec);
    Bytes longTag = AliasEntry(Alias("t.mov", {{0, "dir"}}));
    longTag[longTag.size() - 4 - 4 - 2] = 0x40; // the tag's length: past the end of `dref`
    // A file name whose length byte reaches past `dref`: refused, not cut.
    AliasRecordSpec longNameSpec = Alias("n.mov");
    longNameSpec.fileNameLength = 255;
    Bytes longName = AliasEntry(longNameSpec);
    Bytes shortRecord = AliasEntry(Alias("s.mov"));
    shortRecord.resize(150); // the fixed part of the record does not fit
    shortRecord[2] = 0;
    shortRecord[3] = 150;
    const Case cases[] = {
        {"tag list without its end", DataInformation({good, unclosed})},
        {"tag length past the end", DataInformation({good, longTag})},
        {"file name length past the end", DataInformation({good, longName})},
        {"fixed part past the end", DataInformation({good, shortRecord})},
        {"more entries counted than there are", DataInformation({good}, 2)},
        // The `dref` claims more than its `dinf` holds: the atoms behind it are not read as entries.
        {"dref larger than dinf", DataInformation({good}, 2, 4000)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        OpenedTrack t = TrackWithDinf(c.dinf);
        QT::ExternalReferenceMap refs;
        EXPECT_FALSE(t.track->GetTrackExternalReferences(refs));
        ASSERT_EQ(refs.size(), 1u);
        EXPECT_EQ(refs.begin()->first, U("good.mov"));
        EXPECT_FALSE(t.track->GetSingleExternalReferencePath(nullptr));
    }
}

TEST(DataReference, CountsThatCannotBeRead)
{
    {
        SCOPED_TRACE("a dref too small for its count holds no entries");
        OpenedTrack t = TrackWithDinf(DataInformation({}, 1, 12));
        QT::ExternalReferenceMap refs;
        EXPECT_TRUE(t.track->GetTrackExternalReferences(refs));
        EXPECT_FALSE(t.track->HasSingleDataReference());
        EXPECT_EQ(t.track->GetDataReferenceType(), QT::MakeFourCC("????"));
    }
    {
        SCOPED_TRACE("a counted entry whose header is missing");
        OpenedTrack t = TrackWithDinf(DataInformation({}, 1));
        EXPECT_TRUE(t.track->HasSingleDataReference());
        EXPECT_FALSE(t.track->IsDataReferenceSelfContained());
        EXPECT_EQ(t.track->GetDataReferenceType(), QT::MakeFourCC("????"));
    }
    {
        SCOPED_TRACE("an entry of size 0 under a huge count ends at once");
        OpenedTrack t = TrackWithDinf(DataInformation({ReferenceEntry("url ", 0, {}, 0)}, 0xffffffffu));
        QT::ExternalReferenceMap refs;
        EXPECT_TRUE(t.track->GetTrackExternalReferences(refs));
        EXPECT_TRUE(refs.empty());
    }
    {
        SCOPED_TRACE("a dinf without a dref");
        OpenedTrack t = TrackWithDinf(Atom("dinf", Bytes{}));
        QT::ExternalReferenceMap refs;
        EXPECT_TRUE(t.track->GetTrackExternalReferences(refs));
        EXPECT_FALSE(t.track->HasSingleDataReference());
        EXPECT_FALSE(t.track->IsDataReferenceSelfContained());
    }
}

TEST(DataReference, HandlePayload)
{
    const Bytes payload = ByteWriter().U32(0x01020304);
    struct Case {
        const char* name;
        std::vector<Bytes> entries;
        std::optional<std::uint32_t> count;
        bool ok;
    };
    const Case cases[] = {
        {"four bytes", {HandleEntry(payload)}, {}, true},
        {"one byte", {HandleEntry(ByteWriter().U8(9))}, {}, true},
        {"the count is not looked at", {HandleEntry(payload)}, 0, true},
        {"an entry of 25 bytes", {HandleEntry({})}, {}, false},
        {"an inner atom of 8 bytes", {HandleEntry(payload, 8)}, {}, false},
        {"an inner atom of another type", {HandleEntry(payload, {}, "junk")}, {}, false},
        // The inner size reaches past its entry: refused, not cut.
        {"an inner atom past the entry", {HandleEntry(payload, 13), HandleEntry(payload)}, {}, false},
        {"an entry past the end of dref", {HandleEntry(payload, {}, "data", 40)}, {}, false},
        {"an entry of another type", {ReferenceEntry("alis", 1, Bytes(20, 0))}, {}, false},
        {"no entry", {}, {}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        OpenedTrack t = TrackWithDinf(DataInformation(c.entries, c.count));
        Pelt::BinaryData out(payload.data(), 2); // not empty beforehand
        const std::int32_t result = t.Core().GetHandleDataReferencePayload(out);
        if (c.ok) {
            EXPECT_EQ(result, 0);
            const Bytes& expected = c.name == std::string("one byte") ? Bytes{9} : payload;
            ASSERT_EQ(out.Size(), expected.size());
            EXPECT_EQ(Bytes(out.Data(), out.Data() + out.Size()), expected);
        } else {
            EXPECT_EQ(result, -1);
            EXPECT_TRUE(out.Empty());
        }
    }
}

} // namespace
