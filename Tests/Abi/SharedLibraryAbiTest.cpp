// The shared library seen from a host: it opens a movie through the exported
// functions and exports nothing but them.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "Inc/ExternalReferences.h"
#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Inc/IQTMovieFixer.h"

namespace {

std::set<std::string> ExportedFunctions()
{
    std::set<std::string> names;
    const std::string command = std::string("nm -D --defined-only -C ") + ATOMSCAN_SHARED_LIBRARY;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    if (!pipe) return names;
    char line[4096];
    while (std::fgets(line, sizeof line, pipe.get())) {
        std::string s(line);
        if (s.size() < 20) continue;
        const char kind = s[17];
        if (kind != 'T' && kind != 'W') continue;
        std::string name = s.substr(19);
        name.erase(name.find_last_not_of("\n") + 1);
        if (name.rfind("_init", 0) == 0 || name.rfind("_fini", 0) == 0) continue;
        names.insert(name.substr(0, name.find('(')));
    }
    return names;
}

TEST(SharedLibrary, ExportsOnlyTheEntryPoints)
{
    const std::set<std::string> allowed = {"QT::MakeParser", "QT::MakeFixer", "QT::GetExternalReferences",
                                           "QT::GetAllExternalReferences", "QT::ValidateExternalReferences"};
    const std::set<std::string> exported = ExportedFunctions();
    ASSERT_FALSE(exported.empty());
    EXPECT_TRUE(exported.count("QT::MakeParser"));
    EXPECT_TRUE(exported.count("QT::MakeFixer"));
    EXPECT_TRUE(exported.count("QT::GetExternalReferences"));
    EXPECT_TRUE(exported.count("QT::GetAllExternalReferences"));
    EXPECT_TRUE(exported.count("QT::ValidateExternalReferences"));
    for (const std::string& name : exported) EXPECT_TRUE(allowed.count(name)) << "unexpected export: " << name;
}

TEST(SharedLibrary, OpensTheSampleMovie)
{
    auto parser = QT::MakeParser();
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    const std::string path = std::string(ATOMSCAN_TEST_DATA_DIR) + "/corpus/broadcast_2997_tc_c608_aac.mov";
    ASSERT_EQ(parser->OpenMovie(vellum::utility::UTF8to16(path, nullptr, nullptr), movie), 0u);
    EXPECT_EQ(movie->GetTimeScale(), 1000u);
    EXPECT_EQ(movie->GetDuration(), 4004u);
    EXPECT_EQ(movie->GetTrackCount(), 4u);
}

TEST(SharedLibrary, ListsAndValidatesReferences)
{
    auto parser = QT::MakeParser();
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    const std::string path = std::string(ATOMSCAN_TEST_DATA_DIR) + "/corpus/broadcast_2997_tc_c608_aac.mov";
    const QT::String16 path16 = vellum::utility::UTF8to16(path, nullptr, nullptr);
    ASSERT_EQ(parser->OpenMovie(path16, movie), 0u);
    QT::TrackReferenceMap video, audio, timecode;
    QT::GetExternalReferences(movie, video, audio, timecode);
    EXPECT_TRUE(video.empty() && audio.empty() && timecode.empty());
    QT::ExternalReferenceMap references;
    EXPECT_TRUE(QT::GetAllExternalReferences(movie, references));
    EXPECT_TRUE(references.empty());
    // The movie itself, found beside itself by name, doesn't count.
    references.emplace(u"movie", QT::ExtRefData{path16.substr(path16.rfind(u'/') + 1), u"", u"/Gone/movie"});
    EXPECT_FALSE(QT::ValidateExternalReferences(path16, references));
}

std::string Contents(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(SharedLibrary, RepairsADamagedCopy)
{
    const std::filesystem::path corpus = std::filesystem::path(ATOMSCAN_TEST_DATA_DIR) / "corpus";
    const std::filesystem::path copy =
        std::filesystem::temp_directory_path() / ("atomscan-abi-fix-" + std::to_string(::getpid()) + ".mov");
    std::filesystem::copy_file(corpus / "damaged_stco_topbyte_single.mov", copy,
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(QT::MakeFixer()->FixMovie(vellum::utility::UTF8to16(copy.string(), nullptr, nullptr)), 0u);
    EXPECT_EQ(Contents(copy), Contents(corpus / "layout_faststart.mov"));
    std::filesystem::remove(copy);
}

} // namespace
