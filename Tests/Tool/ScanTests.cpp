// `atomscan scan`: every kind of entry a folder can hold, a line each in path
// order whatever the number of jobs, facts that agree with the dump, the
// progress line on a terminal only, and the exit statuses for scripts.
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <regex>
#include <sstream>

#include "Tests/Tool/ToolRunner.h"
#include "scan/Examine.h"

using namespace tooltest;
namespace fs = std::filesystem;

namespace {

// A folder of every kind of entry: movies (one damaged, one whose time code lies past its end, one whose media
// are missing, one a sparse file of 100 GB with its movie atom at the end), a movie the library refuses, a text file, a FIFO, a socket, a link
// to the folder itself, a link to itself, a dangling link, and a folder that cannot be read.
struct HostileTree {
    TempFile notes{Bytes(64, 'x'), "notes.txt"};
    const fs::path root = notes.Path().parent_path();
    std::uint64_t refusedDinf = 0; // refused.mov: the offset of the atom where the open stops

    HostileTree()
    {
        const auto write = [](auto&& out, const Bytes& b) {
            out.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
        };
        write(std::ofstream(root / "refused.mov", std::ios::binary), RefusedMovie(refusedDinf));
        fs::permissions(root, fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec |
                                  fs::perms::group_read | fs::perms::others_read);
        fs::copy_file(CorpusMovie("broadcast_2997_tc_c608_aac"), root / "movie.mov");
        fs::copy_file(CorpusMovie("damaged_stco_topbyte_single"), root / "damaged.mov");
        write(std::ofstream(root / "ref.mov", std::ios::binary), ReferenceMovie());
        write(std::ofstream(root / "tc.mov", std::ios::binary),
              BuildMovieFile({600, 100, {TimecodeTrack(TimecodeDescription(0, 600, 20, 30), "tmcd", 1u << 30)}, {}}));
        const Bytes moov = BuildMoov(MoviePlan{}).Serialize();
        const std::uint64_t size = std::uint64_t{100} << 30;
        std::ofstream sparse(root / "sparse.mov", std::ios::binary);
        write(sparse, ByteWriter().U32(1).Code("mdat").U64(size - moov.size()));
        sparse.seekp(static_cast<std::streamoff>(size - moov.size()));
        write(sparse, moov);
        sparse.close();
        ::mkfifo((root / "fifo").c_str(), 0644);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, (root / "sock").c_str(), sizeof address.sun_path - 1);
        const int s = ::socket(AF_UNIX, SOCK_STREAM, 0);
        ::bind(s, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        ::close(s);
        fs::create_directory_symlink(".", root / "loop");
        fs::create_symlink("self", root / "self");
        fs::create_symlink("nowhere", root / "dangling");
        fs::create_directory(root / "locked");
        fs::copy_file(CorpusMovie("short_1s"), root / "locked" / "hidden.mov");
        fs::permissions(root / "locked", fs::perms::none);
    }
    ~HostileTree() { fs::permissions(root / "locked", fs::perms::owner_all); }
    std::string operator/(const char* name) const { return (root / name).string(); }
};

// Root reads every folder whatever its permission bits: the scan is held to them.
constexpr bool kScanUser = true;

std::vector<json> JsonLines(const std::string& text)
{
    std::vector<json> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(json::parse(line, nullptr, false));
    return lines;
}

// The facts of a movie's line against the dump of the same file.
void ExpectAgreesWithDump(const json& line)
{
    const json dump = Dump(line["path"]);
    for (const char* key : {"timeScale", "duration", "bounds"}) EXPECT_EQ(line[key], dump["movie"][key]) << key;
    ASSERT_EQ(line["tracks"].size(), dump["tracks"].size());
    for (std::size_t i = 0; i < dump["tracks"].size(); ++i) {
        const json &t = line["tracks"][i], &d = dump["tracks"][i];
        EXPECT_EQ(t["type"], d["mediaType"]);
        EXPECT_EQ(t["enabled"], d["enabled"]);
        json codec = d.contains("caption") ? d["caption"]["format"] : json();
        for (const auto& [kind, key] : {std::pair("video", "compression"), std::pair("audio", "rawDataFormat")})
            if (d.contains(kind) && !d[kind]["descriptions"].empty()) codec = d[kind]["descriptions"][0][key];
        EXPECT_EQ(t["codec"], codec) << i;
        if (d.contains("video") && d["video"]["sampleTable"]["code"] == "0x00000000") {
            EXPECT_EQ(t["frames"], d["video"]["sampleTable"]["records"].size());
        }
    }
}

// A line for each entry in path order, the same with one job and with four; a movie's facts, and why a file
// is refused, as the dump gives them; the summary counts what the lines say and names the refusals. The
// sparse file costs no more than its movie atom.
TEST(Scan, EveryKindOfEntryALineInPathOrder)
{
    const HostileTree tree;
    const auto start = std::chrono::steady_clock::now();
    const ToolResult one = RunTool({"scan", "--json", "-j", "1", tree.root}, 60, kScanUser);
    const ToolResult four = RunTool({"scan", "--json", "-j", "4", tree.root}, 60, kScanUser);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(json({one.exitCode, one.err}), json({0, ""}));
    EXPECT_EQ(one.out, four.out);

    const std::vector<std::pair<std::string, std::string>> places = {
        {"{root}", tree.root.string()}, {"{dinf}", std::to_string(tree.refusedDinf)}, {"{clip}", kClip}, {"{take}", kTake}};
    const json rows = DataRows("scan-lines.json", places); // name, then what its line holds
    ASSERT_EQ(rows.size(), 12u);
    const std::vector<json> lines = JsonLines(one.out);
    ASSERT_EQ(lines.size(), rows.size() + 1) << one.out;
    json codecs = json::object();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i][0]);
        EXPECT_EQ(lines[i]["path"], tree / rows[i][0].get<std::string>().c_str());
        for (const auto& [key, value] : rows[i][1].items()) EXPECT_EQ(lines[i][key], value) << key;
        if (lines[i]["status"] == "not a movie") {
            EXPECT_EQ(lines[i]["refused"], Dump(lines[i]["path"])["refused"]);
        }
        if (lines[i]["status"] != "movie") continue;
        ExpectAgreesWithDump(lines[i]);
        for (const json& t : lines[i]["tracks"]) {
            const std::string codec = t["codec"].is_null() ? "-" : t["codec"].get<std::string>();
            codecs[codec] = codecs.value(codec, 0) + 1;
        }
    }
    const json summary = {{"movies", 5}, {"notMovies", 2}, {"unreadable", 3}, {"skipped", 2}, {"foldersRead", 1},
                          {"tracksByCodec", codecs}, {"missingReferences", {tree / "ref.mov"}},
                          {"offsetsBeyondEnd", {tree / "damaged.mov", tree / "tc.mov"}}};
    for (const auto& [key, value] : summary.items()) EXPECT_EQ(lines.back()["summary"][key], value) << key;

    // The same as a table and a summary for a person (patterns in order).
    const ToolResult text = RunTool({"scan", tree.root}, 60, kScanUser);
    const json patterns = DataRows("scan-text.json", places);
    ASSERT_EQ(patterns.size(), 11u);
    auto from = text.out.cbegin();
    for (const std::string pattern : patterns) {
        std::smatch match;
        ASSERT_TRUE(std::regex_search(from, text.out.cend(), match, std::regex(pattern))) << pattern << "\n" << text.out;
        from = match[0].second;
    }
}

