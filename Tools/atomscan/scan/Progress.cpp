#include "scan/Progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

namespace atomscan_tool {

Progress::Progress(bool enabled)
    : mEnabled(enabled), mStart(std::chrono::steady_clock::now()), mLastDraw(mStart)
{
}

void Progress::Walking(std::size_t found)
{
    const auto now = std::chrono::steady_clock::now();
    if (!mEnabled || now - mLastDraw < std::chrono::milliseconds(100)) return;
    mLastDraw = now;
    Show("scan: " + std::to_string(found) + " files found");
}

void Progress::Update(std::size_t done, std::size_t total, std::size_t movies, std::uint64_t bytes)
{
    const auto now = std::chrono::steady_clock::now();
    if (!mEnabled || (mDrawn && now - mLastDraw < std::chrono::milliseconds(100))) return;
    mDrawn = true;
    mLastDraw = now;
    const double seconds = std::chrono::duration<double>(now - mStart).count();
    char rate[32];
    std::snprintf(rate, sizeof rate, "%.1f", seconds > 0 ? double(bytes) / 1e6 / seconds : 0.0);
    std::string text = "scan: " + std::to_string(done) + " of " + std::to_string(total) + " files, " +
                       std::to_string(movies) + " movies, " + rate + " MB/s";
    if (done > 0 && done < total) {
        const auto left = static_cast<unsigned long long>(seconds * double(total - done) / double(done));
        char clock[48];
        std::snprintf(clock, sizeof clock, ", %llu:%02llu:%02llu left", left / 3600, left / 60 % 60, left % 60);
        text += clock;
    }
    Show(std::move(text));
}

void Progress::Show(std::string text)
{
    winsize size{};
    const std::size_t columns = ::ioctl(2, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : 80;
    if (text.size() >= columns) text.resize(columns - 1);
    const std::size_t width = text.size();
    if (width < mShownWidth) text.append(mShownWidth - width, ' ');
    std::fprintf(stderr, "\r%s", text.c_str());
    std::fflush(stderr);
    mShownWidth = width;
}

void Progress::Clear()
{
    if (!mEnabled || mShownWidth == 0) return;
    std::fprintf(stderr, "\r%s\r", std::string(mShownWidth, ' ').c_str());
    std::fflush(stderr);
    mShownWidth = 0;
}

} // namespace atomscan_tool
