#include "Src/QTTrack.h"

#include "Src/DataReference.h"
#include "Src/SampleTableCursors.h"

namespace QT {

namespace {

// Fields of `tkhd` content, `mdhd` content and `hdlr` content. Version 1
// atoms are read at the same places. A field that lies beyond the copy reads
// as 0: such a track is disabled, has no size or duration, and a zero matrix.
constexpr std::uint32_t kTkhdFlags = 0;
constexpr std::uint32_t kTkhdDuration = 20;
constexpr std::uint32_t kTkhdMatrix = 40;
constexpr std::uint32_t kTkhdWidth = 76;
constexpr std::uint32_t kTkhdHeight = 80;
constexpr std::uint32_t kMdhdTimeScale = 12;
constexpr std::uint32_t kMdhdDuration = 16;
constexpr std::uint32_t kHdlrSubtype = 8;

constexpr std::uint32_t kUnitRate = 0x10000;

// The data reference type of a track without exactly one reference.
constexpr FourCC kUnknownDataReferenceType = MakeFourCC("????");

// a, b, u, c, d, v, w of the four right-angle rows.
constexpr std::uint32_t kMatrixRows[4][7] = {
    {0x10000, 0, 0, 0, 0x10000, 0, 0x40000000},
    {0, 0xffff0000, 0, 0x10000, 0, 0, 0x40000000},
    {0xffff0000, 0, 0, 0, 0xffff0000, 0, 0x40000000},
    {0, 0x10000, 0, 0xffff0000, 0, 0, 0x40000000},
};

} // namespace

void QTTrack::Initialize(std::uint64_t trackIndex, const CountedPtr<QTMooVAtom>& store, std::uint32_t movieTimeScale)
{
    mMovieTimeScale = movieTimeScale;
    mStore = store;
    mTrackIndex = trackIndex;
    AnalyzeEdits();
}

FourCC QTTrack::GetTrackMediaType()
{
    const FourCC subtype = Reader().U32Or(Item().mHdlr.Field(kHdlrSubtype));
    switch (subtype) {
    case kVideoMediaType:
    case kAudioMediaType:
    case kTimecodeMediaType:
    case kTextMediaType:
    case kClosedCaptionMediaType: return subtype;
    case MakeFourCC("tc64"): return kTimecodeMediaType;
    default: return kUnknownMediaType;
    }
}

void QTTrack::GetTrackDimensions(QTRect& outRect)
{
    const AtomReader reader = Reader();
    const AtomPtr tkhd = Item().mTkhd;
    outRect.left = 0;
    outRect.top = 0;
    outRect.right = reader.S32Or(tkhd.Field(kTkhdWidth)) >> 16;
    outRect.bottom = reader.S32Or(tkhd.Field(kTkhdHeight)) >> 16;
}

bool QTTrack::IsTrackEnabled() { return (Reader().U32Or(Item().mTkhd.Field(kTkhdFlags)) & 1) != 0; }

std::uint32_t QTTrack::GetTrackDuration() { return Reader().U32Or(Item().mTkhd.Field(kTkhdDuration)); }

std::uint32_t QTTrack::GetMediaTimeScale() { return Reader().U32Or(Item().mMdhd.Field(kMdhdTimeScale)); }

std::int32_t QTTrack::GetSampleDescriptionCount() { return Reader().S32Or(Item().mStsd.Field(12)); }

std::uint64_t QTTrack::MediaTimeScaleWide() const
{
    // Widened as a signed 32-bit number, so a negative scale never equals the movie's.
    const std::uint32_t media = Reader().U32Or(Item().mMdhd.Field(kMdhdTimeScale));
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(media)));
}

std::uint32_t QTTrack::Rescale(std::uint32_t value, std::uint64_t from, std::uint64_t to)
{
    if (from == to) return value;
    // A time scale of 0 has no conversion: the result is 0.
    if (from == 0) return 0;
    return static_cast<std::uint32_t>(std::uint64_t{value} * to / from);
}

std::uint32_t QTTrack::MovieToMediaTime(std::uint32_t value) const
{
    return Rescale(value, mMovieTimeScale, MediaTimeScaleWide());
}

std::uint32_t QTTrack::MediaToMovieTime(std::uint32_t value) const
{
    return Rescale(value, MediaTimeScaleWide(), mMovieTimeScale);
}