// Statuses for scripts: findings that --fail-on names give 2, other findings 0.
TEST(Scan, FailOnTurnsFindingsIntoStatus2)
{
    const std::string damaged = CorpusMovie("damaged_stco_topbyte_single").string();
    const TempFile reference(ReferenceMovie());
    const json cases = DataRows("scan-fail-on.json", {{"{damaged}", damaged}, {"{reference}", reference.Path()}});
    ASSERT_EQ(cases.size(), 7u);
    for (const json& c : cases) {
        const ToolResult r = RunTool(c[0], 60);
        EXPECT_EQ(json({r.exitCode, r.err}), json({c[1], ""})) << c[0];
    }
}

// What the program writes on standard error when that is a terminal, or a pipe; standard output is dropped.
std::string StandardError(std::vector<std::string> args, bool terminal)
{
    std::vector<char*> argv = Argv(args);
    int fd = -1, pipeFds[2] = {-1, -1};
    const pid_t pid = terminal ? ::forkpty(&fd, nullptr, nullptr, nullptr) : (::pipe(pipeFds), ::fork());
    if (pid == 0) {
        if (!terminal) ::dup2(pipeFds[1], 2);
        ::dup2(::open("/dev/null", O_WRONLY), 1);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    if (!terminal) {
        ::close(pipeFds[1]);
        fd = pipeFds[0];
    }
    std::string err;
    char buffer[4096];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) err.append(buffer, static_cast<std::size_t>(n));
    ::close(fd);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return err;
}

// The progress line is drawn on a terminal, and cleared at the end; a pipe gets none of it.
TEST(Scan, ProgressOnATerminalOnly)
{
    const std::string corpus = CorpusDir().string();
    const std::string files = std::to_string(std::distance(fs::directory_iterator(corpus), fs::directory_iterator()));
    const std::regex drawn("\rscan: [0-9]+ of " + files + " files, [0-9]+ movies, [0-9.]+ MB/s.*\r +\r");
    EXPECT_TRUE(std::regex_search(StandardError({"scan", corpus}, true), drawn));
    EXPECT_EQ(StandardError({"scan", "--json", corpus}, false), "");
    // With --json the lines go out between drawings, each after the line is cleared: never cleared twice.
    EXPECT_FALSE(std::regex_search(StandardError({"scan", "--json", corpus}, true), std::regex("\r +\r\r +\r")));
}

// A file found by the walk that is gone, smaller or no longer a file when its turn comes is unreadable, and why.
TEST(Scan, WhatChangedSinceTheWalkIsUnreadable)
{
    const TempFile movie(ReadFile(CorpusMovie("short_1s")));
    const std::uint64_t size = std::filesystem::file_size(movie.Path());
    const std::string path = movie.Path(), dir = movie.Path().parent_path();
    const std::pair<atomscan_tool::WalkEntry, std::string> cases[] = {
        {{path + ".gone", atomscan_tool::WalkEntry::Kind::File, 10, ""}, "vanished during the scan"},
        {{path, atomscan_tool::WalkEntry::Kind::File, size + 1, ""},
         "shrank during the scan, from " + std::to_string(size + 1) + " to " + std::to_string(size) + " bytes"},
        {{dir, atomscan_tool::WalkEntry::Kind::File, 10, ""}, "no longer a regular file"},
        {{path, atomscan_tool::WalkEntry::Kind::File, size, ""}, ""}};
    for (const auto& [entry, reason] : cases) {
        const atomscan_tool::ScanRecord r = atomscan_tool::Examine(entry);
        EXPECT_EQ(std::pair(r.status == atomscan_tool::ScanRecord::Status::Unreadable, r.reason),
                  std::pair(!reason.empty(), reason)) << entry.path;
    }
}

} // namespace
