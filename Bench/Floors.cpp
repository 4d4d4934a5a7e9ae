#include "Bench/Floors.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace bench::plain {

namespace {

inline std::uint32_t Be32(const std::uint8_t* p)
{
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}
inline std::uint64_t Be64(const std::uint8_t* p) { return (std::uint64_t{Be32(p)} << 32) | Be32(p + 4); }

constexpr std::uint32_t Code(const char (&c)[5])
{
    return (std::uint32_t(std::uint8_t(c[0])) << 24) | (std::uint32_t(std::uint8_t(c[1])) << 16) |
           (std::uint32_t(std::uint8_t(c[2])) << 8) | std::uint32_t(std::uint8_t(c[3]));
}

// Calls `f(type, atom)` for each child of the container at `atom`, whose
// children start `skip` bytes in.
template <class F>
void Children(const std::uint8_t* atom, std::uint32_t skip, F f)
{
    const std::uint8_t* end = atom + Be32(atom);
    for (const std::uint8_t* p = atom + skip; p + 8 <= end; p += Be32(p)) f(Be32(p + 4), p);
}

std::uint32_t Rescale(std::uint32_t value, std::uint32_t from, std::uint32_t to)
{
    return from == to ? value : static_cast<std::uint32_t>(std::uint64_t{value} * to / from);
}

} // namespace

std::uint32_t Track::Handler() const { return Be32(hdlr + 16); }

Movie Walk(const std::uint8_t* moov)
{
    Movie movie;
    Children(moov, 8, [&](std::uint32_t type, const std::uint8_t* a) {
        if (type == Code("mvhd")) movie.movieScale = Be32(a + 20);
        if (type != Code("trak")) return;
        Track t;
        Children(a, 8, [&](std::uint32_t type, const std::uint8_t* a) {
            if (type == Code("tkhd")) t.tkhd = a;
            if (type == Code("edts"))
                Children(a, 8, [&](std::uint32_t type, const std::uint8_t* a) {
                    if (type == Code("elst")) t.elst = a;
                });
            if (type != Code("mdia")) return;
            Children(a, 8, [&](std::uint32_t type, const std::uint8_t* a) {
                if (type == Code("mdhd")) t.mdhd = a;
                if (type == Code("hdlr")) t.hdlr = a;
                if (type != Code("minf")) return;
                Children(a, 8, [&](std::uint32_t type, const std::uint8_t* a) {
                    if (type != Code("stbl")) return;
                    Children(a, 8, [&](std::uint32_t type, const std::uint8_t* a) {
                        switch (type) {
                        case Code("stts"): t.stts = a; break;
                        case Code("stss"): t.stss = a; break;
                        case Code("stsc"): t.stsc = a; break;
                        case Code("stsz"): t.stsz = a; break;
                        case Code("stco"): t.stco = a; break;
                        case Code("co64"): t.co64 = a; break;
                        case Code("ctts"): t.ctts = a; break;
                        case Code("sdtp"): t.sdtp = a; break;
                        }
                    });
                });
            });
        });
        movie.tracks.push_back(t);
    });
    return movie;
}

const Track* FirstOf(const Movie& movie, std::uint32_t handler)
{
    for (const Track& t : movie.tracks)
        if (t.Handler() == handler) return &t;
    return nullptr;
}

Edit EditOf(const Movie& movie, const Track& t)
{
    const std::uint32_t mediaScale = Be32(t.mdhd + 20);
    Edit e;
    if (!t.elst || Be32(t.elst + 12) != 1) {
        e.duration = Rescale(Be32(t.tkhd + 28), movie.movieScale, mediaScale);
        return e;
    }
    e.duration = Rescale(Be32(t.elst + 16), movie.movieScale, mediaScale);
    e.mediaTime = Be32(t.elst + 20);
    const std::uint8_t* stts = t.stts + 16;
    const std::uint32_t entries = Be32(t.stts + 12);
    if (e.mediaTime == 0) {
        for (std::uint32_t i = 0; i < entries; ++i)
            if (Be32(stts + 8 * i) != 0) {
                e.firstSampleDuration = Be32(stts + 8 * i + 4);
                break;
            }
        return e;
    }
    if (t.Handler() == Code("soun")) {
        e.firstSample = e.mediaTime;
        e.firstSampleDuration = 1;
        return e;
    }
    // The first sample that ends after the media time, and what of it is shown.
    std::uint32_t rest = e.mediaTime, index = 0;
    for (std::uint32_t i = 0; i < entries; ++i) {
        const std::uint32_t n = Be32(stts + 8 * i), d = Be32(stts + 8 * i + 4);
        if (std::uint64_t{n} * d <= rest) {
            rest -= n * d;
            index += n;
            continue;
        }
        index += rest / d;
        e.firstSample = index;
        e.firstSampleDuration = d - rest % d;
        break;
    }
    return e;
}