AtomPtr QTTrack::GetNthSampleDescriptionPtr(AtomPtr stsdAtom, std::int32_t inSampleDescriptionIndex) const
{
    const AtomReader reader = Reader();
    const std::int32_t numDescriptions = reader.S32Or(stsdAtom.Field(12));
    VELLUM_CONTRACT(inSampleDescriptionIndex < numDescriptions, "QT::QTTrack::GetNthSampleDescriptionPtr");
    if (numDescriptions < 1 || inSampleDescriptionIndex < 0) return AtomPtr();
    // Descriptions are held against the end of `stsd`: one whose size is
    // below 8 or that runs past the atom gives null.
    const std::uint64_t end = std::min<std::uint64_t>(stsdAtom.Field(reader.U32Or(stsdAtom.Field(0))), reader.Size());
    std::uint64_t at = stsdAtom.Field(16);
    for (std::int32_t counter = 0;; ++counter) {
        std::uint32_t size = 0;
        if (at > end || !reader.U32(at, size) || size < 8 || size > end - at) return AtomPtr();
        if (counter == inSampleDescriptionIndex) return AtomPtr::At(static_cast<std::uint32_t>(at));
        if (counter + 1 == numDescriptions) return AtomPtr();
        at += size;
    }
}

bool QTTrack::HasSimpleEditList(bool requireUnitRate)
{
    const auto& edits = Item().mEditEntries;
    if (edits.empty()) return true;
    if (edits.size() >= 2) return false;
    return !requireUnitRate || Reader().U32Or(edits[0].Field(8)) == kUnitRate;
}

bool QTTrack::IsTrackTrimmed()
{
    if (!HasSimpleEditList(true) || mEditMediaTime != 0) return true;
    return mEditDuration != Reader().U32Or(Item().mMdhd.Field(kMdhdDuration));
}

void QTTrack::AnalyzeEdits()
{
    const AtomReader reader = Reader();
    const TrackItem& item = Item();
    SttsCursor stts(reader, item.mStts);
    const std::size_t editCount = item.mEditEntries.size();

    if (editCount == 0 || stts.EntryCount() == 0) {
        mEditDuration = MovieToMediaTime(GetTrackDuration());
        mEditMediaTime = 0;
        return;
    }
    if (editCount >= 2) {
        mEditDuration = GetTrackDuration(); // movie time scale, not converted
        return;
    }
    const AtomPtr edit = item.mEditEntries[0];
    mEditDuration = MovieToMediaTime(reader.U32Or(edit.Field(0)));
    mEditMediaTime = reader.U32Or(edit.Field(4));
    const std::uint32_t mediaTime = mEditMediaTime;

    if (mediaTime == 0) {
        for (; !stts.AtEnd(); stts.Next()) {
            if (stts.Count() != 0) {
                mEditFirstSampleDuration = stts.Duration();
                break;
            }
        }
        return;
    }
    if (GetTrackMediaType() == kAudioMediaType) {
        // A sound sample is one time unit: the media time is the sample number.
        mEditFirstSample = mediaTime;
        mEditFirstSampleDuration = 1;
        return;
    }

    // The first sample that ends after the media time, and how much of it is
    // shown. Whole runs of equal durations are passed in one step.
    std::uint64_t remaining = mediaTime;
    std::uint64_t index = 0;
    bool sawSample = false;
    std::uint32_t lastDuration = 0;
    for (; !stts.AtEnd(); stts.Next()) {
        const std::uint64_t count = stts.Count();
        if (count == 0) continue;
        const std::uint32_t d = stts.Duration();
        sawSample = true;
        lastDuration = d;
        if (static_cast<std::int32_t>(d) < 0) return; // a negative duration stops the walk
        const std::uint64_t whole = d == 0 ? count : std::min(count, remaining / d);
        index += whole;
        remaining -= whole * d;
        if (whole < count) {
            mEditFirstSample = static_cast<std::uint32_t>(index);
            mEditFirstSampleDuration = static_cast<std::uint32_t>(d - remaining);
            return;
        }
    }
    // Past the table every sample takes the last sample's duration. Without any
    // sample there is no duration to go by: the numbers stay 0. With a last
    // duration of 0 the walk would never end: the edit is taken to start at
    // the end of the samples, with nothing of it shown.
    if (!sawSample) return;
    if (lastDuration == 0) {
        mEditFirstSample = static_cast<std::uint32_t>(index);
        return;
    }
    index += remaining / lastDuration;
    remaining %= lastDuration;
    mEditFirstSample = static_cast<std::uint32_t>(index);
    mEditFirstSampleDuration = static_cast<std::uint32_t>(lastDuration - remaining);
}

