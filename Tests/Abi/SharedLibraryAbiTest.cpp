// The shared library seen from a host: it opens a movie through the exported
// functions and exports nothing but them.
#include <cstdio>
#include <memory>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"

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

} // namespace
