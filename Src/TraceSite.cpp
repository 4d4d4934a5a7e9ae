#include "Src/TraceSite.h"

#include <sstream>
#include <string>

#include "vellum/vellum.h"

namespace QT {

namespace {

constexpr const char* kTraceCategory = "Atomscan";
constexpr int kTraceLevel = 5;

} // namespace

bool TraceSite::IsOn()
{
    const int count = vellum::debug::TraceChangeCount();
    const int previous = mLastChangeCount.exchange(count, std::memory_order_relaxed);
    if (count != previous) {
        mTraceOn.store(vellum::debug::TraceEnabled(kTraceCategory, kTraceLevel, true), std::memory_order_relaxed);
    }
    return mTraceOn.load(std::memory_order_relaxed);
}

void TraceSite::Emit(const char* message)
{
    if (IsOn()) Write(message, nullptr);
}

void TraceSite::Emit(const char* message, std::uint64_t number)
{
    if (IsOn()) Write(message, &number);
}

void TraceSite::Write(const char* message, const std::uint64_t* number)
{
    std::ostringstream line;
    line << '<' << vellum::threads::GetCurrentThreadID() << "> " << '<' << kTraceCategory << "> " << '<' << kTraceLevel
         << "> " << message;
    if (number) line << *number;
    line << "\r\n";
    line.flush();
    const std::string text = line.str();
    vellum::debug::Trace(text.c_str());
}

} // namespace QT
