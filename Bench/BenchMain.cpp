// Benchmarks of the open and the table builders over synthetic movies, each
// beside its same-work floor (Bench/Floors.h: plain loops without checks that
// write the same records) and beside the bare limit: one read of the movie
// atom, and one linear pass that writes as many frame records.
//
//   atomscan_bench [google benchmark flags]   warm runs in this process
//   atomscan_bench generate DIR               writes the movies
//   atomscan_bench check DIR                  each operation against its floor: the same records
//   atomscan_bench first OP MOVIE DIR         one cold run in a fresh process; OP is open-table,
//                                             floor, limit or none; prints CPU nanoseconds and records
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <malloc.h>
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
#include "Bench/Floors.h"
#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Inc/QTTrack.h"
#include "Tests/Support/MovieBuilder.h"

namespace {

using bench::BenchMovie;
using bench::Kind;
using Tessel::InterfaceRef;
using Frames = std::vector<QT::VideoSampleRecord>;

// --- The bare limit ----------------------------------------------------------

// One pass over the copy that writes `records` frame records, each from a
// big-endian word of the copy: what any table builder has to do at least.
void LinearPass(const bench::plain::Copy& moov, std::uint64_t size, std::uint32_t records, Frames& out)
{
    out.reserve(out.size() + records);
    const std::uint64_t words = size / 4;
    const std::uint8_t* p = moov.data;
    std::uint64_t word = 0, offset = 0;
    std::uint32_t time = 0;
    for (std::uint32_t i = 0; i < records; ++i) {
        const std::uint8_t* w = p + 4 * word;
        const std::uint32_t v = (std::uint32_t{w[0]} << 24) | (std::uint32_t{w[1]} << 16) |
                                (std::uint32_t{w[2]} << 8) | w[3];
        out.push_back({offset, 1000, time, v, (i % 30) == 0});
        offset += v;
        time += 1000;
        if (++word == words) word = 0;
    }
}

void ReadAndPass(const BenchMovie& m, Frames& out)
{
    bench::plain::Copy moov;
    bench::plain::ReadMovieAtom(m.path.c_str(), m.moovOffset, m.moovSize, moov);
    LinearPass(moov, m.moovSize, m.items, out);
}

// --- The floors' preparation: a copy in memory and its tables found --------

struct Prepared {
    bench::plain::Copy copy;
    bench::plain::Movie movie;
    const bench::plain::Track* track = nullptr;
    bench::plain::Edit edit;

    Prepared(const BenchMovie& m, QT::FourCC handler)
    {
        bench::plain::ReadMovieAtom(m.path.c_str(), m.moovOffset, m.moovSize, copy);
        movie = bench::plain::Walk(copy.data);
        track = bench::plain::FirstOf(movie, handler);
        if (!track) throw std::runtime_error("no track of the type asked for in " + m.name);
        edit = bench::plain::EditOf(movie, *track);
    }
};

// --- Our side ----------------------------------------------------------------

InterfaceRef<QT::IQTMovie> Open(const BenchMovie& m)
{
    InterfaceRef<QT::IQTMovie> movie;
    const QT::ResultCode rc = QT::MakeParser()->OpenMovie(testsupport::ToString16(m.path.string()), movie);
    if (rc != QT::kResultSuccess) throw std::runtime_error("cannot open " + m.name);
    return movie;
}

InterfaceRef<QT::IQTTrack> FirstTrackOf(const InterfaceRef<QT::IQTMovie>& movie, QT::FourCC type)
{
    for (std::uint32_t i = 0; i < movie->GetTrackCount(); ++i) {
        InterfaceRef<QT::IQTTrack> track = movie->GetIndTrack(i);
        if (track->GetTrackMediaType() == type) return track;
    }
    throw std::runtime_error("no track of the type asked for");
}

QT::ResultCode OursOpenAndTable(const BenchMovie& m, Frames& table)
{
    return Open(m)->GetIndTrack(0)->MakeFullVideoSampleTable(false, false, table);
}

QT::ResultCode OursAudioMap(const InterfaceRef<QT::IQTTrack>& track, QT::AudioSampleRangeMap& map)
{
    return track->MakeAudioSampleRangeMap(map, false);
}

std::uint64_t BytesPerFrame(const InterfaceRef<QT::IQTTrack>& track)
{
    return std::uint64_t{track->GetAudioMediaBitsPerSample(0) / 8} * track->GetAudioMediaNumChannels(0);
}

// --- Benchmarks --------------------------------------------------------------

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
        bench::plain::Copy moov;
        bench::plain::ReadMovieAtom(m.path.c_str(), m.moovOffset, m.moovSize, moov);
        benchmark::DoNotOptimize(moov.data);
    }
    Count(state, m, m.items);
}

