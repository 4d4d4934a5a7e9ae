// Repairing chunk offsets in place: which entries are mended, to what, and
// that nothing else in the file changes. Every check compares whole files.
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>

#include <gtest/gtest.h>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Inc/IQTMovieFixer.h"
#include "Tests/Support/MovieBuilder.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kFileSize = 0x10000; // of every built movie below

// Counts the times the file was closed after being opened for writing. Opens
// are watched too, since the queue merges identical events in a row.
class WriteOpens {
public:
    explicit WriteOpens(const fs::path& path) : mFd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        if (mFd >= 0) ::inotify_add_watch(mFd, path.c_str(), IN_OPEN | IN_CLOSE_WRITE);
    }
    ~WriteOpens() { ::close(mFd); }
    int Count() const
    {
        int count = 0;
        alignas(inotify_event) char buffer[4096];
        for (ssize_t n; (n = ::read(mFd, buffer, sizeof buffer)) > 0;) {
            for (ssize_t at = 0; at < n;) {
                inotify_event event;
                std::memcpy(&event, buffer + at, sizeof event);
                count += (event.mask & IN_CLOSE_WRITE) != 0;
                at += static_cast<ssize_t>(sizeof event + event.len);
            }
        }
        return count;
    }

private:
    int mFd;
};

struct Repair {
    QT::ResultCode code;
    Bytes after;
    int writeOpens;
};

Repair RunFixer(QT::IQTMovieFixer& fixer, const fs::path& path)
{
    WriteOpens watch(path);
    const QT::ResultCode code = fixer.FixMovie(ToString16(path.string()));
    return Repair{code, ReadFile(path), watch.Count()};
}

Repair FixBytes(const Bytes& bytes)
{
    TempFile file(bytes);
    return RunFixer(*QT::MakeFixer(), file.Path());
}

// The movie padded to kFileSize. The layout does not depend on the values in
// the tables, so a movie built with the mended values is the expected file.
Bytes Sized(const MovieSpec& plan)
{
    const std::size_t bare = BuildMovieFile(plan).size();
    return BuildMovieFile(plan, Bytes(kFileSize - bare, 0));
}

TrackSpec Track(const char* media, std::vector<std::uint64_t> offsets, bool wide = false, std::uint32_t flags = 1)
{
    TrackSpec t;
    t.mediaType = media;
    t.flags = flags;
    if (wide) t.co64 = offsets;
    else t.stco.assign(offsets.begin(), offsets.end());
    return t;
}

MovieSpec Movie(std::vector<TrackSpec> tracks)
{
    MovieSpec m;
    m.tracks = std::move(tracks);
    return m;
}

std::size_t Find(const Bytes& bytes, const char* text)
{
    return static_cast<std::size_t>(std::search(bytes.begin(), bytes.end(), text, text + 4) - bytes.begin());
}

void PutU32(Bytes& bytes, std::size_t at, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<std::uint8_t>(v >> (24 - 8 * i));
}

struct TableCase {
    const char* name;
    bool wide;
    std::vector<std::uint64_t> stored, mended;
    int writes;
};

void PrintTo(const TableCase& c, std::ostream* os) { *os << c.name; }

class FixTable : public testing::TestWithParam<TableCase> {};

TEST_P(FixTable, MendsOnlyDamagedEntries)
{
    const TableCase& c = GetParam();
    const Repair r = FixBytes(Sized(Movie({Track("vide", c.stored, c.wide)})));
    EXPECT_EQ(r.code, QT::kResultSuccess);
    EXPECT_EQ(r.after, Sized(Movie({Track("vide", c.mended, c.wide)})));
    EXPECT_EQ(r.writeOpens, c.writes);
}

