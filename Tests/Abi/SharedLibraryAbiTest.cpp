// The shared library exports its entry points and nothing else. (The atomscan
// command links it as a host does, so the command's tests call each of them.)
#include <cstdio>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(SharedLibrary, ExportsOnlyTheEntryPoints)
{
    // Each defined function, its arguments cut off, once.
    const std::string command = std::string("nm -D --defined-only -C ") + ATOMSCAN_SHARED_LIBRARY +
                                R"( | awk '$2 ~ /^[TW]$/ && $3 !~ /^_(init|fini)$/ { sub(/^[^ ]+ [^ ]+ /, "");)"
                                R"( sub(/\(.*/, ""); print }' | sort -u)";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    ASSERT_TRUE(pipe);
    std::string names;
    for (char line[4096]; std::fgets(line, sizeof line, pipe.get());) names += line;
    EXPECT_EQ(names, "QT::GetAllExternalReferences\nQT::GetExternalReferences\nQT::MakeFixer\nQT::MakeParser\n"
                     "QT::ValidateExternalReferences\n");
}

} // namespace
