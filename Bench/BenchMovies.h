// The synthetic movies that the benchmarks open, written once at start-up.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace bench {

enum class Kind { kFrames, kAudio, kCaption, kTracks };

// How the video of a frames movie is stored. Every frames movie has 60 fps
// video with sizes of their own, a key frame every 30, `ctts` and `sdtp`, one
// edit that leaves out two frames at each end, and a 16-bit audio track whose
// chunks lie between the video chunks.
struct FrameShape {
    std::uint32_t perChunk = 1;    // frames per chunk
    std::uint32_t stscRuns = 1;    // `stsc` entries, each a run of as many chunks
    bool varyingDurations = false; // an `stts` entry every 2 to 5 frames, else one entry
    bool co64 = true;              // else `stco`
    bool moovLast = false;         // the movie atom behind the media, else in front
};

struct BenchMovie {
    std::string name;
    Kind kind;
    std::uint32_t items; // frames, chunks (audio), samples (captions) or tracks
    FrameShape shape;
    std::uint64_t moovOffset = 0; // where the movie atom lies in the file
    std::uint64_t moovSize = 0;
    std::filesystem::path path;
};

// The set of movies, with their names and item counts; paths inside `dir`.
std::vector<BenchMovie> MovieSet(const std::filesystem::path& dir);

// Writes every movie of the set that is not in `dir` yet, and fills in the
// place of each movie atom. Returns the set.
std::vector<BenchMovie> WriteMovies(const std::filesystem::path& dir);

} // namespace bench