std::uint32_t QTTrack::GetTotalSampleCount()
{
    if (const std::uint32_t cached = mTotalSampleCount.load(std::memory_order_relaxed)) return cached;
    std::uint32_t total = 0;
    for (SttsCursor stts(Reader(), Item().mStts); !stts.AtEnd(); stts.Next()) total += stts.Count();
    mTotalSampleCount.store(total, std::memory_order_relaxed);
    return total;
}

std::uint32_t QTTrack::GetEditSampleCount()
{
    if (const std::uint32_t cached = mEditSampleCount.load(std::memory_order_relaxed)) return cached;
    SttsCursor stts(Reader(), Item().mStts);
    if (stts.EntryCount() == 0) return 0;
    // Unsigned 32-bit arithmetic throughout, wrapping.
    const std::uint32_t limit = mEditDuration + mEditMediaTime;
    const std::uint32_t start = mEditMediaTime != 0 ? MovieToMediaTime(mEditMediaTime) : 0;
    std::uint32_t elapsed = 0;
    std::uint32_t total = 0;
    for (; !stts.AtEnd(); stts.Next()) {
        std::uint32_t n = stts.Count();
        const std::uint32_t d = stts.Duration();
        std::uint32_t span = n * d;
        if (mEditMediaTime != 0 && elapsed < start && elapsed + span > start) {
            span -= start;
            n -= mEditFirstSample;
        }
        if (elapsed + span > limit) {
            const std::uint32_t shown = limit - elapsed;
            // A duration of 0 cannot end an edit inside its run.
            if (d != 0) n -= (span - shown) / d;
            span = shown;
        }
        elapsed += span;
        total += n;
        if (elapsed >= limit) break;
    }
    mEditSampleCount.store(total, std::memory_order_relaxed);
    return total;
}

std::int32_t QTTrack::GetSampleDuration(std::uint32_t sampleIndex, std::int32_t& inOutDuration) const
{
    SttsCursor stts(Reader(), Item().mStts);
    if (stts.EntryCount() == 0) return -1;
    for (; !stts.AtEnd(); stts.Next()) {
        if (sampleIndex >= stts.FirstSample() && sampleIndex - stts.FirstSample() < stts.Count()) {
            inOutDuration = static_cast<std::int32_t>(stts.Duration());
            break;
        }
    }
    return inOutDuration;
}

std::uint32_t QTTrack::GetFirstEditMediaTime() const
{
    const auto& edits = Item().mEditEntries;
    return edits.empty() ? 0 : Reader().U32Or(edits[0].Field(4));
}

bool QTTrack::GetTrackUserDataItem(FourCC type, Pelt::BinaryData& outData)
{
    for (const UserDataEntry& entry : Item().mUserData) {
        if (entry.mType == type) {
            outData = mStore->CopyEntry(entry);
            return true;
        }
    }
    return false;
}

// Data references. Every read of `dref` stops at its end (see
// DataReferenceAtom): an entry count that lies beyond it counts as no entries,
// and an entry whose header passes it is not there.

bool QTTrack::IsDataReferenceSelfContained()
{
    const AtomReader reader = Reader();
    const DataReferenceAtom dref(reader, Item().mDinf);
    DataReferenceEntry entry;
    if (!dref.Present() || dref.EntryCount() != 1 || !dref.ReadEntry(dref.FirstEntry(), entry)) return false;
    if (entry.type != kAliasReferenceType && entry.type != kUrlReferenceType) return true;
    return entry.flags == 1;
}

FourCC QTTrack::GetDataReferenceType()
{
    const AtomReader reader = Reader();
    const DataReferenceAtom dref(reader, Item().mDinf);
    DataReferenceEntry entry;
    if (!dref.Present() || dref.EntryCount() != 1 || !dref.ReadEntry(dref.FirstEntry(), entry))
        return kUnknownDataReferenceType;
    return entry.type;
}

bool QTTrack::GetSingleExternalReferencePath(String16* outPath)
{
    ExternalReferenceMap references;
    if (!GetTrackExternalReferences(references) || references.size() != 1) return false;
    if (outPath) *outPath = references.begin()->first;
    return true;
}

bool QTTrack::HasSingleDataReference()
{
    const AtomReader reader = Reader();
    const DataReferenceAtom dref(reader, Item().mDinf);
    return dref.Present() && dref.EntryCount() == 1;
}

