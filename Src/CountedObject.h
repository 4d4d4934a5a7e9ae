// Reference counting, the interface query and the counted-interface pattern
// shared by the four classes behind the interfaces.
#pragma once

#include <atomic>
#include <cstdint>

#include "Inc/AtomscanTypes.h"

namespace QT {

// Answers QueryInterface for the one identifier of the class.
inline ResultCode QueryOne(TesselUnknown* self, const TesselIID& known, const TesselIID& id, void** out)
{
    if (id == known) {
        *out = self;
        return kResultSuccess;
    }
    *out = nullptr;
    return kResultNoInterface;
}

// Atomic use count: Release at zero deletes the object.
class RefCount {
public:
    void Add() noexcept { mCount.fetch_add(1, std::memory_order_relaxed); }
    // True when the count reached zero.
    bool Drop() noexcept { return mCount.fetch_sub(1, std::memory_order_acq_rel) == 1; }
    std::uint32_t Value() const noexcept { return mCount.load(std::memory_order_relaxed); }

private:
    std::atomic<std::uint32_t> mCount{0};
};

// Hands a freshly made object (held once by `local`) out as interface `I`:
// a second reference goes to the result through QueryInterface, then the
// local one is released, leaving the result with a count of 1.
template <typename I, typename C>
Tessel::InterfaceRef<I> HandOut(Tessel::InterfaceRef<C>& local, const TesselIID& id)
{
    Tessel::InterfaceRef<I> target;
    if (!local) throw Tessel::NullInterfaceException();
    local->AddRef();
    void* tmp = nullptr;
    if (local->QueryInterface(id, &tmp) == kResultSuccess && tmp) {
        target = Tessel::InterfaceRef<I>::Adopt(static_cast<I*>(static_cast<TesselUnknown*>(tmp)));
    } else {
        if (tmp) static_cast<TesselUnknown*>(tmp)->Release();
        local->Release();
    }
    local.Clear();
    return target;
}

} // namespace QT
