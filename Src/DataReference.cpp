#include "Src/DataReference.h"

#include <algorithm>
#include <string>
#include <utility>

#include "vellum/vellum.h"

namespace QT {

namespace {

// Places in an `alis` entry, from the entry's first byte (the record data
// start 12 bytes in).
constexpr std::uint64_t kRecordData = 12;
constexpr std::uint64_t kRecordSize = kRecordData + 4;     // 16-bit
constexpr std::uint64_t kFileNameLength = kRecordData + 50; // 8-bit
constexpr std::uint64_t kFileName = kRecordData + 51;
constexpr std::uint64_t kFirstTag = kRecordData + 150;

constexpr std::int16_t kTagEnd = -1;
constexpr std::int16_t kTagDirectoryName = 0;
constexpr std::int16_t kTagPathInVolume = 18;
constexpr std::int16_t kTagMountPoint = 19;

String16 TextAt(const DataReferenceAtom& dref, std::uint64_t at, std::uint32_t length)
{
    if (length == 0) return String16();
    const auto* bytes = reinterpret_cast<const char*>(dref.Bytes(at, length));
    if (!bytes) return String16();
    return vellum::utility::UTF8to16(std::string(bytes, length), nullptr, nullptr);
}

} // namespace

DataReferenceAtom::DataReferenceAtom(const AtomReader& reader, AtomPtr dinf) : mReader(reader)
{
    if (!dinf) return;
    mPresent = true;
    mStart = dinf.Field(8);
    std::uint32_t dinfSize = 0, drefSize = 0;
    if (!reader.U32(dinf.Field(0), dinfSize) || !reader.U32(mStart, drefSize)) {
        mEnd = mStart; // nothing can be read
        return;
    }
    // `dref` is believed only as far as `dinf` and the copy reach; a `dinf`
    // too small to hold a `dref` header leaves nothing to read.
    const std::uint64_t dinfEnd = dinf.Field(dinfSize);
    mEnd = std::min<std::uint64_t>({mStart + drefSize, dinfEnd, reader.Size()});
    if (mEnd < mStart) mEnd = mStart;
}

std::uint32_t DataReferenceAtom::EntryCount() const
{
    std::uint32_t count = 0;
    return U32(mStart + 12, count) ? count : 0;
}

bool DataReferenceAtom::ReadEntry(std::uint64_t at, DataReferenceEntry& out) const
{
    if (!Fits(at, 12)) return false;
    return U32(at, out.size) && U32(at + 4, out.type) && U8(at + 11, out.flags);
}

bool ParseAliasRecord(const DataReferenceAtom& dref, std::uint64_t entry, ExtRefData& out, std::uint64_t& outNext)
{
    // The fixed part of the record, up to the first tagged field, must fit.
    if (!dref.Fits(entry, kFirstTag)) return false;
    std::uint16_t recordSize = 0;
    std::uint8_t nameLength = 0;
    if (!dref.U16(entry + kRecordSize, recordSize) || !dref.U8(entry + kFileNameLength, nameLength)) return false;
    // A file name that runs past the end of `dref` fails the record, as a
    // tagged field that does so: it is not cut to what is there.
    if (!dref.Fits(entry + kFileName, nameLength)) return false;

    ExtRefData data;
    data.fileName = TextAt(dref, entry + kFileName, nameLength);
    const std::uint64_t next = entry + kRecordData + recordSize;

    String16 pathInVolume, mountPoint;
    std::uint64_t tag = entry + kFirstTag;
    if (!dref.Fits(tag, 4)) return false;
    for (;;) {
        std::uint16_t rawTag = 0, length = 0;
        if (!dref.U16(tag, rawTag) || !dref.U16(tag + 2, length)) return false;
        if (static_cast<std::int16_t>(rawTag) == kTagEnd || tag >= next) break;
        if (!dref.Fits(tag + 4, length)) return false;
        // A tag that occurs twice: the later text replaces the earlier.
        switch (static_cast<std::int16_t>(rawTag)) {
        case kTagDirectoryName: data.directoryName = TextAt(dref, tag + 4, length); break;
        case kTagPathInVolume: pathInVolume = TextAt(dref, tag + 4, length); break;
        case kTagMountPoint: mountPoint = TextAt(dref, tag + 4, length); break;
        default: break;
        }
        // Text of odd length is followed by one padding byte.
        tag += 4 + std::uint64_t{length} + (length & 1u);
        if (!dref.Fits(tag, 4)) return false;
    }

    if (!mountPoint.empty() && !pathInVolume.empty()) data.fullPath = mountPoint + pathInVolume;
    else data.fullPath = data.fileName;
    out = std::move(data);
    outNext = next;
    return true;
}

} // namespace QT
