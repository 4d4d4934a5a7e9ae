#include "vellum.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include <sys/syscall.h>
#include <unistd.h>

namespace vellum {

namespace utility {

namespace {

constexpr std::size_t kGranule = 16;
constexpr std::size_t kMaxSmallBlock = 256;
constexpr std::size_t kClasses = kMaxSmallBlock / kGranule;

struct FreeBlock {
    FreeBlock* next;
};

// Per-thread free lists: a block freed on another thread simply joins that
// thread's list, which is sound because every block of a class has one size.
struct FreeLists {
    FreeBlock* heads[kClasses] = {};
    ~FreeLists()
    {
        for (FreeBlock*& head : heads) {
            while (head) {
                FreeBlock* next = head->next;
                ::operator delete(head);
                head = next;
            }
        }
    }
};

thread_local FreeLists tFreeLists;

std::size_t ClassOf(std::size_t size) { return (size + kGranule - 1) / kGranule - 1; }

} // namespace

void* SmallBlockAllocatorBase::Allocate(std::size_t size)
{
    if (size == 0) size = 1;
    if (size > kMaxSmallBlock) return ::operator new(size);
    const std::size_t cls = ClassOf(size);
    if (FreeBlock* block = tFreeLists.heads[cls]) {
        tFreeLists.heads[cls] = block->next;
        return block;
    }
    return ::operator new((cls + 1) * kGranule);
}

void SmallBlockAllocatorBase::Dispose(void* pointer, std::size_t size) noexcept
{
    if (!pointer) return;
    if (size == 0) size = 1;
    if (size > kMaxSmallBlock) {
        ::operator delete(pointer);
        return;
    }
    auto* block = static_cast<FreeBlock*>(pointer);
    const std::size_t cls = ClassOf(size);
    block->next = tFreeLists.heads[cls];
    tFreeLists.heads[cls] = block;
}

boost::shared_ptr<RecycledMemory> RecycledMemory::Create(std::size_t)
{
    return boost::shared_ptr<RecycledMemory>(new RecycledMemory());
}

RecycledMemory::~RecycledMemory() { std::free(mData); }

void RecycledMemory::Allocate(std::size_t size)
{
    std::free(mData);
    mData = nullptr;
    mSize = 0;
    if (size == 0) return;
    mData = static_cast<std::uint8_t*>(std::malloc(size));
    if (mData) mSize = size;
}

void ToLowerCase(String16& text)
{
    for (char16_t& c : text) {
        if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
        else if ((c >= 0xC0 && c <= 0xDE && c != 0xD7)) c = static_cast<char16_t>(c + 32);
    }
}

String16 UTF8to16(const std::string& text, std::size_t* outErrorPos, std::size_t* outErrorCount)
{
    String16 out;
    out.reserve(text.size());
    std::size_t errors = 0;
    std::size_t firstError = std::string::npos;
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t n = text.size();
    std::size_t i = 0;
    while (i < n) {
        const unsigned char c = s[i];
        std::uint32_t cp = 0;
        std::size_t len = 0;
        if (c < 0x80) { cp = c; len = 1; }
        else if ((c & 0xE0) == 0xC0) { cp = c & 0x1F; len = 2; }
        else if ((c & 0xF0) == 0xE0) { cp = c & 0x0F; len = 3; }
        else if ((c & 0xF8) == 0xF0) { cp = c & 0x07; len = 4; }
        bool ok = len != 0 && len <= n - i;
        for (std::size_t k = 1; ok && k < len; ++k) {
            if ((s[i + k] & 0xC0) != 0x80) ok = false;
            else cp = (cp << 6) | (s[i + k] & 0x3F);
        }
        static constexpr std::uint32_t kMin[5] = {0, 0, 0x80, 0x800, 0x10000};
        if (ok && (cp < kMin[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))) ok = false;
        if (!ok) {
            if (firstError == std::string::npos) firstError = i;
            ++errors;
            out.push_back(u'\uFFFD');
            ++i;
            continue;
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(cp));
        }
        i += len;
    }
    if (outErrorPos) *outErrorPos = firstError;
    if (outErrorCount) *outErrorCount = errors;
    return out;
}

String16 AsciiToUTF16(const char* text, std::size_t length)
{
    String16 out;
    if (!text) return out;
    out.reserve(length);
    for (std::size_t i = 0; i < length; ++i) out.push_back(static_cast<unsigned char>(text[i]));
    return out;
}

std::string UTF16to8(const String16& text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint32_t cp = text[i];
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (cp >= 0xD800 && cp <= 0xDFFF) {
            cp = 0xFFFD;
        }
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }
    return out;
}

} // namespace utility