Copy::~Copy() { std::free(data); }

void ReadMovieAtom(const char* path, std::uint64_t offset, std::uint64_t size, Copy& out)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw std::runtime_error(std::string("cannot open ") + path);
    out.data = static_cast<std::uint8_t*>(std::malloc(size));
    std::uint64_t done = 0;
    while (done < size) {
        const ssize_t got = ::pread(fd, out.data + done, size - done, static_cast<off_t>(offset + done));
        if (got <= 0) break;
        done += static_cast<std::uint64_t>(got);
    }
    ::close(fd);
    if (done != size) throw std::runtime_error(std::string("short read of ") + path);
}

void FrameTable(const Track& t, const Edit& edit, std::vector<QT::VideoSampleRecord>& out)
{
    const std::uint8_t* stts = t.stts + 16;
    const std::uint8_t* stsc = t.stsc + 16;
    const std::uint32_t stscEntries = Be32(t.stsc + 12);
    const std::uint32_t constantSize = Be32(t.stsz + 12);
    const std::uint32_t samples = Be32(t.stsz + 16);
    const std::uint8_t* sizes = t.stsz + 20;
    const bool wide = t.co64 != nullptr;
    const std::uint8_t* chunkTable = (wide ? t.co64 : t.stco) + 16;
    const std::uint32_t chunks = Be32((wide ? t.co64 : t.stco) + 12);
    const std::uint8_t* stss = t.stss ? t.stss + 16 : nullptr;
    const std::uint32_t syncCount = t.stss ? Be32(t.stss + 12) : 0;

    out.reserve(out.size() + samples);
    std::uint32_t syncIndex = 0, nextSync = syncCount ? Be32(stss) - 1 : 0;
    std::uint32_t sttsIndex = 0, sttsLeft = Be32(stts), duration = Be32(stts + 4);
    const std::uint32_t editEnd = edit.mediaTime + edit.duration;
    std::uint32_t sample = 0, mediaTime = 0, outputTime = 0;
    for (std::uint32_t e = 0; e < stscEntries; ++e) {
        const std::uint32_t perChunk = Be32(stsc + 12 * e + 4);
        const std::uint32_t endChunk = e + 1 < stscEntries ? Be32(stsc + 12 * (e + 1)) - 1 : chunks;
        for (std::uint32_t c = Be32(stsc + 12 * e) - 1; c < endChunk; ++c) {
            std::uint64_t offset = wide ? Be64(chunkTable + 8 * c) : Be32(chunkTable + 4 * c);
            for (std::uint32_t k = 0; k < perChunk; ++k, ++sample) {
                if (sample == samples || mediaTime >= editEnd) return;
                const std::uint32_t size = constantSize ? constantSize : Be32(sizes + 4 * sample);
                if (sttsLeft == 0) {
                    ++sttsIndex;
                    sttsLeft = Be32(stts + 8 * sttsIndex);
                    duration = Be32(stts + 8 * sttsIndex + 4);
                }
                --sttsLeft;
                bool key = true;
                if (stss) {
                    key = sample == nextSync;
                    if (key && ++syncIndex < syncCount) nextSync = Be32(stss + 4 * syncIndex) - 1;
                }
                std::uint32_t shown = duration;
                if (sample >= edit.firstSample) {
                    if (sample == edit.firstSample && edit.firstSampleDuration) shown = edit.firstSampleDuration;
                    else if (mediaTime + duration > editEnd) shown = editEnd - mediaTime;
                    out.push_back({offset, shown, outputTime, size, key});
                    outputTime += shown;
                }
                mediaTime += shown;
                offset += size;
            }
        }
    }
}