void LimitReadAndPass(benchmark::State& state, const BenchMovie& m)
{
    for (auto _ : state) {
        Frames table;
        ReadAndPass(m, table);
        benchmark::DoNotOptimize(table.data());
    }
    Count(state, m, m.items);
}

void FloorOpenAndTable(benchmark::State& state, const BenchMovie& m)
{
    for (auto _ : state) {
        Frames table;
        bench::plain::OpenAndFrameTable(m.path.c_str(), m.moovOffset, m.moovSize, table);
        benchmark::DoNotOptimize(table.data());
    }
    Count(state, m, m.items);
}

void OpenAndFullTable(benchmark::State& state, const BenchMovie& m)
{
    for (auto _ : state) {
        Frames table;
        if (OursOpenAndTable(m, table) != QT::kResultSuccess) return Fail(state, "MakeFullVideoSampleTable failed");
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

void FloorTable(benchmark::State& state, const BenchMovie& m)
{
    const Prepared p(m, QT::kVideoMediaType);
    for (auto _ : state) {
        Frames table;
        bench::plain::FrameTable(*p.track, p.edit, table);
        benchmark::DoNotOptimize(table.data());
    }
    Count(state, m, m.items);
}

void FullTable(benchmark::State& state, const BenchMovie& m)
{
    InterfaceRef<QT::IQTTrack> track = Open(m)->GetIndTrack(0);
    for (auto _ : state) {
        Frames table;
        if (track->MakeFullVideoSampleTable(false, false, table) != QT::kResultSuccess)
            return Fail(state, "MakeFullVideoSampleTable failed");
        benchmark::DoNotOptimize(table.data());
    }
    Count(state, m, m.items);
}

void FloorTemporalTable(benchmark::State& state, const BenchMovie& m)
{
    const Prepared p(m, QT::kVideoMediaType);
    for (auto _ : state) {
        std::vector<QT::VideoTemporalReference> table;
        if (!bench::plain::TemporalTable(*p.track, table)) return Fail(state, "floor: invalid temporal table");
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

void FloorEditSampleCount(benchmark::State& state, const BenchMovie& m)
{
    const Prepared p(m, QT::kVideoMediaType);
    for (auto _ : state) benchmark::DoNotOptimize(bench::plain::EditSampleCount(p.movie, *p.track, p.edit));
    Count(state, m, m.items);
}

// A new track for each count, made outside the timing: a track keeps its count.
void EditSampleCount(benchmark::State& state, const BenchMovie& m)
{
    InterfaceRef<QT::IQTMovie> movie = Open(m);
    for (auto _ : state) {
        state.PauseTiming();
        InterfaceRef<QT::IQTTrack> track = movie->GetIndTrack(0);
        state.ResumeTiming();
        const std::uint32_t n = track->GetEditSampleCount();
        if (n == 0 || n > m.items) return Fail(state, "GetEditSampleCount out of range");
        benchmark::DoNotOptimize(n);
    }
    Count(state, m, m.items);
}

void FloorAudioRangeMap(benchmark::State& state, const BenchMovie& m)
{
    const Prepared p(m, QT::kAudioMediaType);
    const std::uint64_t bytesPerFrame = BytesPerFrame(FirstTrackOf(Open(m), QT::kAudioMediaType));
    for (auto _ : state) {
        QT::AudioSampleRangeMap map;
        bench::plain::AudioRangeMap(*p.track, p.edit, bytesPerFrame, false, map);
        benchmark::DoNotOptimize(&map);
    }
    Count(state, m, m.items);
}

void AudioRangeMap(benchmark::State& state, const BenchMovie& m)
{
    InterfaceRef<QT::IQTTrack> track = FirstTrackOf(Open(m), QT::kAudioMediaType);
    for (auto _ : state) {
        QT::AudioSampleRangeMap map;
        if (OursAudioMap(track, map) != QT::kResultSuccess || map.size() != m.items)
            return Fail(state, "MakeAudioSampleRangeMap failed");
        benchmark::DoNotOptimize(&map);
    }
    Count(state, m, m.items);
}

void FloorCaptionTable(benchmark::State& state, const BenchMovie& m)
{
    const Prepared p(m, QT::kClosedCaptionMediaType);
    for (auto _ : state) {
        QT::CaptionSampleMap table;
        bench::plain::CaptionTable(*p.track, p.edit, false, table);
        benchmark::DoNotOptimize(&table);
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

template <class F>
void Register(const std::string& name, const BenchMovie& m, F f)
{
    benchmark::RegisterBenchmark((name + "/" + m.name).c_str(), [&m, f](benchmark::State& s) { f(s, m); })
        ->Unit(benchmark::kMicrosecond);
}

bool Base(const BenchMovie& m) { return m.name.rfind("frames_", 0) == 0; }

void RegisterAll(const std::vector<BenchMovie>& movies)
{
    for (const BenchMovie& m : movies) {
        switch (m.kind) {
        case Kind::kFrames:
            Register("Limit.Read", m, LimitRead);
            Register("Limit.ReadAndPass", m, LimitReadAndPass);
            Register("Floor.OpenAndTable", m, FloorOpenAndTable);
            Register("OpenAndFullTable", m, OpenAndFullTable);
            Register("Open", m, OpenOnly);
            Register("Floor.Table", m, FloorTable);
            Register("FullTable", m, FullTable);
            if (Base(m) || m.name.rfind("vardur_", 0) == 0) {
                Register("Floor.EditSampleCount", m, FloorEditSampleCount);
                Register("EditSampleCount", m, EditSampleCount);
            }
            if (Base(m) && m.items >= 100'000) {
                Register("Floor.TemporalTable", m, FloorTemporalTable);
                Register("TemporalTable", m, TemporalTable);
            }
            break;
        case Kind::kAudio:
            Register("Floor.AudioRangeMap", m, FloorAudioRangeMap);
            Register("AudioRangeMap", m, AudioRangeMap);
            break;
        case Kind::kCaption:
            Register("Floor.CaptionTable", m, FloorCaptionTable);
            Register("CaptionTable", m, CaptionTable);
            break;
        case Kind::kTracks: Register("GetBounds", m, Bounds); break;
        }
    }
}

// --- The floors write what we write ------------------------------------------

bool SameFrames(const Frames& a, const Frames& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return x.mOffset == y.mOffset && x.mDuration == y.mDuration && x.mTime == y.mTime && x.mSize == y.mSize &&
               x.mIsKeyFrame == y.mIsKeyFrame;
    });
}

bool SameTemporal(const std::vector<QT::VideoTemporalReference>& a, const std::vector<QT::VideoTemporalReference>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return x.mDecodeOffset == y.mDecodeOffset && x.mEarlierReferenceOffset == y.mEarlierReferenceOffset &&
               x.mLaterReferenceOffset == y.mLaterReferenceOffset && x.mDependencyFlags == y.mDependencyFlags;
    });
}

bool SameRanges(const QT::AudioSampleRangeMap& a, const QT::AudioSampleRangeMap& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return x.first == y.first && x.second.mSampleCount == y.second.mSampleCount &&
               x.second.mOutputPosition == y.second.mOutputPosition && x.second.mOffsetInFile == y.second.mOffsetInFile;
    });
}

