#include "Src/QTMooVAtom.h"

#include <cstdlib>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace QT {

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

} // namespace

void QTMooVAtom::FreeBytes::operator()(std::uint8_t* bytes) const noexcept { std::free(bytes); }

bool QTMooVAtom::ResizeAtomData(std::uint32_t size)
{
    // The bytes are left as the allocator gives them: the read fills them.
    std::uint8_t* bytes = nullptr;
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    // A copy of a huge page or more asks for huge pages over its whole ones:
    // the read that fills it then takes a page fault per 2 MiB instead of per
    // 4 KiB, which is most of a first open's time. The rest of the block,
    // up to the next huge page, is never touched and so takes no memory.
    if (size >= kHugePage) {
        const std::size_t rounded = (std::size_t{size} + kHugePage - 1) & ~(kHugePage - 1);
        bytes = static_cast<std::uint8_t*>(std::aligned_alloc(kHugePage, rounded));
        if (bytes) ::madvise(bytes, size & ~(kHugePage - 1), MADV_HUGEPAGE);
    }
#endif
    if (!bytes && size != 0) bytes = static_cast<std::uint8_t*>(std::malloc(size));
    if (size != 0 && !bytes) return false;
    mAtomData.reset(bytes);
    mAtomSize = size;
    return true;
}

const TrackItem& QTMooVAtom::GetTrackItem(std::uint64_t inIndex) const
{
    VELLUM_CONTRACT(inIndex < GetTrackCount(), "QTMooVAtom::GetTrackItem");
    return mTracks[inIndex];
}

Pelt::BinaryData QTMooVAtom::CopyEntry(const UserDataEntry& entry) const
{
    // Entries are made by the walk inside the copy; a size that cannot be told
    // (a child of 1 to 7 bytes) or that passes the end gives an empty blob.
    if (entry.mSize == 0) return Pelt::BinaryData();
    return Pelt::BinaryData(Reader().Bytes(entry.mData.Offset(), entry.mSize), entry.mSize);
}

void QTMooVAtom::GetUserData(std::uint32_t inIndex, Pelt::BinaryData& outData, std::uint32_t& outType) const
{
    VELLUM_CONTRACT(inIndex < GetUserDataCount(), "QTMooVAtom::GetUserData");
    const UserDataEntry& entry = mUserData[inIndex];
    outData = CopyEntry(entry);
    outType = entry.mType;
}

bool QTMooVAtom::GetUserDataByType(FourCC inType, Pelt::BinaryData& outData) const
{
    for (const UserDataEntry& entry : mUserData) {
        if (entry.mType == inType && entry.mSize != 0) {
            outData = CopyEntry(entry);
            return true;
        }
    }
    return false;
}

std::uint32_t QTMooVAtom::GetChildAtom(FourCC inType, Pelt::BinaryData& outData) const
{
    const AtomReader reader = Reader();
    const std::uint32_t end = reader.Size();
    std::uint32_t offset = 8;
    std::uint32_t size = 0, type = 0, next = 0;
    while (ReadAtomHeaderInMemory(reader, offset, end, size, type, next)) {
        if (type == inType) {
            // A child of 8 bytes or fewer has no content that can be told.
            outData = size > 8 ? Pelt::BinaryData(reader.Bytes(std::uint64_t{offset} + 8, size - 8), size - 8)
                               : Pelt::BinaryData();
            return kResultSuccess;
        }
        offset = next;
    }
    return kResultNotFound;
}

bool QTMooVAtom::GetMetadataValue(const std::string& inKey, MetadataValue& outValue) const
{
    auto it = mMetadata.find(inKey);
    if (it == mMetadata.end()) return false;
    outValue = it->second;
    return true;
}

void QTMooVAtom::Adopt(AtomPtr inMvhd, std::vector<TrackItem> inTracks, std::vector<UserDataEntry> inUserData,
                       MetadataMap inMetadata)
{
    mMvhd = inMvhd;
    mTracks = std::move(inTracks);
    mUserData = std::move(inUserData);
    mMetadata = std::move(inMetadata);
}

} // namespace QT