void OpenAndFrameTable(const char* path, std::uint64_t offset, std::uint64_t size,
                       std::vector<QT::VideoSampleRecord>& out)
{
    Copy copy;
    ReadMovieAtom(path, offset, size, copy);
    const Movie movie = Walk(copy.data);
    const Track* video = FirstOf(movie, Code("vide"));
    FrameTable(*video, EditOf(movie, *video), out);
}

bool TemporalTable(const Track& t, std::vector<QT::VideoTemporalReference>& out)
{
    const std::uint32_t samples = Be32(t.stsz + 16);
    out.resize(samples);
    const auto frameDuration = static_cast<std::int32_t>(Be32(t.stts + 20));
    const std::uint8_t* ctts = t.ctts + 16;
    const std::uint32_t entries = Be32(t.ctts + 12);
    const std::uint8_t* flags = t.sdtp + 12;
    std::vector<std::uint64_t> seen((samples + 63) / 64);
    std::vector<std::uint32_t> outside;
    std::uint32_t distinct = 0, decode = 0, anchor = 0, previous = 0, placed = 0;
    for (std::uint32_t e = 0; e < entries; ++e) {
        const auto count = static_cast<std::int32_t>(Be32(ctts + 8 * e));
        const std::uint32_t shift = static_cast<std::uint32_t>(static_cast<std::int32_t>(Be32(ctts + 8 * e + 4)) / frameDuration);
        for (std::int32_t i = 0; i < count; ++i, ++decode) {
            const std::uint32_t display = shift + decode;
            if (display >= samples) {
                outside.push_back(display);
                continue;
            }
            const std::uint64_t bit = std::uint64_t{1} << (display % 64);
            distinct += (seen[display / 64] & bit) == 0;
            seen[display / 64] |= bit;
            QT::VideoTemporalReference& r = out[display];
            r.mDecodeOffset = static_cast<std::int8_t>(decode - display);
            ++placed;
            const std::uint8_t f = flags[decode];
            out[decode].mDependencyFlags = f;
            if ((f & 0x60) == 0x60) {
                r.mEarlierReferenceOffset = r.mLaterReferenceOffset = 0;
                if (anchor < display) {
                    previous = placed == 1 ? display : anchor;
                    anchor = display;
                }
            } else if (f & 0x40) {
                if (anchor < display) {
                    previous = anchor;
                    anchor = display;
                }
                r.mEarlierReferenceOffset = static_cast<std::int8_t>(previous - display);
                r.mLaterReferenceOffset = 0;
            } else if (f & 0x08) {
                r.mEarlierReferenceOffset = static_cast<std::int8_t>(previous - display);
                r.mLaterReferenceOffset = static_cast<std::int8_t>(anchor - display);
            } else {
                return false;
            }
        }
    }
    std::sort(outside.begin(), outside.end());
    return distinct + (std::unique(outside.begin(), outside.end()) - outside.begin()) >= samples;
}

std::uint32_t EditSampleCount(const Movie& movie, const Track& t, const Edit& edit)
{
    // The edit's media time passes through the conversion from the movie's time scale.
    const std::uint32_t editStart = Rescale(edit.mediaTime, movie.movieScale, Be32(t.mdhd + 20));
    const std::uint8_t* stts = t.stts + 16;
    const std::uint32_t entries = Be32(t.stts + 12);
    const std::uint32_t limit = edit.duration + edit.mediaTime;
    std::uint32_t elapsed = 0, total = 0;
    for (std::uint32_t i = 0; i < entries && elapsed < limit; ++i) {
        std::uint32_t n = Be32(stts + 8 * i);
        const std::uint32_t d = Be32(stts + 8 * i + 4);
        std::uint32_t span = n * d;
        if (edit.mediaTime && elapsed < editStart && elapsed + span > editStart) {
            span -= editStart;
            n -= edit.firstSample;
        }
        if (elapsed + span > limit) {
            n -= (span - (limit - elapsed)) / d;
            span = limit - elapsed;
        }
        elapsed += span;
        total += n;
    }
    return total;
}

