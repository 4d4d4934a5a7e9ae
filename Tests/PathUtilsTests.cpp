// Path helpers of the foundation layer.
#include <gtest/gtest.h>

#include <filesystem>

#include "Tessel/TesselFoundation.h"
#include "Tests/Support/MovieBuilder.h"

namespace {

using Tessel::String16;
namespace PathUtils = Tessel::PathUtils;

TEST(PathUtils, DirectoryAndFileParts)
{
    struct Case {
        const char16_t* path;
        const char16_t* directory;
        const char16_t* file;
    };
    const Case cases[] = {
        {u"/Volumes/Media/clip.mov", u"/Volumes/Media/", u"clip.mov"},
        {u"/clip.mov", u"/", u"clip.mov"},
        {u"clip.mov", u"", u"clip.mov"},
        {u"/Volumes/Media/", u"/Volumes/Media/", u""},
        {u"relative/dir/a b.mov", u"relative/dir/", u"a b.mov"},
        {u"", u"", u""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(vellum::utility::UTF16to8(c.path));
        EXPECT_EQ(PathUtils::GetFullDirectoryPart(c.path), c.directory);
        EXPECT_EQ(PathUtils::GetFullFilePart(c.path), c.file);
        // Names are appended to the directory part directly.
        EXPECT_EQ(PathUtils::GetFullDirectoryPart(c.path) + PathUtils::GetFullFilePart(c.path), c.path);
    }
}

TEST(PathUtils, AddTrailingSlash)
{
    EXPECT_EQ(PathUtils::AddTrailingSlash(u"clips"), u"clips/");
    EXPECT_EQ(PathUtils::AddTrailingSlash(u"clips/"), u"clips/");
    EXPECT_EQ(PathUtils::AddTrailingSlash(u"/a/b"), u"/a/b/");
    EXPECT_EQ(PathUtils::AddTrailingSlash(u"/"), u"/");
}

TEST(PathUtils, ExistsOnDisk)
{
    testsupport::TempFile file(testsupport::Bytes{1, 2, 3}, "here.mov");
    const String16 path = file.Path16();
    EXPECT_TRUE(PathUtils::ExistsOnDisk(path));
    EXPECT_TRUE(PathUtils::ExistsOnDisk(PathUtils::GetFullDirectoryPart(path)));
    EXPECT_FALSE(PathUtils::ExistsOnDisk(PathUtils::GetFullDirectoryPart(path) + u"missing.mov"));
    EXPECT_FALSE(PathUtils::ExistsOnDisk(u""));
    EXPECT_TRUE(PathUtils::ExistsOnDisk(u"/"));
}

} // namespace
