#include "ToolRunner.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace tooltest {

namespace {

std::string ReadAll(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

ToolResult RunTool(const std::vector<std::string>& args)
{
    // Output goes to files, so neither stream can fill a pipe and stall the program.
    char dirTemplate[] = "/tmp/atomscan-tool-XXXXXX";
    const char* dir = ::mkdtemp(dirTemplate);
    if (dir == nullptr) return {};
    const std::filesystem::path outPath = std::filesystem::path(dir) / "out";
    const std::filesystem::path errPath = std::filesystem::path(dir) / "err";

    std::vector<std::string> argv = {ATOMSCAN_TOOL};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> pointers;
    for (std::string& a : argv) pointers.push_back(a.data());
    pointers.push_back(nullptr);

    ToolResult result;
    const pid_t pid = ::fork();
    if (pid == 0) {
        const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (out < 0 || err < 0) ::_exit(127);
        ::dup2(out, 1);
        ::dup2(err, 2);
        ::execv(pointers[0], pointers.data());
        ::_exit(127);
    }
    int status = 0;
    if (pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    result.out = ReadAll(outPath);
    result.err = ReadAll(errPath);
    std::filesystem::remove_all(dir);
    return result;
}

nlohmann::json ParseOut(const ToolResult& result)
{
    try {
        return nlohmann::json::parse(result.out);
    } catch (const std::exception& e) {
        ADD_FAILURE() << "not JSON: " << e.what() << "\n" << result.out.substr(0, 2000);
        return nullptr;
    }
}

} // namespace tooltest
