// Runs the built atomscan program and collects what it printed.
#pragma once

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <nlohmann/json.hpp>

#include "Tests/Support/Open.h"
#include "dump/DumpJson.h"

namespace tooltest {

using nlohmann::json;

struct ToolResult {
    int exitCode = -1; // -1 when the program did not exit normally
    std::string out, err;
    long peakKilobytes = 0; // never below what this process held when it started the program
};

// The program and `args` as execv takes them; `args` gets the program in front and must outlive the result.
inline std::vector<char*> Argv(std::vector<std::string>& args)
{
    args.insert(args.begin(), ATOMSCAN_TOOL);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    return argv;
}

// Output goes to files, so neither stream can fill a pipe and stall the program. A program still running
// after `timeoutSeconds` (0: no limit) is ended by the alarm, which it inherits, and has not exited normally.
// With `permissionBits` the program is held to the files' permission bits even when run by root: it loses the
// two capabilities that pass over them from its bounding set, so that exec cannot give them back.
inline ToolResult RunTool(std::vector<std::string> args, unsigned timeoutSeconds = 0, bool permissionBits = false)
{
    const TempFile out({}, "out"), err({}, "err");
    std::vector<char*> argv = Argv(args);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(::open(out.Path().c_str(), O_WRONLY), 1);
        ::dup2(::open(err.Path().c_str(), O_WRONLY), 2);
        if (permissionBits && ::geteuid() == 0 &&
            (::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE) != 0 || ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH) != 0))
            ::_exit(126);
        ::alarm(timeoutSeconds);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    int status = 0;
    rusage usage{};
    const bool exited = ::wait4(pid, &status, 0, &usage) == pid && WIFEXITED(status);
    const Bytes o = out.Read(), e = err.Read();
    return {exited ? WEXITSTATUS(status) : -1, {o.begin(), o.end()}, {e.begin(), e.end()}, usage.ru_maxrss};
}

// The standard output as JSON (a discarded value, which equals nothing, when it is not JSON).
inline json ParseOut(const ToolResult& r) { return json::parse(r.out, nullptr, false); }
// The document `atomscan dump` prints, made in this process by the library the command is made of.
inline json Dump(const std::string& path)
{
    std::string document;
    atomscan_tool::WriteDumpJson(path, {}, document);
    return json::parse(document, nullptr, false);
}

// A movie whose video and timecode tracks name the clip and whose sound track names the take, on
// a volume that is not mounted here, so they are looked for beside the movie.
inline const std::string kClip = "/Volumes/Nowhere/clips/clip.mov", kTake = "/Volumes/Nowhere/sound/take.wav";
inline Bytes ReferenceMovie()
{
    MoviePlan plan{.tracks = {}};
    for (const std::string type : {"vide", "soun", "tmcd"}) {
        const std::string path = type == "soun" ? kTake : kClip, name = path.substr(path.rfind('/') + 1);
        const Alias alias(name, {{19, "/Volumes/Nowhere"}, {18, path.substr(16)}});
        plan.tracks.push_back({.mediaType = type, .dinf = DataInformation({AliasEntry(alias)})});
    }
    return BuildMovieFile(plan);
}

// A movie of two tracks that the library refuses: the second track's `minf` begins with `dinf`, its media
// header left out. The file offset of that `dinf`, found by its four characters, is in `outDinf`.
inline Bytes RefusedMovie(std::uint64_t& outDinf)
{
    MoviePlan plan;
    plan.tracks.resize(2);
    Atom moov = BuildMoov(plan);
    std::vector<Atom>& minf = moov.children.at(2).children.back().children.back().children; // trak, mdia, minf
    minf.erase(minf.begin());
    const Bytes movie = Concat({moov, Atom("mdat", Bytes(16))});
    outDinf = *HeaderAt(movie, "dinf", 1);
    return movie;
}

} // namespace tooltest