bool QTTrack::GetTrackExternalReferences(ExternalReferenceMap& references)
{
    const AtomReader reader = Reader();
    const DataReferenceAtom dref(reader, Item().mDinf);
    if (!dref.Present()) return true;
    const std::uint32_t count = dref.EntryCount();
    std::uint64_t at = dref.FirstEntry();
    for (std::uint32_t i = 0; i < count; ++i) {
        DataReferenceEntry entry;
        if (!dref.ReadEntry(at, entry)) return false;
        if (entry.type != kAliasReferenceType) {
            // An entry of size 0 would be read again for every remaining
            // count, adding nothing each time: the answer is already known.
            if (entry.size == 0) return true;
            at += entry.size;
            continue;
        }
        if (entry.flags == 1) return true; // the media is in this file: the rest is not read
        ExtRefData data;
        std::uint64_t next = 0;
        if (!ParseAliasRecord(dref, at, data, next)) return false;
        String16 key = data.fullPath;
        references.emplace(std::move(key), std::move(data)); // an existing key keeps its first value
        at = next;
    }
    return true;
}

std::int32_t QTTrack::GetHandleDataReferencePayload(Pelt::BinaryData& outData) const
{
    // The first entry, whatever the entry count: size, type, 5 unread bytes,
    // then an inner atom (size with its 8-byte header, type `data`) whose
    // content is the payload. An inner atom that runs past the entry, or an
    // entry that runs past `dref`, is refused: it is not cut to what is there.
    constexpr std::uint64_t kInnerAtom = 17;
    const AtomReader reader = Reader();
    const DataReferenceAtom dref(reader, Item().mDinf);
    outData = Pelt::BinaryData();
    const std::uint64_t at = dref.FirstEntry();
    DataReferenceEntry entry;
    std::uint32_t innerSize = 0, innerType = 0;
    if (!dref.Present() || !dref.ReadEntry(at, entry) || entry.size < 26 || entry.type != kHandleReferenceType ||
        !dref.Fits(at, entry.size) || !dref.U32(at + kInnerAtom, innerSize) ||
        !dref.U32(at + kInnerAtom + 4, innerType) || innerSize < 9 || innerType != MakeFourCC("data") ||
        kInnerAtom + innerSize > entry.size)
        return -1;
    const std::uint8_t* payload = dref.Bytes(at + kInnerAtom + 8, innerSize - 8);
    if (!payload) return -1;
    outData = Pelt::BinaryData(payload, innerSize - 8);
    return 0;
}

int QTTrack::MatrixRow(bool ignoreW) const
{
    const AtomReader reader = Reader();
    const AtomPtr tkhd = Item().mTkhd;
    // a, b, u, c, d, v at 0..20 of the matrix, w at 32; x and y are not read.
    static constexpr std::uint32_t kPlaces[7] = {0, 4, 8, 12, 16, 20, 32};
    std::uint32_t values[7];
    for (int i = 0; i < 7; ++i) values[i] = reader.U32Or(tkhd.Field(kTkhdMatrix + kPlaces[i]));
    for (int row = 0; row < 4; ++row) {
        bool match = true;
        for (int i = 0; i < (ignoreW ? 6 : 7) && match; ++i) match = values[i] == kMatrixRows[row][i];
        if (match) return row;
    }
    return -1;
}

bool QTTrack::IsTrackMatrixIdentity() { return MatrixRow(false) == 0; }
bool QTTrack::IsTrackMatrixIdentity2D() { return MatrixRow(true) == 0; }
bool QTTrack::IsTrackMatrixRightAngle() { return MatrixRow(false) >= 0; }
std::uint32_t QTTrack::GetTrackMatrixRotation()
{
    const int row = MatrixRow(false);
    return row < 0 ? 0 : static_cast<std::uint32_t>(row);
}

ChunkOffsetHelper::ChunkOffsetHelper(const TrackItem& trackItem)
    : mTrackItem(&trackItem), mIsCo64(static_cast<bool>(mTrackItem->mCo64)),
      mNumEntries(mIsCo64 ? mTrackItem->mCo64Entries.Count() : mTrackItem->mStcoEntries.Count())
{
    // The walk has proven the entries inside the copy: they are read without a test.
    if (mIsCo64) mWideEntries = mTrackItem->mCo64Entries;
    else mNarrowEntries = mTrackItem->mStcoEntries;
}

} // namespace QT
