// atomscan: what a movie holds, from the command line.
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"

namespace {

QT::String16 ToString16(const std::string& s) { return vellum::utility::UTF8to16(s, nullptr, nullptr); }

int Info(const std::vector<std::string>& paths)
{
    int status = 0;
    for (const std::string& path : paths) {
        auto parser = QT::MakeParser();
        Tessel::InterfaceRef<QT::IQTMovie> movie;
        const QT::ResultCode rc = parser->OpenMovie(ToString16(path), movie);
        if (rc != QT::kResultSuccess) {
            std::fprintf(stderr, "atomscan: %s: cannot open movie (0x%08x)\n", path.c_str(), rc);
            status = 1;
            continue;
        }
        std::printf("%s\n", path.c_str());
        std::printf("  time scale       %u\n", movie->GetTimeScale());
        std::printf("  duration         %u\n", movie->GetDuration());
        std::printf("  movie atom size  %llu\n", static_cast<unsigned long long>(movie->GetMovieAtomSize()));
        std::printf("  tracks           %u\n", movie->GetTrackCount());
    }
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"atomscan: read QuickTime movies"};
    app.require_subcommand(1);
    std::vector<std::string> infoPaths;
    CLI::App* info = app.add_subcommand("info", "A readable summary of each movie");
    info->add_option("MOVIE", infoPaths, "Movie files")->required();
    CLI11_PARSE(app, argc, argv);
    try {
        if (*info) return Info(infoPaths);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "atomscan: %s\n", e.what());
        return 1;
    }
    return 0;
}
