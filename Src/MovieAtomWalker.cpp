#include "Src/MovieAtomWalker.h"

#include <algorithm>
#include <optional>
#include <string>

namespace QT {

namespace {

constexpr FourCC kMvhd = MakeFourCC("mvhd");
constexpr FourCC kTrak = MakeFourCC("trak");
constexpr FourCC kTkhd = MakeFourCC("tkhd");
constexpr FourCC kTapt = MakeFourCC("tapt");
constexpr FourCC kEdts = MakeFourCC("edts");
constexpr FourCC kMdia = MakeFourCC("mdia");
constexpr FourCC kMdhd = MakeFourCC("mdhd");
constexpr FourCC kHdlr = MakeFourCC("hdlr");
constexpr FourCC kMinf = MakeFourCC("minf");
constexpr FourCC kDinf = MakeFourCC("dinf");
constexpr FourCC kStbl = MakeFourCC("stbl");
constexpr FourCC kUdta = MakeFourCC("udta");
constexpr FourCC kMeta = MakeFourCC("meta");
constexpr FourCC kKeys = MakeFourCC("keys");
constexpr FourCC kIlst = MakeFourCC("ilst");
constexpr FourCC kData = MakeFourCC("data");

// Bytes that the `tkhd` search and the next-track test demand, under both guards.
constexpr std::uint32_t kTrackRoom = 9;

AtomPtr* SampleTableField(TrackItem& item, FourCC type)
{
    switch (type) {
    case MakeFourCC("stsd"): return &item.mStsd;
    case MakeFourCC("stts"): return &item.mStts;
    case MakeFourCC("stss"): return &item.mStss;
    case MakeFourCC("stsc"): return &item.mStsc;
    case MakeFourCC("stco"): return &item.mStco;
    case MakeFourCC("co64"): return &item.mCo64;
    case MakeFourCC("stsz"): return &item.mStsz;
    case MakeFourCC("sdtp"): return &item.mSdtp;
    case MakeFourCC("ctts"): return &item.mCtts;
    default: return nullptr;
    }
}

} // namespace

bool MovieAtomWalker::WalkMovieAtom()
{
    if (!FindMovieHeader()) return false;
    if (!WalkTracks()) return false;
    WalkMovieUserData();
    WalkMetadata();
    return true;
}

bool MovieAtomWalker::FindMovieHeader()
{
    if (mTotal < 9) return false;
    std::uint32_t cursor = 8;
    for (;;) {
        AtomHeader h;
        if (Step(cursor, h) != StepResult::kGood) return false;
        if (h.type == kMvhd) {
            mOut.mMvhd = AtomPtr::At(cursor);
            return true;
        }
        if (h.next >= mTotal) return false;
        cursor = h.next;
    }
}

bool MovieAtomWalker::ReadEditList(std::uint32_t edts, TrackItem& item)
{
    // The atom behind the `edts` header is taken for `elst` whatever its type.
    const std::uint64_t elst = std::uint64_t{edts} + 8;
    std::uint32_t size = 0;
    std::int32_t count = 0;
    if (!mReader.U32(elst, size) || !mReader.S32(elst + 12, count)) return false;
    if (count <= 0) return true;
    // At 64 bits the product cannot wrap, so a count of 2^28 or more is refused.
    if (std::uint64_t(count) * 8 > size) return false;
    // The test above lets a list run past its atom; entries that would pass
    // the end of the copy are not listed, so no entry is read outside it.
    const std::uint64_t first = elst + 16;
    const std::uint64_t room = first < mTotal ? (mTotal - first) / 12 : 0;
    const std::uint64_t listed = std::min<std::uint64_t>(std::uint64_t(count), room);
    item.mEditEntries.reserve(listed);
    for (std::uint64_t i = 0; i < listed; ++i)
        item.mEditEntries.push_back(AtomPtr::At(static_cast<std::uint32_t>(first + 12 * i)));
    return true;
}

void MovieAtomWalker::WalkApertureChildren(std::uint32_t tapt, std::uint32_t end, TrackItem& item)
{
    std::uint32_t cursor = tapt + 8;
    AtomHeader h;
    while (Step(cursor, end, h) == StepResult::kGood) {
        if (h.type == MakeFourCC("clef")) item.mClef = AtomPtr::At(cursor);
        else if (h.type == MakeFourCC("enof")) item.mEnof = AtomPtr::At(cursor);
        else if (h.type == MakeFourCC("prof")) item.mProf = AtomPtr::At(cursor);
        cursor = h.next;
    }
}

bool MovieAtomWalker::WalkMedia(std::uint32_t mdia, TrackItem& item, std::uint32_t& cursor)
{
    // `mdhd`, `hdlr` and `minf`, in this order and with nothing between them.
    AtomHeader h;
    std::uint32_t at = mdia + 8;
    if (Step(at, h) != StepResult::kGood || h.type != kMdhd) return false;
    item.mMdhd = AtomPtr::At(at + 8);
    at = h.next;
    if (Step(at, h) != StepResult::kGood || h.type != kHdlr) return false;
    item.mHdlr = AtomPtr::At(at + 8);
    at = h.next;
    if (Step(at, h) != StepResult::kGood || h.type != kMinf) return false;
    return WalkMediaInformation(at, h.next, item, cursor);
}

bool MovieAtomWalker::WalkMediaInformation(std::uint32_t minf, std::uint32_t minfEnd, TrackItem& item,
                                           std::uint32_t& cursor)
{
    AtomHeader h;
    cursor = minf + 8;
    if (Step(cursor, h) != StepResult::kGood) return false;
    item.mMediaHeader = AtomPtr::At(cursor); // whatever its type
    cursor = h.next;
    while (cursor < minfEnd) {
        if (Step(cursor, h) != StepResult::kGood) return false;
        if (h.type == kDinf) item.mDinf = AtomPtr::At(cursor);
        else if (h.type == kStbl && !WalkSampleTable(cursor, h.next, item)) return false;
        cursor = h.next;
    }
    return true;
}

bool MovieAtomWalker::WalkSampleTable(std::uint32_t stbl, std::uint32_t stblEnd, TrackItem& item)
{
    std::uint32_t cursor = stbl + 8;
    for (;;) {
        AtomHeader h;
        if (Step(cursor, h) != StepResult::kGood) return item.IsComplete();
        if (AtomPtr* field = SampleTableField(item, h.type)) *field = AtomPtr::At(cursor);
        cursor = h.next;
        if (cursor >= stblEnd) return true;
    }
}

bool MovieAtomWalker::WalkTracks()
{
    AtomHeader h;
    std::uint32_t cursor = 8;
    bool found = false;
    while (cursor < mTotal) {
        if (Step(cursor, h) != StepResult::kGood) return false;
        if (h.type == kTrak) {
            found = true;
            break;
        }
        cursor = h.next;
    }
    if (!found) return false;
    cursor += 8;

    for (;;) {
        TrackItem item;

        // The track header, searched flat up to the end of the copy.
        for (;;) {
            if (Step(cursor, h) != StepResult::kGood) return false;
            cursor = h.next;
            if (h.type == kTkhd) {
                item.mTkhd = AtomPtr::At(cursor - h.size + 8);
                break;
            }
            if (mTotal - cursor < kTrackRoom) return false;
        }

        // Up to `mdia`, entering `tapt` and the first `edts`.
        std::uint32_t mdia = 0;
        for (;;) {
            if (Step(cursor, h) != StepResult::kGood) return false;
            if (h.type == kMdia) {
                mdia = cursor;
                break;
            }
            if (h.type == kEdts) {
                if (!ReadEditList(cursor, item)) return false;
                // Behind the edit list neither `tapt` nor another `edts` is entered.
                cursor += 8;
                for (;;) {
                    if (Step(cursor, h) != StepResult::kGood) return false;
                    if (h.type == kMdia) break;
                    cursor = h.next;
                }
                mdia = cursor;
                break;
            }
            if (h.type == kTapt) WalkApertureChildren(cursor, h.next, item);
            cursor = h.next;
        }

        if (!WalkMedia(mdia, item, cursor)) return false;
        const bool complete = item.IsComplete();

        // Atoms behind `minf`, up to the next `trak`: the track's user data.
        std::optional<std::uint32_t> nextTrak;
        for (;;) {
            const StepResult r = Step(cursor, h);
            if (r == StepResult::kNoRoom) break;
            if (h.type == kTrak) {
                nextTrak = cursor; // entered even when its size is 0 or too large
                break;
            }
            if (r != StepResult::kGood) break;
            if (h.type == kUdta) WalkUserData(cursor + 8, h.size, item.mUserData);
            cursor = h.next;
        }

        if (complete) {
            // Proven here once, so that the chunk offset reader made from the
            // record reads them without a test. Only the counts are read.
            item.mStcoEntries = mReader.Table<4>(item.mStco, 16, mReader.U32Or(item.mStco.Field(12)));
            item.mCo64Entries = mReader.Table<8>(item.mCo64, 16, mReader.U32Or(item.mCo64.Field(12)));
            mOut.mTracks.push_back(std::move(item));
        }
        if (!nextTrak) return complete;
        cursor = *nextTrak + 8;
        if (cursor > mTotal || mTotal - cursor < kTrackRoom) return complete;
        if (!complete) return false;
    }
}

void MovieAtomWalker::WalkMovieUserData()
{
    std::uint32_t cursor = 8;
    AtomHeader h;
    while (cursor < mTotal) {
        if (Step(cursor, h) != StepResult::kGood) return;
        if (h.type == kUdta) {
            WalkUserData(cursor + 8, h.size, mOut.mUserData);
            return;
        }
        cursor = h.next;
    }
}

void MovieAtomWalker::WalkUserData(std::uint32_t atomStart, std::uint32_t atomSize, std::vector<UserDataEntry>& list)
{
    if (atomSize < 9) return;
    const std::uint32_t end = atomStart + atomSize - 8;
    std::uint32_t cursor = atomStart;
    AtomHeader h;
    while (Step(cursor, end, h) == StepResult::kGood) {
        // A child of 1 to 7 bytes has no content that can be told: it is
        // stepped over and makes no entry.
        if (h.size >= 8) list.push_back(UserDataEntry{h.type, AtomPtr::At(cursor + 8), h.size - 8});
        cursor = h.next;
        if (cursor >= end) return;
    }
}

namespace {

// The value of one `ilst` item by its data type; nothing for a type or length
// that has no alternative.
std::optional<MetadataVariant> MakeMetadataValue(std::uint32_t dataType, const AtomReader& reader,
                                                 std::uint64_t at, std::uint32_t length)
{
    const std::uint8_t* bytes = reader.Bytes(at, length);
    if (!bytes) return std::nullopt;
    switch (dataType) {
    case 0: return MetadataVariant(Pelt::BinaryData(bytes, length));
    case 1: return MetadataVariant(std::string(reinterpret_cast<const char*>(bytes), length));
    case 2: return MetadataVariant(vellum::utility::AsciiToUTF16(reinterpret_cast<const char*>(bytes), length));
    case 21:
        if (length == 1) return MetadataVariant(std::int32_t(static_cast<std::int8_t>(bytes[0])));
        if (length == 2) return MetadataVariant(std::int32_t(reader.S16Or(at)));
        if (length == 4) return MetadataVariant(reader.S32Or(at));
        return std::nullopt;
    case 22:
        if (length == 1) return MetadataVariant(std::int32_t(bytes[0]));
        if (length == 2) return MetadataVariant(std::int32_t(reader.U16Or(at)));
        if (length == 4) return MetadataVariant(reader.U32Or(at));
        return std::nullopt;
    case 23: {
        // Four bytes whatever the length; they must lie inside the copy.
        float v = 0;
        if (!reader.F32(at, v)) return std::nullopt;
        return MetadataVariant(v);
    }
    case 24: {
        double v = 0;
        if (!reader.F64(at, v)) return std::nullopt;
        return MetadataVariant(v);
    }
    default: return std::nullopt;
    }
}

} // namespace

void MovieAtomWalker::WalkMetadata()
{
    std::uint32_t cursor = 8;
    bool haveMeta = false, haveHdlr = false, haveKeys = false;
    std::int32_t keyCount = 0;
    std::uint32_t keysAt = 0, keysEnd = 0;
    AtomHeader h;
    while (!(haveMeta && haveHdlr && haveKeys)) {
        if (cursor >= mTotal || Step(cursor, h) != StepResult::kGood) break;
        if (h.type == kMeta) {
            haveMeta = true;
            cursor += 8;
        } else if (h.type == kHdlr) {
            haveHdlr = true;
            cursor = h.next;
        } else if (h.type == kKeys) {
            haveKeys = true;
            keyCount = mReader.S32Or(std::uint64_t{cursor} + 12);
            keysAt = cursor;
            keysEnd = h.next;
            cursor += 12;
        } else {
            cursor = h.next;
        }
    }
    if (!(haveMeta && haveHdlr && haveKeys) || keyCount < 1) return;

    // The keys, as places in the copy. An entry whose size is below 8 or that
    // passes the end of the copy ends the list: it and all keys behind it are
    // empty. So the list never holds more entries than the copy has room for.
    struct KeyPlace {
        std::uint32_t at;
        std::uint32_t length;
    };
    std::vector<KeyPlace> keys;
    std::uint64_t entry = std::uint64_t{keysAt} + 16;
    for (std::int32_t i = 0; i < keyCount; ++i) {
        std::uint32_t size = 0;
        if (!mReader.U32(entry, size) || size < 8 || !mReader.Has(entry, size)) break;
        keys.push_back(KeyPlace{static_cast<std::uint32_t>(entry + 8), size - 8});
        entry += size;
    }
    auto keyText = [&](std::int32_t index) {
        if (static_cast<std::size_t>(index) >= keys.size()) return std::string();
        const KeyPlace& k = keys[static_cast<std::size_t>(index)];
        return std::string(reinterpret_cast<const char*>(mReader.Bytes(k.at, k.length)), k.length);
    };

    // `ilst` directly behind `keys`.
    if (Step(keysEnd, h) != StepResult::kGood || h.type != kIlst) return;
    std::uint64_t item = std::uint64_t{keysEnd} + 8;
    for (std::int32_t counter = 0; counter < keyCount; ++counter) {
        if (item >= mTotal) return;
        std::uint32_t itemSize = 0;
        std::int32_t keyIndex = 0;
        if (!mReader.U32(item, itemSize) || !mReader.S32(item + 4, keyIndex)) return;
        const std::uint32_t dataType = mReader.U32Or(item + 16, 0xFFFFFFFFu);
        const std::int64_t length = std::int64_t{itemSize} - 24;
        if (keyIndex >= 1 && keyIndex <= keyCount && mReader.U32Or(item + 12) == kData && length >= 1 &&
            dataType <= 24) {
            if (auto value = MakeMetadataValue(dataType, mReader, item + 24, static_cast<std::uint32_t>(length)))
                mOut.mMetadata.emplace(keyText(keyIndex - 1), MetadataValue{dataType, std::move(*value)});
        }
        // An item of size 0 would come again until the counter runs out, with
        // the same effect as once: the first value of a key stands.
        if (itemSize == 0) return;
        item += itemSize;
    }
}

} // namespace QT
