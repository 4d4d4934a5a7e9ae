#include "Bench/BenchMovies.h"

#include <fstream>
#include <stdexcept>

#include "Tests/Support/MovieBuilder.h"

namespace bench {

using namespace testsupport;

namespace {

constexpr std::uint32_t kMovieScale = 600;
constexpr std::uint64_t kMediaStart = 64; // frames are placed from here on; the file need not hold them

// A frame size between 1000 and 2999 bytes, the same for every run.
std::uint32_t FrameSize(std::uint32_t i) { return 1000 + (i * 7919u) % 2000; }

// `samples` samples of `size` bytes in `chunks` chunks (one sample a chunk by
// default), the chunks `stride` bytes apart.
void ConstantSizeSamples(TrackPlan& t, std::uint32_t size, std::uint32_t samples, std::uint64_t stride,
                         std::uint32_t chunks = 0)
{
    if (chunks == 0) chunks = samples;
    t.stszConstant = size;
    t.stszSizes.clear();
    t.replaceStbl.push_back(Stsz(size, {}, samples));
    t.stco.resize(chunks);
    for (std::uint32_t i = 0; i < chunks; ++i) t.stco[i] = static_cast<std::uint32_t>(kMediaStart + stride * i);
}

MoviePlan OneTrackMovie(const TrackPlan& t)
{
    MoviePlan m;
    m.timeScale = kMovieScale;
    m.duration = t.duration;
    m.tracks = {t};
    return m;
}

TrackPlan VideoBase(std::uint32_t width, std::uint32_t height)
{
    TrackPlan t;
    t.width = static_cast<std::int32_t>(width);
    t.height = static_cast<std::int32_t>(height);
    ImageDescriptionPlan d;
    d.width = static_cast<std::uint16_t>(width);
    d.height = static_cast<std::uint16_t>(height);
    t.descriptions = {ImageDescription(d)};
    return t;
}

// 60 fps video at 60000: runs of 10 frames of 1000 and 1002 units, a key
// frame every 60, variable sizes, `perChunk` frames per chunk, and one edit
// that leaves out the first two frames and the last two.
MoviePlan Video(std::uint32_t frames, std::uint32_t perChunk)
{
    TrackPlan t = VideoBase(1920, 1080);
    t.mediaTimeScale = 60000;
    t.stts.clear();
    std::uint64_t mediaDuration = 0;
    for (std::uint32_t done = 0, run = 0; done < frames; ++run) {
        const std::uint32_t n = std::min(10u, frames - done);
        const std::uint32_t d = run % 2 ? 1002 : 1000;
        t.stts.push_back({n, d});
        mediaDuration += std::uint64_t{n} * d;
        done += n;
    }
    t.mediaDuration = static_cast<std::uint32_t>(mediaDuration);
    const auto movieDuration = static_cast<std::uint32_t>(mediaDuration / 100);
    t.duration = movieDuration;
    t.edits = std::vector<std::array<std::uint32_t, 3>>{{movieDuration - 40, 2000, 0x10000}};
    t.stss.emplace();
    for (std::uint32_t s = 1; s <= frames; s += 60) t.stss->push_back(s);
    t.stsc = {{1, perChunk, 1}};
    t.stszSizes.resize(frames);
    t.stco.clear();
    std::uint64_t at = kMediaStart;
    for (std::uint32_t i = 0; i < frames; ++i) {
        if (i % perChunk == 0) t.stco.push_back(static_cast<std::uint32_t>(at));
        t.stszSizes[i] = FrameSize(i);
        at += t.stszSizes[i];
    }
    return OneTrackMovie(t);
}

// Frames in the order I P B B P B B ..., with `ctts` and `sdtp` to match;
// `frames` is one more than a multiple of 3.
MoviePlan Temporal(std::uint32_t frames)
{
    TrackPlan t = VideoBase(1920, 1080);
    t.mediaTimeScale = 60000;
    t.stts = {{frames, 1000}};
    t.mediaDuration = frames * 1000;
    t.duration = frames * 10;
    ConstantSizeSamples(t, 1500, frames, 1500);
    std::vector<std::pair<std::uint32_t, std::int32_t>> ctts{{1, 0}};
    Bytes flags{0x60}; // earlier display allowed, depends on none
    for (std::uint32_t i = 1; i < frames; i += 3) {
        ctts.push_back({1, 2000});
        ctts.push_back({1, -1000});
        ctts.push_back({1, -1000});
        flags.push_back(0x40); // refers to the anchor before it
        flags.push_back(0x08); // nothing refers to it
        flags.push_back(0x08);
    }
    t.extraStbl = {Ctts(ctts), Sdtp(flags)};
    return OneTrackMovie(t);
}

// 16-bit stereo at 48 kHz, 1024 frames a chunk.
MoviePlan Audio(std::uint32_t chunks)
{
    TrackPlan t;
    t.mediaType = "soun";
    t.mediaTimeScale = 48000;
    const std::uint32_t frames = chunks * 1024;
    t.mediaDuration = frames;
    t.duration = frames / 80;
    t.descriptions = {SoundDescriptionV0("twos", 2, 16, 48000u << 16)};
    t.stts = {{frames, 1}};
    t.stsc = {{1, 1024, 1}};
    ConstantSizeSamples(t, 1, frames, 4096, chunks);
    return OneTrackMovie(t);
}

// `c708` samples of 40 bytes, one a chunk, at 29.97 fps.
MoviePlan Captions(std::uint32_t samples)
{
    TrackPlan t;
    t.mediaType = "clcp";
    t.flags = 3;
    t.mediaTimeScale = 30000;
    t.mediaDuration = samples * 1001;
    t.duration = static_cast<std::uint32_t>(std::uint64_t{samples} * 1001 / 50);
    t.descriptions = {SampleDescription("c708", {})};
    t.stts = {{samples, 1001}};
    ConstantSizeSamples(t, 40, samples, 40);
    return OneTrackMovie(t);
}

// Many small video tracks of different sizes.
MoviePlan Tracks(std::uint32_t count)
{
    MoviePlan m;
    m.timeScale = kMovieScale;
    m.tracks.clear();
    for (std::uint32_t i = 0; i < count; ++i) m.tracks.push_back(VideoBase(16 + i, 16 + 2 * i));
    return m;
}

MoviePlan PlanOf(const BenchMovie& movie)
{
    switch (movie.kind) {
    case Kind::kVideo: return Video(movie.items, movie.name.find("chunked") != std::string::npos ? 1000 : 1);
    case Kind::kTemporal: return Temporal(movie.items);
    case Kind::kAudio: return Audio(movie.items);
    case Kind::kCaption: return Captions(movie.items);
    case Kind::kTracks: return Tracks(movie.items);
    }
    throw std::logic_error("unknown movie kind");
}

std::uint32_t BigEndian32(const std::uint8_t* p)
{
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}

// The place of the top-level `moov` atom of the file.
void LocateMoov(BenchMovie& movie)
{
    std::ifstream in(movie.path, std::ios::binary);
    std::uint64_t at = 0;
    std::uint8_t header[8];
    while (in.seekg(static_cast<std::streamoff>(at)) && in.read(reinterpret_cast<char*>(header), 8)) {
        const std::uint32_t size = BigEndian32(header);
        if (BigEndian32(header + 4) == QT::MakeFourCC("moov")) {
            movie.moovOffset = at;
            movie.moovSize = size;
            return;
        }
        if (size < 8) break;
        at += size;
    }
    throw std::runtime_error("no movie atom in " + movie.path.string());
}

} // namespace

std::vector<BenchMovie> MovieSet(const std::filesystem::path& dir)
{
    std::vector<BenchMovie> set = {
        {"video_10k", Kind::kVideo, 10'000, 0, 0, {}},
        {"video_100k", Kind::kVideo, 100'000, 0, 0, {}},
        {"video_1m", Kind::kVideo, 1'000'000, 0, 0, {}},
        {"video_1m_chunked", Kind::kVideo, 1'000'000, 0, 0, {}},
        {"temporal_100k", Kind::kTemporal, 100'000, 0, 0, {}},
        {"temporal_1m", Kind::kTemporal, 1'000'000, 0, 0, {}},
        {"audio_1k", Kind::kAudio, 1'000, 0, 0, {}},
        {"audio_10k", Kind::kAudio, 10'000, 0, 0, {}},
        {"audio_100k", Kind::kAudio, 100'000, 0, 0, {}},
        {"caption_100k", Kind::kCaption, 100'000, 0, 0, {}},
        {"caption_1m", Kind::kCaption, 1'000'000, 0, 0, {}},
        {"tracks_100", Kind::kTracks, 100, 0, 0, {}},
        {"tracks_1000", Kind::kTracks, 1000, 0, 0, {}},
    };
    for (BenchMovie& m : set) m.path = dir / (m.name + ".mov");
    return set;
}

std::vector<BenchMovie> WriteMovies(const std::filesystem::path& dir)
{
    std::filesystem::create_directories(dir);
    std::vector<BenchMovie> set = MovieSet(dir);
    for (BenchMovie& m : set) {
        if (!std::filesystem::exists(m.path)) {
            const Bytes bytes = BuildMovieFile(PlanOf(m));
            const std::filesystem::path part = m.path.string() + ".part";
            std::ofstream out(part, std::ios::binary);
            out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
            out.close();
            if (!out) throw std::runtime_error("cannot write " + part.string());
            std::filesystem::rename(part, m.path);
        }
        LocateMoov(m);
    }
    return set;
}

} // namespace bench
