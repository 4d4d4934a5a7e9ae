// Shared ownership with an atomic 32-bit use count.
#pragma once

#include <atomic>
#include <cstdint>
#include <new>
#include <utility>

#include "Tessel/TesselFoundation.h"

namespace QT {

// The count is allocated with Tessel::Allocator; the holder that brings it
// to zero deletes the object and disposes of the count.
template <typename T>
class CountedPtr {
public:
    CountedPtr() noexcept = default;
    // Takes ownership of `object`; deletes it if the count cannot be allocated.
    explicit CountedPtr(T* object)
    {
        if (!object) return;
        void* raw = nullptr;
        try {
            raw = Tessel::Allocator::Allocate(sizeof(Count));
        } catch (...) {
            delete object;
            throw;
        }
        mCount = new (raw) Count(1);
        mObject = object;
    }
    CountedPtr(const CountedPtr& other) noexcept : mCount(other.mCount), mObject(other.mObject)
    {
        if (mCount) mCount->fetch_add(1, std::memory_order_relaxed);
    }
    CountedPtr(CountedPtr&& other) noexcept
        : mCount(std::exchange(other.mCount, nullptr)), mObject(std::exchange(other.mObject, nullptr)) {}
    ~CountedPtr() { Reset(); }
    CountedPtr& operator=(CountedPtr other) noexcept
    {
        std::swap(mCount, other.mCount);
        std::swap(mObject, other.mObject);
        return *this;
    }

    void Reset() noexcept
    {
        Count* count = std::exchange(mCount, nullptr);
        T* object = std::exchange(mObject, nullptr);
        if (count && count->fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete object;
            count->~Count();
            Tessel::Allocator::Dispose(count, sizeof(Count));
        }
    }

    T* Get() const noexcept { return mObject; }
    T* operator->() const noexcept { return mObject; }
    T& operator*() const noexcept { return *mObject; }
    explicit operator bool() const noexcept { return mObject != nullptr; }
    std::uint32_t UseCount() const noexcept { return mCount ? mCount->load(std::memory_order_relaxed) : 0; }

private:
    using Count = std::atomic<std::uint32_t>;
    Count* mCount = nullptr;
    T* mObject = nullptr;
};

} // namespace QT