constexpr std::uint64_t F = kFileSize;
INSTANTIATE_TEST_SUITE_P(
    Cases, FixTable,
    testing::Values(
        TableCase{"EqualToFileSizeIsSound", false, {F, 0x200, 0x300}, {F, 0x200, 0x300}, 0},
        TableCase{"LastEntryIsLeftAlone", false, {0x100, 0x200, 0x7F000300}, {0x100, 0x200, 0x7F000300}, 0},
        TableCase{"SingleEntryTable", false, {0xFF000000}, {0xFF000000}, 0},
        TableCase{"EmptyTable", false, {}, {}, 0},
        TableCase{"TopByteCleared", false, {0x100, 0x05000200, 0x300}, {0x100, 0x200, 0x300}, 1},
        TableCase{"TwoBytesCleared", false, {0x100, 0x12345678, 0x6000}, {0x100, 0x5678, 0x6000}, 1},
        TableCase{"NotAboveNextIsWrittenBackAsItIs", false, {0x100, 0x20000, 0x30000}, {0x100, 0x20000, 0x30000}, 1},
        TableCase{"NeighboursJudgedByStoredNext", false, {0x100, 0x01000200, 0x02000300, 0x400},
                  {0x100, 0x01000200, 0x300, 0x400}, 2},
        TableCase{"NoMaskLowEnoughLeavesLowByte", false, {0x500, 0x7F123456, 0x10}, {0x500, 0x56, 0x10}, 1},
        TableCase{"WideTopmostByte", true, {0x100, 0xAB00000000000200, 0x300}, {0x100, 0x200, 0x300}, 1},
        TableCase{"WideUpperHalf", true, {0x100, 0x0000000100000200, 0x300}, {0x100, 0x200, 0x300}, 1},
        TableCase{"WideLowByte", true, {0x500, 0xFFFFFFFFFFFFFF56, 0x10}, {0x500, 0x56, 0x10}, 1}),
    [](const testing::TestParamInfo<TableCase>& info) { return info.param.name; });

const std::vector<std::uint64_t> kDamaged = {0x100, 0x05000200, 0x300};
const std::vector<std::uint64_t> kMended = {0x100, 0x200, 0x300};

TEST(FixMovie, OnlyTheFirstEnabledVideoTrack)
{
    auto plan = [](const std::vector<std::uint64_t>& enabled) {
        return Movie({Track("soun", kDamaged), Track("vide", kDamaged, false, 0), Track("vide", enabled),
                      Track("vide", kDamaged)});
    };
    const Repair r = FixBytes(Sized(plan(kDamaged)));
    EXPECT_EQ(r.after, Sized(plan(kMended)));
    EXPECT_EQ(r.writeOpens, 1);
}

TEST(FixMovie, Co64IsMendedAndStcoBesideItIsNot)
{
    auto plan = [](const std::vector<std::uint64_t>& wide) {
        TrackSpec t = Track("vide", wide, true);
        t.extraStbl.push_back(Stco({0x100, 0x05000200, 0x300}));
        return Movie({t});
    };
    EXPECT_EQ(FixBytes(Sized(plan({0x100, 0x0A00000000000200, 0x300}))).after, Sized(plan(kMended)));
}

// The walk of the repair object sees an 8-byte atom that ends the movie atom,
// which the parser's walk does not: here, the movie header.
TEST(FixMovie, SeesAnEightByteMovieHeaderAtTheEnd)
{
    auto file = [](const std::vector<std::uint64_t>& v) {
        const Atom moov("moov", std::vector<Atom>{BuildTrak(Track("vide", v)), Atom("mvhd")});
        return Concat({moov, Atom("mdat", Bytes(kFileSize - moov.Serialize().size() - 8, 0))});
    };
    const Bytes damaged = file(kDamaged);
    TempFile parsed(damaged);
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    EXPECT_EQ(QT::MakeParser()->OpenMovie(parsed.Path16(), movie), QT::kResultNotAMovie);
    EXPECT_EQ(FixBytes(damaged).after, file(kMended));
}

