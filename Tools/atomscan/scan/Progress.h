// The progress line of `scan` on standard error, redrawn in place; nothing at
// all when standard error is no terminal.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace atomscan_tool {

class Progress {
public:
    // Draws only when `enabled` (standard error is a terminal).
    explicit Progress(bool enabled);
    ~Progress() { Clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // While the walk runs: entries found so far, at most ten times a second.
    void Walking(std::size_t found);
    // Files done of files found, movies, the rate over the files' sizes and the
    // time left: at the first call, then at most ten times a second.
    void Update(std::size_t done, std::size_t total, std::size_t movies, std::uint64_t bytes);
    // Blanks the line and puts the cursor at its start.
    void Clear();

private:
    void Show(std::string text);

    bool mEnabled;
    std::chrono::steady_clock::time_point mStart, mLastDraw;
    bool mDrawn = false; // the count of files has been shown once
    std::size_t mShownWidth = 0;
};

} // namespace atomscan_tool