namespace threads {

std::uint32_t GetCurrentThreadID() { return static_cast<std::uint32_t>(::syscall(SYS_gettid)); }

RecursiveMutex::RecursiveMutex() : mImpl(new std::recursive_mutex) {}
RecursiveMutex::~RecursiveMutex() { delete static_cast<std::recursive_mutex*>(mImpl); }
void RecursiveMutex::Lock(const char*) { static_cast<std::recursive_mutex*>(mImpl)->lock(); }
void RecursiveMutex::Unlock() { static_cast<std::recursive_mutex*>(mImpl)->unlock(); }

} // namespace threads

namespace debug {

namespace {

struct TraceState {
    std::mutex mutex;
    std::map<std::string, int> levels;
    std::function<void(const std::string&)> sink;
};

TraceState& State()
{
    static TraceState* state = new TraceState; // lives to process exit
    return *state;
}

std::atomic<int> gTraceChangeCount{1};

struct ContractSite {
    const char* condition = "";
    const char* file = "";
    const char* function = "";
    int line = 0;
};
thread_local ContractSite tLastContract;

} // namespace

int TraceChangeCount() { return gTraceChangeCount.load(std::memory_order_acquire); }

bool TraceEnabled(const char* category, int level, bool)
{
    TraceState& st = State();
    std::lock_guard<std::mutex> lock(st.mutex);
    auto it = st.levels.find(category ? category : "");
    return it != st.levels.end() && level <= it->second;
}

void Trace(const char* text)
{
    TraceState& st = State();
    std::function<void(const std::string&)> sink;
    {
        std::lock_guard<std::mutex> lock(st.mutex);
        sink = st.sink;
    }
    if (sink) sink(text ? text : "");
    else std::fputs(text ? text : "", stderr);
}

void SetTraceLevel(const std::string& category, int level)
{
    TraceState& st = State();
    {
        std::lock_guard<std::mutex> lock(st.mutex);
        st.levels[category] = level;
    }
    gTraceChangeCount.fetch_add(1, std::memory_order_acq_rel);
}

void ClearTraceLevels()
{
    TraceState& st = State();
    {
        std::lock_guard<std::mutex> lock(st.mutex);
        st.levels.clear();
    }
    gTraceChangeCount.fetch_add(1, std::memory_order_acq_rel);
}

void SetTraceSink(std::function<void(const std::string&)> sink)
{
    TraceState& st = State();
    std::lock_guard<std::mutex> lock(st.mutex);
    st.sink = std::move(sink);
}

bool BreakAfterContractDialog(const char*, const char*, const char*, int) { return false; }

bool IsDebuggerAttached() { return false; }

void ContractFailed(const char* condition, const char* file, const char* function, int line)
{
    if (BreakAfterContractDialog(condition, file, function, line) && IsDebuggerAttached()) __builtin_trap();
    tLastContract = ContractSite{condition, file, function, line};
    config::ReplacementValue v1, v2, v3, v4;
    config::ThrowError(0, "$$$/vellum/utility/Error/Contract/InputContractViolation=An input contract violation has occurred!",
                       105, 25, true, v1, v2, v3, v4);
}

} // namespace debug

namespace config {

Error::Error(std::string message, std::string condition, std::string file, std::string function, int line)
    : mMessage(std::move(message)), mCondition(std::move(condition)), mFile(std::move(file)),
      mFunction(std::move(function)), mLine(line)
{
}

void ThrowError(int, const char* message, int, int, bool, const ReplacementValue&, const ReplacementValue&,
                const ReplacementValue&, const ReplacementValue&)
{
    const auto& site = debug::tLastContract;
    Error error(message ? message : "", site.condition, site.file, site.function, site.line);
    debug::tLastContract = {};
    throw error;
}

} // namespace config

} // namespace vellum