// Files that are left untouched: not one byte written, not even opened for writing.
TEST(FixMovie, NothingWrittenWithoutAnEnabledVideoTrackOrAMovie)
{
    Bytes noMovieHeader = Sized(Movie({Track("vide", kDamaged)}));
    noMovieHeader[Find(noMovieHeader, "mvhd")] = 'x';
    const std::vector<Bytes> files = {
        Sized(Movie({Track("soun", kDamaged), Track("soun", kDamaged)})),
        Sized(Movie({Track("vide", kDamaged, false, 0)})),
        noMovieHeader,
        Bytes{0, 0, 0, 7, 'f', 'r'},
    };
    for (const Bytes& bytes : files) {
        const Repair r = FixBytes(bytes);
        EXPECT_EQ(r.code, QT::kResultSuccess);
        EXPECT_EQ(r.after, bytes);
        EXPECT_EQ(r.writeOpens, 0);
    }
}

TEST(FixMovie, MissingFileGivesZeroAndCreatesNothing)
{
    TempFile gone(Bytes{});
    fs::remove(gone.Path());
    EXPECT_EQ(QT::MakeFixer()->FixMovie(gone.Path16()), QT::kResultSuccess);
    EXPECT_FALSE(fs::exists(gone.Path()));
}

// A count whose entries would run past the table's atom marks a broken table,
// which is left alone, also where the bytes behind it lie inside the copy.
TEST(FixMovie, TableWhoseCountRunsPastItsAtomIsLeftAlone)
{
    TrackSpec video = Track("vide", kDamaged);
    video.extraStbl.push_back(Atom("free", Bytes(16, 0)));
    const Bytes good = Sized(Movie({video}));
    for (std::uint32_t count : {4u, 0x40000000u, 0xFFFFFFFFu}) {
        Bytes bytes = good;
        PutU32(bytes, Find(bytes, "stco") + 8, count);
        const Repair r = FixBytes(bytes);
        EXPECT_EQ(r.after, bytes) << count;
        EXPECT_EQ(r.writeOpens, 0) << count;
    }
}

// Each FixMovie opens afresh: the second acts on its own movie alone, and a
// file that is no movie is not written through the first movie's records.
TEST(FixMovie, SecondCallOnOneObjectUsesOnlyItsOwnMovie)
{
    const auto fixer = QT::MakeFixer();
    const Bytes first = Sized(Movie({Track("vide", kDamaged)}));
    TempFile a(first);
    EXPECT_EQ(RunFixer(*fixer, a.Path()).after, Sized(Movie({Track("vide", kMended)})));

    // The same track header and handler places, the table elsewhere.
    auto second = [](const std::vector<std::uint64_t>& v) {
        TrackSpec video = Track("vide", v);
        video.stss = std::vector<std::uint32_t>{1};
        return Sized(Movie({video}));
    };
    TempFile b(second(kDamaged));
    EXPECT_EQ(RunFixer(*fixer, b.Path()).after, second(kMended));

    Bytes notAMovie = first;
    notAMovie[Find(notAMovie, "mvhd")] = 'x';
    TempFile c(notAMovie);
    const Repair r = RunFixer(*fixer, c.Path());
    EXPECT_EQ(r.after, notAMovie);
    EXPECT_EQ(r.writeOpens, 0);
}

TEST(FixMovie, AnswersOnlyToItsOwnInterface)
{
    const auto fixer = QT::MakeFixer();
    void* out = &out;
    EXPECT_EQ(fixer->QueryInterface(QT::kIID_IQTMovieFixer, &out), QT::kResultSuccess);
    EXPECT_EQ(out, fixer.Get());
    EXPECT_EQ(fixer->QueryInterface(QT::kIID_IAtomscan, &out), QT::kResultNoInterface);
    EXPECT_EQ(out, nullptr);
}

// ---- Corpus movies ----

fs::path Corpus(const std::string& name) { return TestDataDir() / "corpus" / name; }

// One chunk offset table as the corpus's own atom listing describes it.
struct CorpusTable {
    std::string media;
    bool enabled = false;
    bool wide = false;
    std::size_t offset = 0; // of the first entry in the file
    std::uint32_t count = 0;
};

std::uint64_t Field(const std::string& line, const std::string& key)
{
    const std::size_t at = line.find(" " + key + "=");
    return at == std::string::npos ? 0 : std::stoull(line.substr(at + key.size() + 2));
}

