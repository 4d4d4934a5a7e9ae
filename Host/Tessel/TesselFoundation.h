// Stand-in for the TesselFoundation library: files, allocation, exceptions,
// the counted base interface and path helpers.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <exception>
#include <utility>

#include "vellum/vellum.h"

#define TESSEL_API __attribute__((visibility("default")))

// A 128-bit interface identifier, compared byte for byte as it stands in memory.
struct TesselIID {
    std::uint8_t bytes[16];
    bool operator==(const TesselIID& other) const { return std::memcmp(bytes, other.bytes, 16) == 0; }
};

using TesselResult = std::uint32_t;
constexpr TesselResult kTesselNoInterface = 0xa00a0001u;

// Base of every counted interface. Slots in order: AddRef, Release,
// destructor, QueryInterface, GetSelf.
class TesselUnknown {
public:
    virtual void AddRef() = 0;
    virtual void Release() = 0;
    virtual ~TesselUnknown() = default;
    // Result 0 and `*out` the object, or kTesselNoInterface and a null `*out`.
    // Does not add a reference.
    virtual TesselResult QueryInterface(const TesselIID& id, void** out) = 0;
    virtual TesselUnknown* GetSelf() = 0;
};

namespace Tessel {

using String16 = vellum::utility::String16;

class TESSEL_API Exception : public std::exception {
public:
    Exception() = default;
    ~Exception() override;
    const char* what() const noexcept override;
};

class TESSEL_API NullInterfaceException : public Exception {
public:
    NullInterfaceException() = default;
    ~NullInterfaceException() override;
    const char* what() const noexcept override;
};

// Counted reference to one interface. Dereferencing an empty one throws
// NullInterfaceException.
template <typename T>
class InterfaceRef {
public:
    InterfaceRef() noexcept = default;
    // Takes a new reference to `p`.
    explicit InterfaceRef(T* p) noexcept : mPtr(p)
    {
        if (mPtr) mPtr->AddRef();
    }
    InterfaceRef(const InterfaceRef& other) noexcept : InterfaceRef(other.mPtr) {}
    InterfaceRef(InterfaceRef&& other) noexcept : mPtr(std::exchange(other.mPtr, nullptr)) {}
    ~InterfaceRef() { Clear(); }
    InterfaceRef& operator=(InterfaceRef other) noexcept
    {
        std::swap(mPtr, other.mPtr);
        return *this;
    }

    // Takes over a reference that the caller already holds.
    static InterfaceRef Adopt(T* p) noexcept
    {
        InterfaceRef ref;
        ref.mPtr = p;
        return ref;
    }
    // Gives up the reference without releasing it.
    T* Detach() noexcept { return std::exchange(mPtr, nullptr); }

    void Clear() noexcept
    {
        if (T* p = std::exchange(mPtr, nullptr)) p->Release();
    }
    T* Get() const noexcept { return mPtr; }
    T* operator->() const
    {
        if (!mPtr) throw NullInterfaceException();
        return mPtr;
    }
    T& operator*() const
    {
        if (!mPtr) throw NullInterfaceException();
        return *mPtr;
    }
    explicit operator bool() const noexcept { return mPtr != nullptr; }

private:
    T* mPtr = nullptr;
};

class TESSEL_API Allocator {
public:
    static void* Allocate(std::size_t size);
    static void Dispose(void* pointer, std::size_t size) noexcept;
};

using FileAccessFlags = int;
using FileShareModeFlags = int;
using FileCreateDispositionFlags = int;
using FileAttributesFlags = int;
// The values of the flag types.
constexpr FileAccessFlags kFileAccessRead = 1;
constexpr FileAccessFlags kFileAccessWrite = 2;
constexpr FileShareModeFlags kFileShareRead = 1;
constexpr FileShareModeFlags kFileShareWrite = 2;
constexpr FileShareModeFlags kFileShareReadWrite = kFileShareRead | kFileShareWrite;
constexpr FileCreateDispositionFlags kFileOpenExisting = 8;
constexpr FileAttributesFlags kFileAttributesNone = 0; // a normal file, as 1
constexpr FileAttributesFlags kFileAttributesNormal = 1;
enum FilePointerMoveMethod { kFromStart = 0, kFromCurrent = 1, kFromEnd = 2 };

// One open file. The destructor closes it. Results below zero are failures.
class TESSEL_API File {
public:
    File() = default;
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int Create(const String16& path, FileAccessFlags access, FileShareModeFlags share,
               FileCreateDispositionFlags disposition, FileAttributesFlags attributes, bool flag);
    std::uint64_t SizeOnDisk() const;
    // `out` is left untouched on failure.
    static int SizeOnDisk(const String16& path, std::uint64_t& out);
    int Read(void* buffer, std::uint32_t count, std::uint32_t& outRead);
    int Write(const void* buffer, std::uint32_t count, std::uint32_t& outWritten);
    int SetFilePointer(std::int64_t offset, FilePointerMoveMethod method);
    int GetFilePointer(std::int64_t& outPosition) const;
    void Close();
    bool IsOpen() const { return mFd >= 0; }

private:
    int mFd = -1;
};

// The 16-bit string of a NUL-terminated 8-bit text.
TESSEL_API String16 MakeString(const char* text);

// Paths of this platform, with '/' as the separator.
namespace PathUtils {
constexpr char16_t kSeparator = u'/';
// The directory of `path` with its closing separator; empty without one.
TESSEL_API String16 GetFullDirectoryPart(const String16& path);
// The last component of `path`.
TESSEL_API String16 GetFullFilePart(const String16& path);
TESSEL_API String16 AddTrailingSlash(const String16& path);
TESSEL_API bool ExistsOnDisk(const String16& path);
} // namespace PathUtils

} // namespace Tessel
