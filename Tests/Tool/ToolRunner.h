// Runs the built atomscan program and collects what it printed.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace tooltest {

struct ToolResult {
    int exitCode = -1; // -1 when the program did not exit normally
    std::string out;
    std::string err;
};

ToolResult RunTool(const std::vector<std::string>& args);

// The standard output parsed as JSON; a failed test and null when it is not JSON.
nlohmann::json ParseOut(const ToolResult& result);

} // namespace tooltest