std::vector<CorpusTable> Tables(const std::string& movie)
{
    std::ifstream in(Corpus(movie.substr(0, movie.size() - 4) + ".atoms.txt"));
    std::vector<CorpusTable> tables;
    CorpusTable track;
    for (std::string line; std::getline(in, line);) {
        if (line.find(" tkhd ") != std::string::npos) track.enabled = Field(line, "flags") & 1;
        if (line.find(" hdlr component_type=mhlr") != std::string::npos)
            track.media = line.substr(line.find("subtype=") + 8, 4);
        const bool stco = line.find(" stco ") != std::string::npos, co64 = line.find(" co64 ") != std::string::npos;
        if (stco || co64) {
            track.wide = co64;
            track.offset = Field(line, "table_offset");
            track.count = static_cast<std::uint32_t>(Field(line, "entry_count"));
            tables.push_back(track);
        }
    }
    return tables;
}

// Garbage in a high-order byte of an entry, as a faulty writer leaves it.
void DamageEntry(Bytes& bytes, const CorpusTable& t, std::uint32_t index, std::uint8_t garbage)
{
    const std::size_t width = t.wide ? 8 : 4;
    bytes[t.offset + index * width + (t.wide && index % 2 ? 3 : 0)] = garbage;
}

TEST(FixMovieCorpus, DamagedCopiesAreMended)
{
    TempFile single(ReadFile(Corpus("damaged_stco_topbyte_single.mov")));
    const Repair one = RunFixer(*QT::MakeFixer(), single.Path());
    EXPECT_EQ(one.after, ReadFile(Corpus("layout_faststart.mov")));
    EXPECT_EQ(one.writeOpens, 1);

    // Entry 10 is judged by the stored value of entry 11, which is damaged
    // and larger, so it is written back as it is; entry 1291 is the last.
    const Bytes damaged = ReadFile(Corpus("damaged_stco_topbyte_edges.mov"));
    const Bytes original = ReadFile(Corpus("long_60s_lowres.mov"));
    const CorpusTable video = Tables("long_60s_lowres.mov").at(0);
    Bytes expected = damaged;
    for (std::uint32_t index : {11u, 500u})
        std::copy_n(original.begin() + video.offset + 4 * index, 4, expected.begin() + video.offset + 4 * index);
    TempFile edges(damaged);
    const Repair r = RunFixer(*QT::MakeFixer(), edges.Path());
    EXPECT_EQ(r.after, expected);
    EXPECT_EQ(r.writeOpens, 3);
}

TEST(FixMovieCorpus, FaultyWriterDamageIsUndoneExactly)
{
    for (const char* name : {"h264_bframes_aac.mov", "co64_faststart.mov", "layout_faststart.mov"}) {
        const Bytes original = ReadFile(Corpus(name));
        const CorpusTable video = Tables(name).at(0);
        ASSERT_EQ(video.media, "vide");
        Bytes damaged = original;
        for (std::uint32_t i = 1; i + 1 < video.count; i += 3)
            DamageEntry(damaged, video, i, static_cast<std::uint8_t>(0x80 | i));
        ASSERT_NE(damaged, original);
        TempFile file(damaged);
        EXPECT_EQ(RunFixer(*QT::MakeFixer(), file.Path()).after, original) << name;
    }
}

TEST(FixMovieCorpus, OtherTracksOfManyTracksStayDamaged)
{
    const Bytes original = ReadFile(Corpus("many_tracks.mov"));
    const std::vector<CorpusTable> tables = Tables("many_tracks.mov");
    ASSERT_EQ(tables.size(), 7u);
    ASSERT_TRUE(tables[0].enabled && tables[0].media == "vide" && tables[1].media == "vide");
    Bytes damaged = original;
    for (const CorpusTable& t : tables)
        for (std::uint32_t i : {1u, 5u})
            if (i + 1 < t.count) DamageEntry(damaged, t, i, 0x42);
    Bytes expected = damaged;
    std::copy_n(original.begin() + tables[0].offset, 4 * tables[0].count, expected.begin() + tables[0].offset);
    TempFile file(damaged);
    EXPECT_EQ(RunFixer(*QT::MakeFixer(), file.Path()).after, expected);
}

} // namespace
