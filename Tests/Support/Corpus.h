// The real movies in the test data, with what an independent parser read from them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

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

// The packets that the independent parser lists for one stream, in file order.
struct ProbePacket {
    std::int64_t pts = 0;
    std::uint64_t size = 0;
    std::uint64_t pos = 0;
};

inline std::vector<ProbePacket> ProbePackets(const std::string& name, int streamIndex)
{
    const nlohmann::json probe = Probe(name);
    std::vector<ProbePacket> out;
    for (const nlohmann::json& p : probe["packets"]) {
        if (p["stream_index"] != streamIndex) continue;
        out.push_back({p.value("pts", std::int64_t{0}), std::stoull(p["size"].get<std::string>()),
                       std::stoull(p["pos"].get<std::string>())});
    }
    return out;
}

} // namespace testsupport
