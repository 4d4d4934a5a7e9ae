// Stand-in for the vellum core-services library: allocators, strings,
// threads, trace, the contract check and the volume change notice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <new>
#include <string>

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#define VELLUM_API __attribute__((visibility("default")))

namespace vellum {

namespace utility {

// Fixed-size-block allocator behind every string of the system. Blocks of up
// to kMaxSmallBlock bytes come from per-size free lists; larger ones from the heap.
class VELLUM_API SmallBlockAllocatorBase {
public:
    static void* Allocate(std::size_t size);
    static void Dispose(void* pointer, std::size_t size) noexcept;
};

template <typename T>
class SmallBlockAllocator {
public:
    using value_type = T;
    SmallBlockAllocator() noexcept = default;
    template <typename U>
    SmallBlockAllocator(const SmallBlockAllocator<U>&) noexcept {}
    T* allocate(std::size_t n)
    {
        if (n > static_cast<std::size_t>(-1) / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(SmallBlockAllocatorBase::Allocate(n * sizeof(T)));
    }
    void deallocate(T* p, std::size_t n) noexcept { SmallBlockAllocatorBase::Dispose(p, n * sizeof(T)); }
    template <typename U>
    bool operator==(const SmallBlockAllocator<U>&) const noexcept { return true; }
};

// The 16-bit string of every path and exported signature.
using String16 = std::basic_string<char16_t, std::char_traits<char16_t>, SmallBlockAllocator<char16_t>>;

// A buffer object handed out through a shared pointer.
class VELLUM_API RecycledMemory {
public:
    static boost::shared_ptr<RecycledMemory> Create(std::size_t reserve);
    ~RecycledMemory();
    RecycledMemory(const RecycledMemory&) = delete;
    RecycledMemory& operator=(const RecycledMemory&) = delete;

    // Gives the block `size` bytes; the data pointer stays null if that fails.
    void Allocate(std::size_t size);
    std::uint8_t* Data() const noexcept { return mData; }
    std::size_t Size() const noexcept { return mSize; }

private:
    RecycledMemory() = default;
    std::uint8_t* mData = nullptr;
    std::size_t mSize = 0;
};

VELLUM_API void ToLowerCase(String16& inOutText);
// UTF-8 to 16-bit units; malformed sequences become U+FFFD. The two out
// pointers (error position, error count) may be null.
VELLUM_API String16 UTF8to16(const std::string& text, std::size_t* outErrorPos, std::size_t* outErrorCount);
// Each byte becomes one 16-bit unit.
VELLUM_API String16 AsciiToUTF16(const char* text, std::size_t length);
// 16-bit units to UTF-8; unpaired surrogates become U+FFFD.
VELLUM_API std::string UTF16to8(const String16& text);

} // namespace utility

namespace threads {

VELLUM_API std::uint32_t GetCurrentThreadID();

class VELLUM_API RecursiveMutex {
public:
    RecursiveMutex();
    ~RecursiveMutex();
    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;
    void Lock(const char* name = nullptr);
    void Unlock();

private:
    void* mImpl;
};

} // namespace threads

namespace debug {

// Changes whenever the trace settings change, so trace sites can cache.
VELLUM_API int TraceChangeCount();
VELLUM_API bool TraceEnabled(const char* category, int level, bool flag);
VELLUM_API void Trace(const char* text);

// Host side of the trace facility: enable a category up to a level, and
// receive the lines. Without a sink, lines go to standard error.
VELLUM_API void SetTraceLevel(const std::string& category, int level);
VELLUM_API void ClearTraceLevels();
VELLUM_API void SetTraceSink(std::function<void(const std::string&)> sink);

VELLUM_API bool BreakAfterContractDialog(const char* condition, const char* file, const char* function, int line);
VELLUM_API bool IsDebuggerAttached();

[[noreturn]] VELLUM_API void ContractFailed(const char* condition, const char* file, const char* function, int line);

} // namespace debug

namespace config {

class VELLUM_API ReplacementValue {
public:
    ReplacementValue() = default;
    std::string mText;
};

// The error every contract failure ends in.
class VELLUM_API Error : public std::exception {
public:
    Error(std::string message, std::string condition, std::string file, std::string function, int line);
    const char* what() const noexcept override { return mMessage.c_str(); }
    const std::string& Condition() const noexcept { return mCondition; }
    const std::string& File() const noexcept { return mFile; }
    const std::string& Function() const noexcept { return mFunction; }
    int Line() const noexcept { return mLine; }

private:
    std::string mMessage, mCondition, mFile, mFunction;
    int mLine;
};

// Does not return: throws `Error` carrying the message and the last contract
// failure's condition, file, function and line.
[[noreturn]] VELLUM_API void ThrowError(int level, const char* message, int code1, int code2, bool flag,
                                        const ReplacementValue& v1, const ReplacementValue& v2,
                                        const ReplacementValue& v3, const ReplacementValue& v4);

} // namespace config

namespace filesupport {

using VolumeChangedCallback = boost::shared_ptr<boost::function<void()>>;

// Tells its callbacks, on a thread of its own, that a volume came or went.
// The thread watches the mount table from the first Initialize to the
// Terminate that balances it.
class VELLUM_API DirectoryChangeMonitor {
public:
    static void Initialize();
    static void Terminate();
    static void MonitorVolumeChanges(const VolumeChangedCallback& callback);
    // Once this returns, the callback runs no more: a run in progress on
    // another thread is waited for.
    static void RemoveVolumeChangedCallback(const VolumeChangedCallback& callback);
    // For tests: run every registered callback now, on the calling thread.
    static void NotifyVolumeChange();
    // For tests: have the monitor thread run the callbacks as after a real
    // change. Does nothing while not initialised.
    static void PostVolumeChange();
    // For tests: whether the monitor thread is running.
    static bool IsMonitoring();
};

} // namespace filesupport

} // namespace vellum

// Contract check at the head of an operation. `function` is the full name.
#define VELLUM_CONTRACT(condition, function)                                           \
    do {                                                                               \
        if (!(condition)) ::vellum::debug::ContractFailed(#condition, __FILE__, function, __LINE__); \
    } while (0)
