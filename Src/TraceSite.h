// Lines of the "Atomscan" trace category at level 5. A site remembers whether
// tracing is on and asks again only when the trace settings have changed, so
// a disabled site costs one call and a comparison.
#pragma once

#include <atomic>
#include <cstdint>

namespace QT {

class TraceSite {
public:
    constexpr TraceSite() noexcept = default;
    TraceSite(const TraceSite&) = delete;
    TraceSite& operator=(const TraceSite&) = delete;

    // "<thread id> <Atomscan> <5> " and the message, then "\r\n".
    void Emit(const char* message);
    // The same with an unsigned decimal number behind the message.
    void Emit(const char* message, std::uint64_t number);

private:
    bool IsOn();
    void Write(const char* message, const std::uint64_t* number);

    // Plain statics in spirit: a race leaves at worst a stale answer, which
    // the next change of the count replaces.
    std::atomic<int> mLastChangeCount{-1};
    std::atomic<bool> mTraceOn{false};
};

} // namespace QT