// Each operation of ours against its floor on every movie it is timed on.
int Check(const std::string& dir)
{
    int failures = 0;
    auto report = [&](const BenchMovie& m, const char* what, bool same, std::size_t n) {
        std::printf("%-14s %-16s %9zu records %s\n", m.name.c_str(), what, n, same ? "same" : "DIFFERENT");
        failures += !same;
    };
    for (const BenchMovie& m : bench::WriteMovies(dir)) {
        if (m.kind == Kind::kFrames) {
            Frames ours, floor;
            const bool ok = OursOpenAndTable(m, ours) == QT::kResultSuccess;
            bench::plain::OpenAndFrameTable(m.path.c_str(), m.moovOffset, m.moovSize, floor);
            report(m, "frame table", ok && SameFrames(ours, floor), ours.size());
            const Prepared p(m, QT::kVideoMediaType);
            const std::uint32_t count = Open(m)->GetIndTrack(0)->GetEditSampleCount();
            report(m, "edit samples", count == bench::plain::EditSampleCount(p.movie, *p.track, p.edit), count);
            std::vector<QT::VideoTemporalReference> t1, t2;
            const bool tOk = Open(m)->GetIndTrack(0)->MakeVideoTemporalReferenceTable(t1) == QT::kResultSuccess;
            const bool fOk = bench::plain::TemporalTable(*p.track, t2);
            if (!m.shape.varyingDurations) report(m, "temporal table", tOk && fOk && SameTemporal(t1, t2), t1.size());
        } else if (m.kind == Kind::kAudio) {
            QT::AudioSampleRangeMap ours, floor;
            InterfaceRef<QT::IQTTrack> track = FirstTrackOf(Open(m), QT::kAudioMediaType);
            const bool ok = OursAudioMap(track, ours) == QT::kResultSuccess;
            const Prepared p(m, QT::kAudioMediaType);
            bench::plain::AudioRangeMap(*p.track, p.edit, BytesPerFrame(track), false, floor);
            report(m, "audio ranges", ok && SameRanges(ours, floor), ours.size());
        } else if (m.kind == Kind::kCaption) {
            QT::CaptionSampleMap ours, floor;
            const bool ok = Open(m)->GetIndTrack(0)->MakeCaptionSampleTable(testsupport::ToString16(m.path.string()),
                                                                           ours, false) == QT::kResultSuccess;
            const Prepared p(m, QT::kClosedCaptionMediaType);
            bench::plain::CaptionTable(*p.track, p.edit, false, floor);
            report(m, "caption table", ok && ours == floor, ours.size());
        }
    }
    return failures ? 1 : 0;
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
    Frames table;
    if (op == "open-table") {
        if (OursOpenAndTable(*m, table) != QT::kResultSuccess) return 1;
    } else if (op == "floor") {
        bench::plain::OpenAndFrameTable(m->path.c_str(), m->moovOffset, m->moovSize, table);
    } else if (op == "limit") {
        ReadAndPass(*m, table);
    } else if (op != "none") {
        std::fprintf(stderr, "unknown operation %s\n", op.c_str());
        return 2;
    }
    records = table.size();
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
        if (argc >= 3 && std::strcmp(argv[1], "check") == 0) return Check(argv[2]);
        if (argc >= 5 && std::strcmp(argv[1], "first") == 0) return FirstRun(argv[2], argv[3], argv[4]);

        // Warm runs mean a heap that keeps what it was given: large blocks come
        // from it rather than from fresh pages of their own, and freed memory
        // stays, for ours and the floors alike. First runs keep the defaults.
        mallopt(M_MMAP_THRESHOLD, 256 << 20);
        mallopt(M_TRIM_THRESHOLD, 512 << 20);
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
