// Benchmarks of the open and the table builders over synthetic movies, beside
// the limit: one read of the movie atom and one linear pass that writes as
// many records as the operation does.
//
//   atomscan_bench [google benchmark flags]   warm runs in this process
//   atomscan_bench generate DIR               writes the movies
//   atomscan_bench first OP MOVIE DIR         one cold run in a fresh process; OP is
//                                             open-table, limit or none; prints CPU nanoseconds
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Bench/BenchMovies.h"
#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Inc/QTTrack.h"
#include "Tests/Support/MovieBuilder.h"

namespace {

using bench::BenchMovie;
using bench::Kind;
using Tessel::InterfaceRef;

// --- The limit -------------------------------------------------------------

struct MoovBytes {
    std::unique_ptr<std::uint8_t[]> data; // left uninitialised: the read fills it
    std::uint64_t size = 0;
};

MoovBytes ReadMoovOnce(const BenchMovie& m)
{
    MoovBytes out;
    const int fd = ::open(m.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw std::runtime_error("cannot open " + m.path.string());
    out.data.reset(new std::uint8_t[m.moovSize]);
    out.size = m.moovSize;
    std::uint64_t done = 0;
    while (done < m.moovSize) {
        const ssize_t got = ::pread(fd, out.data.get() + done, m.moovSize - done,
                                    static_cast<off_t>(m.moovOffset + done));
        if (got <= 0) break;
        done += static_cast<std::uint64_t>(got);
    }
    ::close(fd);
    if (done != m.moovSize) throw std::runtime_error("short read of " + m.path.string());
    return out;
}

// One pass over the copy that writes `records` frame records, each from a
// big-endian word of the copy: what any table builder has to do at least.
void LinearPass(const MoovBytes& moov, std::uint32_t records, std::vector<QT::VideoSampleRecord>& out)
{
    out.reserve(out.size() + records);
    const std::uint64_t words = moov.size / 4;
    const std::uint8_t* p = moov.data.get();
    std::uint64_t word = 0, offset = 0;
    std::uint32_t time = 0;
    for (std::uint32_t i = 0; i < records; ++i) {
        const std::uint8_t* w = p + 4 * word;
        const std::uint32_t v = (std::uint32_t{w[0]} << 24) | (std::uint32_t{w[1]} << 16) |
                                (std::uint32_t{w[2]} << 8) | w[3];
        out.push_back({offset, 1000, time, v, (i % 60) == 0});
        offset += v;
        time += 1000;
        if (++word == words) word = 0;
    }
}

// --- Our side ----------------------------------------------------------------

InterfaceRef<QT::IQTMovie> Open(const BenchMovie& m)
{
    InterfaceRef<QT::IQTMovie> movie;
    const QT::ResultCode rc = QT::MakeParser()->OpenMovie(testsupport::ToString16(m.path.string()), movie);
    if (rc != QT::kResultSuccess) throw std::runtime_error("cannot open " + m.name);
    return movie;
}

void Count(benchmark::State& state, const BenchMovie& m, std::uint64_t items)
{
    const auto n = static_cast<std::int64_t>(state.iterations());
    state.SetItemsProcessed(n * static_cast<std::int64_t>(items));
    state.SetBytesProcessed(n * static_cast<std::int64_t>(m.moovSize));
    state.counters["items"] = static_cast<double>(items);
    state.counters["moov_bytes"] = static_cast<double>(m.moovSize);
}

void Fail(benchmark::State& state, const char* what)
{
    state.SkipWithError(what);
    for (auto _ : state) {
    }
}

void LimitRead(benchmark::State& state, const BenchMovie& m)
{
    for (auto _ : state) {
        MoovBytes moov = ReadMoovOnce(m);
        benchmark::DoNotOptimize(moov.data.get());
    }
    Count(state, m, m.items);
}

void LimitReadAndPass(benchmark::State& state, const BenchMovie& m)
{
    for (auto _ : state) {
        MoovBytes moov = ReadMoovOnce(m);
        std::vector<QT::VideoSampleRecord> table;
        LinearPass(moov, m.items, table);
        benchmark::DoNotOptimize(table.data());
    }
    Count(state, m, m.items);
}

void OpenOnly(benchmark::State& state, const BenchMovie& m)
{
    for (auto _ : state) {
        InterfaceRef<QT::IQTMovie> movie = Open(m);
        benchmark::DoNotOptimize(movie.Get());
    }
    Count(state, m, m.items);
}

void OpenAndFullTable(benchmark::State& state, const BenchMovie& m)
{
    for (auto _ : state) {
        std::vector<QT::VideoSampleRecord> table;
        const QT::ResultCode rc = Open(m)->GetIndTrack(0)->MakeFullVideoSampleTable(false, false, table);
        if (rc != QT::kResultSuccess) return Fail(state, "MakeFullVideoSampleTable failed");
        benchmark::DoNotOptimize(table.data());
    }
    Count(state, m, m.items);
}

void FullTable(benchmark::State& state, const BenchMovie& m, bool ignoreEdits)
{
    InterfaceRef<QT::IQTTrack> track = Open(m)->GetIndTrack(0);
    for (auto _ : state) {
        std::vector<QT::VideoSampleRecord> table;
        if (track->MakeFullVideoSampleTable(false, ignoreEdits, table) != QT::kResultSuccess)
            return Fail(state, "MakeFullVideoSampleTable failed");
        benchmark::DoNotOptimize(table.data());
    }
    Count(state, m, m.items);
}

void TemporalTable(benchmark::State& state, const BenchMovie& m)
{
    InterfaceRef<QT::IQTTrack> track = Open(m)->GetIndTrack(0);
    for (auto _ : state) {
        std::vector<QT::VideoTemporalReference> table;
        if (track->MakeVideoTemporalReferenceTable(table) != QT::kResultSuccess)
            return Fail(state, "MakeVideoTemporalReferenceTable failed");
        benchmark::DoNotOptimize(table.data());
    }
    Count(state, m, m.items);
}

void AudioRangeMap(benchmark::State& state, const BenchMovie& m)
{
    InterfaceRef<QT::IQTTrack> track = Open(m)->GetIndTrack(0);
    for (auto _ : state) {
        QT::AudioSampleRangeMap map;
        if (track->MakeAudioSampleRangeMap(map, false) != QT::kResultSuccess || map.size() != m.items)
            return Fail(state, "MakeAudioSampleRangeMap failed");
        benchmark::DoNotOptimize(&map);
    }
    Count(state, m, m.items);
}

void CaptionTable(benchmark::State& state, const BenchMovie& m)
{
    InterfaceRef<QT::IQTTrack> track = Open(m)->GetIndTrack(0);
    const QT::String16 path = testsupport::ToString16(m.path.string());
    for (auto _ : state) {
        QT::CaptionSampleMap table;
        if (track->MakeCaptionSampleTable(path, table, false) != QT::kResultSuccess || table.size() != m.items)
            return Fail(state, "MakeCaptionSampleTable failed");
        benchmark::DoNotOptimize(&table);
    }
    Count(state, m, m.items);
}

void Bounds(benchmark::State& state, const BenchMovie& m)
{
    InterfaceRef<QT::IQTMovie> movie = Open(m);
    for (auto _ : state) {
        QT::QTRect r;
        movie->GetBounds(r);
        benchmark::DoNotOptimize(r);
    }
    Count(state, m, movie->GetTrackCount());
}

// A new track each time: the count is kept by the track once asked.
void EditSampleCount(benchmark::State& state, const BenchMovie& m)
{
    InterfaceRef<QT::IQTMovie> movie = Open(m);
    for (auto _ : state) {
        const std::uint32_t n = movie->GetIndTrack(0)->GetEditSampleCount();
        if (n == 0 || n > m.items) return Fail(state, "GetEditSampleCount out of range");
        benchmark::DoNotOptimize(n);
    }
    Count(state, m, m.items);
}

template <class F>
void Register(const std::string& name, const BenchMovie& m, F f)
{
    benchmark::RegisterBenchmark((name + "/" + m.name).c_str(), [&m, f](benchmark::State& s) { f(s, m); })
        ->Unit(benchmark::kMicrosecond);
}

void RegisterAll(const std::vector<BenchMovie>& movies)
{
    for (const BenchMovie& m : movies) {
        Register("Limit.Read", m, LimitRead);
        Register("Limit.ReadAndPass", m, LimitReadAndPass);
        Register("Open", m, OpenOnly);
        switch (m.kind) {
        case Kind::kVideo:
            Register("OpenAndFullTable", m, OpenAndFullTable);
            Register("FullTable.Edits", m, [](benchmark::State& s, const BenchMovie& x) { FullTable(s, x, false); });
            Register("FullTable.NoEdits", m, [](benchmark::State& s, const BenchMovie& x) { FullTable(s, x, true); });
            Register("EditSampleCount", m, EditSampleCount);
            break;
        case Kind::kTemporal: Register("TemporalTable", m, TemporalTable); break;
        case Kind::kAudio: Register("AudioRangeMap", m, AudioRangeMap); break;
        case Kind::kCaption: Register("CaptionTable", m, CaptionTable); break;
        case Kind::kTracks: Register("GetBounds", m, Bounds); break;
        }
    }
}

// CPU time of the process, user and system, so page faults and the kernel's
// copy of the file count; waits for a core on a shared machine do not.
std::int64_t CpuNanoseconds()
{
    timespec t{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return std::int64_t{t.tv_sec} * 1'000'000'000 + t.tv_nsec;
}

// One run of `op` on `movie`, timed; the process is new, so every page is touched first here.
int FirstRun(const std::string& op, const std::string& name, const std::string& dir)
{
    const std::vector<BenchMovie> movies = bench::WriteMovies(dir);
    const BenchMovie* m = nullptr;
    for (const BenchMovie& x : movies)
        if (x.name == name) m = &x;
    if (!m) {
        std::fprintf(stderr, "no movie %s\n", name.c_str());
        return 2;
    }
    const std::int64_t start = CpuNanoseconds();
    std::size_t records = 0;
    if (op == "open-table") {
        std::vector<QT::VideoSampleRecord> table;
        if (Open(*m)->GetIndTrack(0)->MakeFullVideoSampleTable(false, false, table) != QT::kResultSuccess) return 1;
        records = table.size();
    } else if (op == "limit") {
        std::vector<QT::VideoSampleRecord> table;
        LinearPass(ReadMoovOnce(*m), m->items, table);
        records = table.size();
    } else if (op != "none") {
        std::fprintf(stderr, "unknown operation %s\n", op.c_str());
        return 2;
    }
    std::printf("%lld %zu\n", static_cast<long long>(CpuNanoseconds() - start), records);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        if (argc >= 3 && std::strcmp(argv[1], "generate") == 0) {
            for (const BenchMovie& m : bench::WriteMovies(argv[2]))
                std::printf("%s %u items, movie atom %llu bytes\n", m.name.c_str(), m.items,
                            static_cast<unsigned long long>(m.moovSize));
            return 0;
        }
        if (argc >= 5 && std::strcmp(argv[1], "first") == 0) return FirstRun(argv[2], argv[3], argv[4]);

        const char* dir = std::getenv("ATOMSCAN_BENCH_DIR");
        static const std::vector<BenchMovie> movies = bench::WriteMovies(dir ? dir : "/tmp/atomscan-bench");
        RegisterAll(movies);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "atomscan_bench: %s\n", e.what());
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
