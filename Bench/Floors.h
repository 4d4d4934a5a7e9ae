// The same-work floors: plain loops over the tables of a well-formed movie
// atom, without a single check, that write the same records as the library's
// table operations. What is left between the library and these is the price
// of reading only what is proven inside the copy, of the rules for damaged
// tables, and of the library's own structure.
#pragma once

#include <cstdint>
#include <vector>

#include "Inc/QTAudioRecords.h"
#include "Inc/QTCaption.h"
#include "Inc/QTVideoRecords.h"

namespace bench::plain {

// One track's atoms, by the place of their headers in the copy; null where absent.
struct Track {
    const std::uint8_t *tkhd = nullptr, *elst = nullptr, *mdhd = nullptr, *hdlr = nullptr;
    const std::uint8_t *stts = nullptr, *stss = nullptr, *stsc = nullptr, *stsz = nullptr;
    const std::uint8_t *stco = nullptr, *co64 = nullptr, *ctts = nullptr, *sdtp = nullptr;
    std::uint32_t Handler() const;
};

struct Movie {
    std::uint32_t movieScale = 0;
    std::vector<Track> tracks;
};

// The tracks of the movie atom at `moov`, found by stepping through its tree.
Movie Walk(const std::uint8_t* moov);
// The first track of `handler` (`vide`, `soun`, ...); null if none.
const Track* FirstOf(const Movie& movie, std::uint32_t handler);

// The single edit in media units: where it starts, how long it is, and the
// first sample it shows with the part of it that is shown. Without an edit,
// the track's duration from the start.
struct Edit {
    std::uint32_t mediaTime = 0, duration = 0, firstSample = 0, firstSampleDuration = 0;
};
Edit EditOf(const Movie& movie, const Track& track);

// Reads the movie atom of `path` (at `offset`, `size` bytes) into memory
// allocated for it, once.
struct Copy {
    std::uint8_t* data = nullptr;
    ~Copy();
};
void ReadMovieAtom(const char* path, std::uint64_t offset, std::uint64_t size, Copy& out);

// The frame table, with the edit: stsz, stco or co64, stsc, stts and stss walked
// side by side, each record written once into a table reserved once.
void FrameTable(const Track& track, const Edit& edit, std::vector<QT::VideoSampleRecord>& out);
// Read, walk, edit and frame table: the floor of open + full frame table.
void OpenAndFrameTable(const char* path, std::uint64_t offset, std::uint64_t size,
                       std::vector<QT::VideoSampleRecord>& out);

// Frame order and dependencies from ctts, sdtp and the first stts duration;
// false where the display indices do not cover the table.
bool TemporalTable(const Track& track, std::vector<QT::VideoTemporalReference>& out);

// The samples that the edit covers, entry by entry of stts.
std::uint32_t EditSampleCount(const Movie& movie, const Track& track, const Edit& edit);

// One range per chunk that the edit touches, trimmed to it.
void AudioRangeMap(const Track& track, const Edit& edit, std::uint64_t bytesPerFrame, bool keyByOffset,
                   QT::AudioSampleRangeMap& out);

// `c708` samples: one record for what follows each sample's 8-byte header.
void CaptionTable(const Track& track, const Edit& edit, bool keyByOffset, QT::CaptionSampleMap& out);

} // namespace bench::plain
