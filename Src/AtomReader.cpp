#include "Src/AtomReader.h"

namespace QT {

StepResult StepAtom(const AtomReader& reader, std::uint32_t offset, std::uint32_t limit, std::uint32_t guard,
                    AtomHeader& out) noexcept
{
    if (offset > limit || limit - offset < guard) return StepResult::kNoRoom;
    // The guard is at least 8, so both fields lie before `limit`; the reader
    // still refuses them if `limit` itself passes the end of the copy.
    if (!ReadAtomHead(reader, offset, out)) return StepResult::kNoRoom;
    const std::uint64_t next = std::uint64_t{offset} + out.size;
    if (out.size == 0 || next > limit) return StepResult::kRefused;
    out.next = static_cast<std::uint32_t>(next);
    return StepResult::kGood;
}

bool ReadAtomHeaderInMemory(const AtomReader& reader, std::uint32_t offset, std::uint32_t end,
                            std::uint32_t& outSize, std::uint32_t& outType, std::uint32_t& outNext) noexcept
{
    AtomHeader h;
    const StepResult r = StepAtom(reader, offset, end, 9, h);
    if (r == StepResult::kNoRoom) return false;
    outSize = h.size;
    outType = h.type;
    if (r == StepResult::kRefused) return false;
    outNext = h.next;
    return true;
}

} // namespace QT
