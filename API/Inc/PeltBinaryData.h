// The system's blob: bytes in a shared, counted buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <boost/shared_ptr.hpp>

#include "vellum/vellum.h"

namespace Pelt {

// Owns a copy of its bytes; copies share the buffer. Empty when the buffer is null.
class BinaryData {
public:
    BinaryData() noexcept = default;

    // Copies `inSize` bytes from `inData`. A null `inData` gives an empty blob
    // whatever the size; a non-null one with size 0 breaks the contract.
    BinaryData(const void* inData, std::uint64_t inSize)
    {
        if (inData == nullptr) return;
        VELLUM_CONTRACT((inData == NULL) || (inSize > 0), "Pelt::BinaryData::BinaryData");
        if (inSize > static_cast<std::uint64_t>(static_cast<std::size_t>(-1))) return;
        boost::shared_ptr<vellum::utility::RecycledMemory> block = vellum::utility::RecycledMemory::Create(0);
        block->Allocate(static_cast<std::size_t>(inSize));
        if (block->Data() == nullptr) return;
        std::memcpy(block->Data(), inData, static_cast<std::size_t>(inSize));
        mBlock = block;
    }

    bool Empty() const noexcept { return !mBlock; }
    const std::uint8_t* Data() const noexcept { return mBlock ? mBlock->Data() : nullptr; }
    std::size_t Size() const noexcept { return mBlock ? mBlock->Size() : 0; }

private:
    boost::shared_ptr<vellum::utility::RecycledMemory> mBlock;
};

} // namespace Pelt