void AudioRangeMap(const Track& t, const Edit& edit, std::uint64_t bytesPerFrame, bool keyByOffset,
                   QT::AudioSampleRangeMap& out)
{
    const std::uint64_t total = Be32(t.stts + 16);
    const std::uint64_t start = edit.firstSample, end = std::uint64_t{edit.firstSample} + edit.duration;
    const bool wide = t.co64 != nullptr;
    const std::uint8_t* chunkTable = (wide ? t.co64 : t.stco) + 16;
    const std::uint32_t chunks = Be32((wide ? t.co64 : t.stco) + 12);
    const std::uint8_t* stsc = t.stsc + 16;
    const std::uint32_t entries = Be32(t.stsc + 12);
    std::uint64_t position = 0, chunk = 0, outputPosition = 0, seen = 0;
    for (std::uint32_t e = 0; e < entries && chunk < chunks; ++e) {
        const std::uint64_t run = e + 1 < entries ? Be32(stsc + 12 * (e + 1)) - Be32(stsc + 12 * e) : chunks - seen;
        seen += run;
        const std::uint64_t perChunk = Be32(stsc + 12 * e + 4);
        for (std::uint64_t k = 0; k < run && chunk < chunks; ++k, ++chunk) {
            const std::uint64_t chunkEnd = position + perChunk;
            if (chunkEnd >= start && position <= end) {
                std::uint64_t offset = wide ? Be64(chunkTable + 8 * chunk) : Be32(chunkTable + 4 * chunk);
                std::uint64_t frames = perChunk;
                if (start > position) {
                    frames -= start - position;
                    offset += (start - position) * bytesPerFrame;
                }
                if (chunkEnd > end) frames = end - std::max(position, start);
                if (frames) {
                    out.emplace_hint(out.end(), keyByOffset ? offset : outputPosition,
                                     QT::AudioSampleRange{frames, outputPosition, offset});
                    outputPosition += frames;
                }
            }
            position = chunkEnd;
        }
        if (position >= total) break;
    }
}

void CaptionTable(const Track& t, const Edit& edit, bool keyByOffset, QT::CaptionSampleMap& out)
{
    const std::uint8_t* stts = t.stts + 16;
    const std::uint32_t constantSize = Be32(t.stsz + 12);
    const std::uint8_t* sizes = t.stsz + 20;
    const std::uint64_t samples = Be32(t.stsz + 16);
    const bool wide = t.co64 != nullptr;
    const std::uint8_t* chunkTable = (wide ? t.co64 : t.stco) + 16;
    const std::uint32_t chunks = Be32((wide ? t.co64 : t.stco) + 12);
    const std::uint8_t* stsc = t.stsc + 16;
    const std::uint32_t entries = Be32(t.stsc + 12);

    // The start of the edit's first sample on the time line.
    std::uint64_t endTime = edit.duration;
    for (std::uint32_t i = 0, before = edit.firstSample; before != 0; ++i) {
        const std::uint32_t n = std::min(Be32(stts + 8 * i), before);
        endTime += std::uint64_t{n} * Be32(stts + 8 * i + 4);
        before -= n;
    }
    std::uint32_t sttsIndex = 0, sttsLeft = Be32(stts), duration = Be32(stts + 4);
    std::uint64_t time = 0, sample = 0;
    std::uint32_t entry = 0;
    for (std::uint32_t c = 0; c < chunks && sample < samples; ++c) {
        if (entry + 1 < entries && Be32(stsc + 12 * (entry + 1)) == c + 1) ++entry;
        const std::uint32_t perChunk = Be32(stsc + 12 * entry + 4);
        std::uint64_t position = wide ? Be64(chunkTable + 8 * c) : Be32(chunkTable + 4 * c);
        for (std::uint32_t k = 0; k < perChunk && sample < samples; ++k, ++sample) {
            const std::uint32_t size = constantSize ? constantSize : Be32(sizes + 4 * sample);
            if (sample >= edit.firstSample && time <= endTime && size > 8) {
                out.emplace_hint(out.end(), keyByOffset ? position + 8 : time,
                                 QT::CaptionSampleRecord{time, position + 8, size - 8, false, 0, 0});
            }
            position += size;
            time += duration;
            if (--sttsLeft == 0 && ++sttsIndex < Be32(t.stts + 12)) {
                sttsLeft = Be32(stts + 8 * sttsIndex);
                duration = Be32(stts + 8 * sttsIndex + 4);
            }
        }
    }
}

} // namespace bench::plain
