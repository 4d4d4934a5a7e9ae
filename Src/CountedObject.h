// The reference counting, the interface query and the making of a counted
// interface, shared by the four classes behind the interfaces.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "Inc/AtomscanTypes.h"

namespace QT {

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

// The head of a class behind `Interface`, whose one identifier is `kId`. The
// slots keep their order: the five of TesselUnknown, those of `Interface`,
// then GetSelfRef, which the class adds on its own. The count is the first field.
template <typename Interface, const TesselIID& kId>
class CountedObject : public Interface {
public:
    static constexpr const TesselIID& kInterfaceId = kId;

    void AddRef() override { mRefCount.Add(); }
    void Release() override
    {
        if (mRefCount.Drop()) delete this;
    }
    // Answers for `kId` alone, without adding a reference.
    ResultCode QueryInterface(const TesselIID& id, void** out) override
    {
        if (id == kId) {
            *out = static_cast<TesselUnknown*>(this);
            return kResultSuccess;
        }
        *out = nullptr;
        return kResultNoInterface;
    }
    TesselUnknown* GetSelf() override { return this; }

    virtual Tessel::InterfaceRef<TesselUnknown> GetSelfRef() { return Tessel::InterfaceRef<TesselUnknown>(GetSelf()); }

protected:
    CountedObject() = default;
    ~CountedObject() override = default;

private:
    RefCount mRefCount;
};

// Making a counted interface, in two steps so that work can come between
// them. First a new object, held once by the result.
template <typename C, typename... Args>
Tessel::InterfaceRef<C> MakeCounted(Args&&... args)
{
    return Tessel::InterfaceRef<C>(new C(std::forward<Args>(args)...));
}

// Then the object as its interface `I`: a second reference goes to the result
// through QueryInterface, and the local one is released, leaving the result
// with a count of 1. A refused query leaves the result empty.
template <typename I, typename C>
Tessel::InterfaceRef<I> HandOut(Tessel::InterfaceRef<C> local)
{
    Tessel::InterfaceRef<I> target;
    if (!local) throw Tessel::NullInterfaceException();
    local->AddRef();
    void* tmp = nullptr;
    if (local->QueryInterface(C::kInterfaceId, &tmp) == kResultSuccess && tmp) {
        target = Tessel::InterfaceRef<I>::Adopt(static_cast<I*>(static_cast<TesselUnknown*>(tmp)));
    } else {
        if (tmp) static_cast<TesselUnknown*>(tmp)->Release();
        local->Release();
    }
    local.Clear();
    return target;
}

} // namespace QT
