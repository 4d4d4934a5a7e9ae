// Writes the seed corpus of the fuzz targets into a folder: the head and the
// movie atom of every real movie in the test data (without the media, so
// inputs stay small), and movies made with the test movie builder.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "Tests/Support/MovieBuilder.h"

using namespace testsupport;

namespace {

void Write(const std::filesystem::path& dir, const std::string& name, const Bytes& bytes)
{
    std::ofstream out(dir / name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::uint32_t Be32(const Bytes& b, std::size_t at)
{
    return (std::uint32_t{b[at]} << 24) | (std::uint32_t{b[at + 1]} << 16) | (std::uint32_t{b[at + 2]} << 8) | b[at + 3];
}

// The top-level atoms of `file` with every `mdat` emptied (its header kept).
Bytes WithoutMedia(const Bytes& file)
{
    Bytes out;
    std::size_t at = 0;
    while (at + 8 <= file.size()) {
        std::uint64_t size = Be32(file, at);
        const bool mdat = Be32(file, at + 4) == QT::MakeFourCC("mdat");
        if (size == 1 && at + 16 <= file.size())
            size = (std::uint64_t{Be32(file, at + 8)} << 32) | Be32(file, at + 12);
        if (size == 0 || size > file.size() - at) size = file.size() - at;
        if (size < 8) break;
        if (mdat) {
            ByteWriter w;
            w.U32(8).Code("mdat");
            Bytes h = w.Take();
            out.insert(out.end(), h.begin(), h.end());
        } else {
            out.insert(out.end(), file.begin() + static_cast<std::ptrdiff_t>(at),
                       file.begin() + static_cast<std::ptrdiff_t>(at + size));
        }
        at += size;
    }
    return out;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seeds OUTPUT_DIR\n");
        return 2;
    }
    const std::filesystem::path dir = argv[1];
    std::filesystem::create_directories(dir);
    for (const auto& entry : std::filesystem::directory_iterator(TestDataDir() / "corpus")) {
        if (entry.path().extension() != ".mov") continue;
        Write(dir, entry.path().stem().string() + ".mov", WithoutMedia(ReadFile(entry.path())));
    }

    MoviePlan basic;
    Write(dir, "built-minimal.mov", BuildMovieFile(basic));

    MoviePlan av;
    av.tracks[0].width = 640;
    av.tracks[0].height = 480;
    av.tracks[0].stts = {{4, 100}};
    av.tracks[0].stsc = {{1, 2, 1}, {2, 1, 1}};
    av.tracks[0].stszSizes = {10, 20, 30, 40};
    av.tracks[0].stco = {100, 200, 300};
    av.tracks[0].stss = std::vector<std::uint32_t>{1, 3};
    av.tracks[0].edits = std::vector<std::array<std::uint32_t, 3>>{{300, 50, 0x10000}};
    TrackPlan sound;
    sound.mediaType = "soun";
    sound.stts = {{1000, 1}};
    sound.stsc = {{1, 500, 1}};
    sound.stszConstant = 2;
    sound.stszSizes = std::vector<std::uint32_t>(1000, 2);
    sound.stco = {400, 1400};
    av.tracks.push_back(sound);
    TrackPlan tc;
    tc.mediaType = "tmcd";
    av.tracks.push_back(tc);
    Write(dir, "built-av.mov", BuildMovieFile(av, Bytes(64, 0)));

    MoviePlan wide;
    wide.tracks[0].co64 = std::vector<std::uint64_t>{0x100000000ull};
    Write(dir, "built-co64.mov", BuildMovieFile(wide));
    return 0;
}
