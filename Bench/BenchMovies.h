// The synthetic movies that the benchmarks open, written once at start-up.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace bench {

enum class Kind { kVideo, kTemporal, kAudio, kCaption, kTracks };

struct BenchMovie {
    std::string name;
    Kind kind;
    std::uint32_t items;      // samples, chunks (audio) or tracks
    std::uint64_t moovOffset; // where the movie atom lies in the file
    std::uint64_t moovSize;
    std::filesystem::path path;
};

// The set of movies, with their names and item counts; paths inside `dir`.
std::vector<BenchMovie> MovieSet(const std::filesystem::path& dir);

// Writes every movie of the set that is not in `dir` yet, and fills in the
// place of each movie atom. Returns the set.
std::vector<BenchMovie> WriteMovies(const std::filesystem::path& dir);

} // namespace bench
