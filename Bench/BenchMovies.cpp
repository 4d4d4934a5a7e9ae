#include "Bench/BenchMovies.h"

#include <fstream>
#include <stdexcept>

#include "Tests/Support/MovieBuilder.h"

namespace bench {

using namespace testsupport;

namespace {

constexpr std::uint32_t kMovieScale = 600;
constexpr std::uint32_t kVideoScale = 60000;
constexpr std::uint32_t kFrameDuration = 1000;   // 60 fps
constexpr std::uint32_t kAudioPerFrame = 800;    // 48 kHz
constexpr std::uint32_t kAudioBytesPerSample = 2; // 16-bit mono
constexpr std::uint32_t kGop = 30;
constexpr std::uint64_t kFtypSize = 20;
constexpr std::uint64_t kMdatHeader = 16; // with the 64-bit size
constexpr std::uint64_t kMediaStart = 64; // for the movies without media: the file need not hold it

Atom Ftyp() { return Atom("ftyp", ByteWriter().Code("qt  ").U32(0x200).Code("qt  ")); }

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

// Decode order within a group of 30: I, then P B B nine times (the P shown
// two frames later, each B one frame earlier), then P P. As display offsets
// in frames, and as `sdtp` flags.
std::int32_t DisplayShift(std::uint32_t g)
{
    if (g == 0 || g >= 28) return 0;
    return (g - 1) % 3 == 0 ? 2 : -1;
}
std::uint8_t DependencyFlags(std::uint32_t g)
{
    if (g == 0) return 0x60;                         // earlier display allowed, depends on none
    if (g >= 28 || (g - 1) % 3 == 0) return 0x40;    // refers to the anchor before it
    return 0x08;                                     // nothing refers to it
}

void SetOffsets(TrackPlan& t, const std::vector<std::uint64_t>& offsets, bool co64)
{
    if (co64) {
        t.co64 = offsets;
        return;
    }
    t.stco.clear();
    for (std::uint64_t o : offsets) {
        if (o > 0xffffffffu) throw std::logic_error("stco offset above 32 bits");
        t.stco.push_back(static_cast<std::uint32_t>(o));
    }
}

// The frames movie of `shape`, its media placed from `base` on. `outMediaBytes`
// is the size of the media: video chunks with an audio chunk behind every
// half second or so.
MoviePlan Frames(std::uint32_t frames, const FrameShape& shape, std::uint64_t base, std::uint64_t& outMediaBytes)
{
    TrackPlan v = VideoBase(1920, 1080);
    v.mediaTimeScale = kVideoScale;
    v.stts.clear();
    std::uint64_t mediaDuration = 0;
    if (shape.varyingDurations) {
        for (std::uint32_t done = 0, run = 0; done < frames; ++run) {
            const std::uint32_t n = std::min(2 + run % 4, frames - done);
            const std::uint32_t d = kFrameDuration - 1 + run % 3;
            v.stts.push_back({n, d});
            mediaDuration += std::uint64_t{n} * d;
            done += n;
        }
    } else {
        v.stts = {{frames, kFrameDuration}};
        mediaDuration = std::uint64_t{frames} * kFrameDuration;
    }
    v.mediaDuration = static_cast<std::uint32_t>(mediaDuration);
    // Two frames out at each end, as B frames at the head leave them.
    const auto movieDuration = static_cast<std::uint32_t>((mediaDuration - 4 * kFrameDuration) / 100);
    v.duration = movieDuration;
    v.edits = std::vector<std::array<std::uint32_t, 3>>{{movieDuration, 2 * kFrameDuration, 0x10000}};
    v.stss.emplace();
    for (std::uint32_t s = 1; s <= frames; s += kGop) v.stss->push_back(s);

    std::vector<std::pair<std::uint32_t, std::int32_t>> ctts;
    Bytes flags(frames);
    for (std::uint32_t i = 0; i < frames; ++i) {
        const std::int32_t offset = DisplayShift(i % kGop) * static_cast<std::int32_t>(kFrameDuration);
        if (!ctts.empty() && ctts.back().second == offset) ++ctts.back().first;
        else ctts.push_back({1, offset});
        flags[i] = DependencyFlags(i % kGop);
    }
    v.extraStbl = {Ctts(ctts), Sdtp(flags)};

    const std::uint32_t chunks = (frames + shape.perChunk - 1) / shape.perChunk;
    v.stsc.clear();
    for (std::uint32_t r = 0; r < shape.stscRuns; ++r)
        v.stsc.push_back({1 + static_cast<std::uint32_t>(std::uint64_t{r} * chunks / shape.stscRuns), shape.perChunk, 1});
    v.stszSizes.resize(frames);

    // Video chunks, with an audio chunk behind every `audioEvery` of them.
    const std::uint32_t audioEvery = std::max(1u, kGop / shape.perChunk);
    const std::uint32_t audioPerChunk = audioEvery * shape.perChunk * kAudioPerFrame;
    std::vector<std::uint64_t> videoOffsets, audioOffsets;
    std::uint64_t at = base;
    for (std::uint32_t c = 0, i = 0; c < chunks; ++c) {
        videoOffsets.push_back(at);
        for (std::uint32_t k = 0; k < shape.perChunk && i < frames; ++k, ++i) {
            v.stszSizes[i] = FrameSize(i);
            at += v.stszSizes[i];
        }
        if ((c + 1) % audioEvery == 0) {
            audioOffsets.push_back(at);
            at += std::uint64_t{audioPerChunk} * kAudioBytesPerSample;
        }
    }
    outMediaBytes = at - base;
    SetOffsets(v, videoOffsets, shape.co64);

    TrackPlan a;
    a.mediaType = "soun";
    a.mediaTimeScale = 48000;
    const auto audioSamples = static_cast<std::uint32_t>(audioOffsets.size() * audioPerChunk);
    a.mediaDuration = audioSamples;
    a.duration = audioSamples / 80;
    a.descriptions = {SoundDescriptionV0("twos", 1, 16, 48000u << 16)};
    a.stts = {{audioSamples, 1}};
    a.stsc = {{1, audioPerChunk, 1}};
    a.stszConstant = 1;
    a.stszSizes.clear();
    a.replaceStbl.push_back(Stsz(1, {}, audioSamples));
    SetOffsets(a, audioOffsets, shape.co64);

    MoviePlan m;
    m.timeScale = kMovieScale;
    m.duration = movieDuration;
    m.tracks = {v, a};
    return m;
}

// A frames movie as a file: `ftyp`, then the movie atom and `mdat`, or
// `mdat` and the movie atom. The media is a hole of the file's.
void WriteFramesMovie(const BenchMovie& movie, const std::filesystem::path& to)
{
    std::uint64_t mediaBytes = 0;
    std::uint64_t base = kFtypSize + kMdatHeader;
    if (!movie.shape.moovLast) {
        // The movie atom's size does not depend on the offsets' values.
        base += BuildMoov(Frames(movie.items, movie.shape, 0, mediaBytes)).Serialize().size();
    }
    const Bytes moov = BuildMoov(Frames(movie.items, movie.shape, base, mediaBytes)).Serialize();
    const Bytes mdat = ByteWriter().U32(1).Code("mdat").U64(kMdatHeader + mediaBytes);
    const Bytes ftyp = Ftyp().Serialize();
    std::ofstream out(to, std::ios::binary);
    auto put = [&](const Bytes& b) { out.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size())); };
    put(ftyp);
    if (!movie.shape.moovLast) put(moov);
    put(mdat);
    out.seekp(static_cast<std::streamoff>(mediaBytes), std::ios::cur);
    if (movie.shape.moovLast) put(moov);
    out.close();
    if (!out) throw std::runtime_error("cannot write " + to.string());
    if (!movie.shape.moovLast) std::filesystem::resize_file(to, base + mediaBytes);
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

void WriteMovie(const BenchMovie& movie, const std::filesystem::path& to)
{
    MoviePlan plan;
    switch (movie.kind) {
    case Kind::kFrames: return WriteFramesMovie(movie, to);
    case Kind::kAudio: plan = Audio(movie.items); break;
    case Kind::kCaption: plan = Captions(movie.items); break;
    case Kind::kTracks: plan = Tracks(movie.items); break;
    }
    const Bytes bytes = BuildMovieFile(plan);
    std::ofstream out(to, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) throw std::runtime_error("cannot write " + to.string());
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
    std::uint8_t header[16];
    while (in.seekg(static_cast<std::streamoff>(at)) && in.read(reinterpret_cast<char*>(header), 16)) {
        std::uint64_t size = BigEndian32(header);
        if (size == 1) size = (std::uint64_t{BigEndian32(header + 8)} << 32) | BigEndian32(header + 12);
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

BenchMovie Movie(const char* name, Kind kind, std::uint32_t items, FrameShape shape = {})
{
    BenchMovie m;
    m.name = name;
    m.kind = kind;
    m.items = items;
    m.shape = shape;
    return m;
}
BenchMovie FramesMovie(const char* name, std::uint32_t frames, FrameShape shape)
{
    return Movie(name, Kind::kFrames, frames, shape);
}

} // namespace

std::vector<BenchMovie> MovieSet(const std::filesystem::path& dir)
{
    const FrameShape base;
    FrameShape chunked;
    chunked.perChunk = 8;
    chunked.stscRuns = 1000;
    FrameShape varying;
    varying.varyingDurations = true;
    FrameShape stco;
    stco.co64 = false;
    FrameShape last;
    last.moovLast = true;
    std::vector<BenchMovie> set = {
        FramesMovie("frames_10k", 10'000, base),
        FramesMovie("frames_100k", 100'000, base),
        FramesMovie("frames_1m", 1'000'000, base),
        FramesMovie("chunked_100k", 100'000, chunked),
        FramesMovie("chunked_1m", 1'000'000, chunked),
        FramesMovie("vardur_100k", 100'000, varying),
        FramesMovie("vardur_1m", 1'000'000, varying),
        FramesMovie("stco_100k", 100'000, stco),
        FramesMovie("stco_1m", 1'000'000, stco),
        FramesMovie("moovlast_100k", 100'000, last),
        FramesMovie("moovlast_1m", 1'000'000, last),
        Movie("audio_10k", Kind::kAudio, 10'000),
        Movie("audio_100k", Kind::kAudio, 100'000),
        Movie("audio_1m", Kind::kAudio, 1'000'000),
        Movie("caption_100k", Kind::kCaption, 100'000),
        Movie("caption_1m", Kind::kCaption, 1'000'000),
        Movie("tracks_100", Kind::kTracks, 100),
        Movie("tracks_1000", Kind::kTracks, 1000),
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
            const std::filesystem::path part = m.path.string() + ".part";
            WriteMovie(m, part);
            std::filesystem::rename(part, m.path);
        }
        LocateMoov(m);
    }
    return set;
}

} // namespace bench
