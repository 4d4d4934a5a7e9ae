// The real movies in the test data, with what an independent parser read from them.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Tests/Support/MovieBuilder.h"

namespace testsupport {

inline std::filesystem::path CorpusDir() { return TestDataDir() / "corpus"; }

inline std::filesystem::path CorpusMovie(const std::string& name) { return CorpusDir() / (name + ".mov"); }

// The names of every corpus movie, sorted.
inline std::vector<std::string> CorpusNames()
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(CorpusDir()))
        if (entry.path().extension() == ".mov") names.push_back(entry.path().stem().string());
    std::sort(names.begin(), names.end());
    return names;
}

// The independent parser's report (streams and packets).
inline nlohmann::json Probe(const std::string& name)
{
    std::ifstream in(CorpusDir() / (name + ".ffprobe.json"));
    return nlohmann::json::parse(in);
}

} // namespace testsupport
