// The open sequence that the parser and the repair object share.
#include <gtest/gtest.h>

#include "Inc/IAtomscan.h"
#include "Src/OpenSequence.h"
#include "Tests/Support/MovieBuilder.h"

using namespace testsupport;

namespace {

// The top-level search runs on the still open file after the movie has been
// delivered, and finds the same atom that the load copied.
TEST(OpenSequence, FindsTopLevelAtomAndRecordsTheMovieAtomOffset)
{
    const Bytes bytes = Concat({Atom("free", Bytes(30, 0)), BuildMoov(MovieSpec{}), Atom("mdat", Bytes(10, 0))});
    const std::uint64_t moovSize = BuildMoov(MovieSpec{}).Serialize().size();
    TempFile file(bytes);

    Tessel::InterfaceRef<QT::IQTMovie> movie;
    bool found = false;
    std::uint64_t offset = 0, size = 0;
    const auto parser = QT::MakeParser();
    ASSERT_EQ(parser->OpenMovieAndFindAtom(file.Path16(), movie, QT::MakeFourCC("moov"), found, offset, size), 0u);
    EXPECT_TRUE(found);
    EXPECT_EQ(offset, 38u);
    EXPECT_EQ(size, moovSize);
    found = true;
    EXPECT_EQ(parser->OpenMovieAndFindAtom(file.Path16(), movie, QT::MakeFourCC("skip"), found, offset, size), 0u);
    EXPECT_FALSE(found);

    QT::OpenedMovie state;
    Tessel::InterfaceRef<QT::IQTMovie> opened;
    ASSERT_EQ(QT::OpenMovieFile(file.Path16(), QT::OpenSettings{1, QT::kFixerGuard}, state, opened), 0u);
    EXPECT_EQ(state.mMovieAtomOffset, 38u);
    EXPECT_EQ(state.mMovieAtomSize, moovSize);
    EXPECT_EQ(state.mFileSize, bytes.size());
    EXPECT_EQ(state.mIndex.mTracks.size(), 1u);
}

} // namespace
