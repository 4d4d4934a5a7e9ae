// The real movies in the test data, with what an independent parser read from them.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include <nlohmann/json.hpp>

#include "Tests/Support/MovieBuilder.h"

namespace testsupport {

inline std::filesystem::path CorpusDir() { return TestDataDir() / "corpus"; }

inline std::filesystem::path CorpusMovie(const std::string& name) { return CorpusDir() / (name + ".mov"); }

// The independent parser's report (streams and packets).
inline nlohmann::json Probe(const std::string& name)
{
    std::ifstream in(CorpusDir() / (name + ".ffprobe.json"));
    return nlohmann::json::parse(in);
}

inline std::string ReadCorpusText(const std::string& name, const std::string& suffix)
{
    const Bytes b = ReadFile(CorpusDir() / (name + suffix));
    return std::string(b.begin(), b.end());
}

} // namespace testsupport
