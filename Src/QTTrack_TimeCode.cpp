// Timecode and caption tracks: the operations of QTTrack that tell how a
// timecode track counts and where its sample lies, and where the data of a
// `c608`/`c708` caption track lie in the file.
#include <optional>
#include <string>

#include "Src/DataReference.h"
#include "Src/QTTrack.h"
#include "Src/SampleTableCursors.h"

namespace QT {

namespace {

constexpr FourCC kTc64 = MakeFourCC("tc64");
constexpr FourCC kNameAtom = MakeFourCC("name");
constexpr FourCC kC608 = MakeFourCC("c608");
constexpr FourCC kC708 = MakeFourCC("c708");
constexpr FourCC kCdat = MakeFourCC("cdat");
constexpr std::uint32_t kHdlrSubtype = 8;

// The timecode description, from its size field.
constexpr std::uint64_t kTcFlags = 20;
constexpr std::uint64_t kTcTimeScale = 24;
constexpr std::uint64_t kTcFrameDuration = 28;
constexpr std::uint64_t kTcNumberOfFrames = 32;
constexpr std::uint64_t kTcSourceAtom = 34; // size, type `name`, 4 unread bytes, then the text
constexpr std::uint32_t kTcSourceAtomHeader = 12;

// The fixed `c608` form: two 10-byte atoms, 2 bytes of data behind each header.
constexpr std::uint32_t kFixedC608Size = 20;
constexpr std::uint32_t kCaptionHeader = 8;

// The time line of a caption track: the start of each sample, read forward
// from `stts`. Durations count as signed, and entries whose count is 0 or
// negative as signed hold no samples. Times are 64-bit and wrap.
class CaptionTimeLine {
public:
    CaptionTimeLine(const AtomReader& reader, AtomPtr stts, std::uint64_t start)
        : mStts(reader, stts), mStart(start), mTime(start)
    {
        for (SttsCursor all(reader, stts); !all.AtEnd(); all.Next()) mSampleCount += Samples(all);
        SkipEmpty();
    }

    // Samples on the time line; it holds one time more, the end of the last.
    std::uint64_t SampleCount() const { return mSampleCount; }

    // The start of sample `index` (the end of the last for SampleCount()),
    // in one pass over the entries. Contract of the caller: index <= SampleCount().
    std::uint64_t TimeAt(const AtomReader& reader, AtomPtr stts, std::uint64_t index) const
    {
        std::uint64_t time = mStart;
        for (SttsCursor entry(reader, stts); !entry.AtEnd() && index != 0; entry.Next()) {
            const std::uint64_t n = std::min<std::uint64_t>(Samples(entry), index);
            time += n * Duration(entry);
            index -= n;
        }
        return time;
    }

    // The start of the current sample, and the step to the next one.
    std::uint64_t Time() const { return mTime; }
    void Next()
    {
        if (mStts.AtEnd()) return;
        mTime += Duration(mStts);
        if (--mLeft == 0) {
            mStts.Next();
            SkipEmpty();
        }
    }

private:
    static std::uint64_t Samples(const SttsCursor& entry)
    {
        const auto count = static_cast<std::int32_t>(entry.Count());
        return count > 0 ? static_cast<std::uint64_t>(count) : 0;
    }
    static std::uint64_t Duration(const SttsCursor& entry)
    {
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(entry.Duration())));
    }
    void SkipEmpty()
    {
        while (!mStts.AtEnd() && Samples(mStts) == 0) mStts.Next();
        mLeft = mStts.AtEnd() ? 0 : Samples(mStts);
    }

    SttsCursor mStts;
    std::uint64_t mStart;
    std::uint64_t mTime;
    std::uint64_t mLeft = 0;
    std::uint64_t mSampleCount = 0;
};

// The one look at the media: whether the chunk of the first `c608` sample of
// variable size opens with a `cdat` atom header. It runs at most once in a
// call, and the file closes when the object goes, on every path.
struct CdatCheck {
    std::uint32_t skip = kCaptionHeader;
    bool probed = false;
    // The file's size, when it could be told: no sample is bigger than that.
    std::optional<std::uint64_t> fileSize;

    void Run(const String16& path, std::uint64_t chunkOffset)
    {
        probed = true;
        Tessel::File file;
        if (file.Create(path, Tessel::kFileAccessRead, Tessel::kFileShareRead, Tessel::kFileOpenExisting,
                        Tessel::kFileAttributesNone, false) < 0)
            return;
        std::uint64_t size = 0;
        if (Tessel::File::SizeOnDisk(path, size) >= 0) fileSize = size;
        if (chunkOffset > size || size - chunkOffset < 8) return;
        if (file.SetFilePointer(static_cast<std::int64_t>(chunkOffset), Tessel::kFromStart) < 0) return;
        std::uint8_t head[8] = {};
        std::uint32_t got = 0;
        if (file.Read(head, sizeof head, got) < 0 || got != sizeof head) return; // a short read fails too
        if (AtomReader(head, sizeof head).U32Or(4) != kCdat) skip = 0;
    }
};

// The size of caption sample `index`; false when the sample tables can't
// tell it. A table entry beyond the copy counts as past the table.
bool CaptionSampleSize(const SampleSizes& sizes, std::uint64_t index, std::uint32_t& outSize)
{
    if (sizes.Constant() != 0) {
        if (static_cast<std::int32_t>(sizes.Constant()) <= 0) return false;
        outSize = sizes.Constant();
        return true;
    }
    if (static_cast<std::int32_t>(sizes.Count()) <= 0 || index >= sizes.KnownCount()) return false;
    outSize = sizes.SizeOf(index);
    return true;
}

// The greatest common divisor of two magnitudes; with one of them 0, the other.
std::int64_t CommonDivisor(std::int64_t a, std::int64_t b)
{
    while (b != 0) {
        const std::int64_t r = a % b;
        a = b;
        b = r;
    }
    return a;
}

} // namespace

// Timecode.

std::int32_t QTTrack::GetTimecodeMediaInfo(TimecodeInfo& outInfo, String16& outName)
{
    outName.clear();
    const AtomReader reader = Reader();
    const AtomPtr desc = GetNthSampleDescriptionPtr(Item().mStsd, 0);
    // The description is read only inside its own size: a field behind it
    // reads as 0, and so does every field of a description that can't be found.
    const std::uint32_t descSize = desc ? reader.U32Or(desc.Field(0)) : 0;
    auto field = [&](std::uint64_t at) -> std::uint32_t {
        return at + 4 <= descSize ? reader.U32Or(desc.Field(at)) : 0;
    };
    outInfo.mTicksPerFrame = field(kTcFrameDuration);
    outInfo.mTimeScale = field(kTcTimeScale);
    outInfo.mNumberOfFrames = kTcNumberOfFrames < descSize ? reader.U8Or(desc.Field(kTcNumberOfFrames)) : 0;
    outInfo.mDropFrame = (field(kTcFlags) & 1) != 0;

    // The source name: the text of a `name` atom at 34, its length the atom's
    // size less 12. An atom smaller than its 12-byte head, or one that runs
    // past the description, gives no name.
    const std::uint32_t atomSize = field(kTcSourceAtom);
    if (field(kTcSourceAtom + 4) == kNameAtom && atomSize >= kTcSourceAtomHeader &&
        atomSize <= descSize - kTcSourceAtom) {
        const std::uint32_t length = atomSize - kTcSourceAtomHeader;
        const std::uint64_t at = desc.Field(kTcSourceAtom + kTcSourceAtomHeader);
        if (const auto* text = reinterpret_cast<const char*>(reader.Bytes(at, length)); text && length != 0) {
            const std::string terminated(text, length); // stops at an embedded NUL, as a C text does
            outName = Tessel::MakeString(terminated.c_str());
        }
    }
    outInfo.mHandleReference = GetDataReferenceType() == kHandleReferenceType;
    return 0;
}

std::int32_t QTTrack::GetTimecodeHandleValue(std::uint64_t& outValue)
{
    if (GetDataReferenceType() != kHandleReferenceType) return -1;
    Pelt::BinaryData payload;
    if (GetHandleDataReferencePayload(payload) < 0 || payload.Size() != 4) return -1;
    std::uint32_t value = 0;
    if (!AtomReader(payload.Data(), 4).U32(0, value)) return -1;
    outValue = value;
    return 0;
}

std::int32_t QTTrack::GetTimecodeMediaSampleLocation(std::uint64_t& outOffset, std::uint32_t& outSize)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kTimecodeMediaType, "QT::QTTrack::GetTimecodeMediaSampleLocation");
    const AtomReader reader = Reader();
    const TrackItem& item = Item();
    // The constant size, else the first table entry; a table without entries
    // (or whose first entry lies beyond the copy) gives 0.
    const SampleSizes sizes(reader, item.mStsz);
    outSize = sizes.Constant() != 0 ? sizes.Constant() : sizes.KnownCount() != 0 ? sizes.SizeOf(0) : 0;
    // The first sample is taken to stand at the start of the first chunk.
    const ChunkOffsetHelper chunks(item);
    if (chunks.NumEntries() == 0) return -1;
    outOffset = chunks.GetEntry(0);
    return 0;
}

std::int32_t QTTrack::GetTimecodeFrameValue(Pelt::BinaryData data, const TimecodeInfo& info, std::int64_t& outValue)
{
    std::int64_t value = 0;
    if (Reader().U32Or(Item().mHdlr.Field(kHdlrSubtype)) == kTc64) {
        std::uint64_t wide = 0;
        if (data.Size() != 8 || !AtomReader(data.Data(), 8).U64(0, wide)) return -1;
        value = static_cast<std::int64_t>(wide);
    } else {
        std::int32_t narrow = 0;
        if (data.Size() < 4 || !AtomReader(data.Data(), 4).S32(0, narrow)) return -1;
        value = narrow;
    }
    // The first edit's media time, as stored, moves the value on by whole frames.
    const std::uint32_t editTime = GetFirstEditMediaTime();
    if (editTime != 0 && static_cast<std::int32_t>(info.mTicksPerFrame) > 0)
        value = static_cast<std::int64_t>(static_cast<std::uint64_t>(value) + editTime / info.mTicksPerFrame);
    outValue = value;
    return 0;
}

// Captions.

FourCC QTTrack::GetCaptionMediaFormat(std::int32_t index)
{
    const AtomPtr desc = GetNthSampleDescriptionPtr(Item().mStsd, index);
    if (!desc) return kUnknownMediaType;
    const FourCC format = Reader().U32Or(desc.Field(4));
    return format == kC608 || format == kC708 ? format : kUnknownMediaType;
}

std::int32_t QTTrack::GetCaptionFrameDuration()
{
    const AtomReader reader = Reader();
    SttsCursor stts(reader, Item().mStts);
    if (!stts.AtEnd()) {
        std::int32_t smallest = static_cast<std::int32_t>(stts.Duration());
        std::int64_t divisor = smallest;
        for (stts.Next(); !stts.AtEnd() && divisor != 1; stts.Next()) {
            const auto d = static_cast<std::int32_t>(stts.Duration());
            smallest = std::min(smallest, d);
            divisor = CommonDivisor(divisor < 0 ? -divisor : divisor, d < 0 ? -std::int64_t{d} : d);
        }
        // Two durations of -2^31 have the common divisor 2^31, which does not
        // fit: as a signed 32-bit number it is no usable duration.
        const auto result = static_cast<std::int32_t>(static_cast<std::uint32_t>(divisor));
        if (result > 1 || smallest == 1) return result;
    }
    // The duration of a frame at 29.97 frames a second.
    const auto timeScale = static_cast<std::int32_t>(GetMediaTimeScale());
    return static_cast<std::int32_t>(static_cast<double>(timeScale) * 1.001 / 30.0 + 0.5);
}

ResultCode QTTrack::MakeCaptionSampleTable(const String16& path, CaptionSampleMap& table, bool keyByOffset)
{
    const AtomReader reader = Reader();
    const TrackItem& item = Item();
    if (SttsCursor(reader, item.mStts).EntryCount() == 0) return kResultCaptionTables;

    // Leading empty edits delay the whole time line; each duration counts as signed.
    std::uint64_t delay = 0;
    for (const AtomPtr edit : item.mEditEntries) {
        if (reader.U32Or(edit.Field(4)) != 0xffffffffu) break;
        delay += static_cast<std::uint64_t>(static_cast<std::int64_t>(reader.S32Or(edit.Field(0))));
    }
    CaptionTimeLine times(reader, item.mStts, MovieToMediaTime(static_cast<std::uint32_t>(delay)));

    // A first sample beyond the time line (past the end of the samples) leaves
    // every sample before it: nothing is listed, and the end time is not read.
    const bool firstOnTimeLine = mEditFirstSample <= times.SampleCount();
    const std::uint64_t endTime =
        firstOnTimeLine ? times.TimeAt(reader, item.mStts, mEditFirstSample) + mEditDuration : 0;
    const std::int32_t frameDuration = GetCaptionFrameDuration();
    const SampleSizes sizes(reader, item.mStsz);
    // With a constant size the stored count is the number of samples: the
    // walk ends there, as it does at the end of the chunks.
    const std::uint64_t sampleTotal =
        sizes.Constant() != 0 ? std::min<std::uint64_t>(times.SampleCount(), sizes.Count()) : times.SampleCount();

    CdatCheck check;
    std::optional<FourCC> format; // of the first description, asked at the first sample inside the edit
    auto add = [&](const CaptionSampleRecord& record) {
        // Keys mostly rise: with the end as the hint a rising key goes in
        // without a search of the tree; an existing key keeps its record.
        table.emplace_hint(table.end(), keyByOffset ? record.mOffset : record.mTime, record);
    };

    const ChunkOffsetHelper chunks(item);
    StscCursor stsc(reader, item.mStsc, chunks.NumEntries());
    std::uint64_t sampleIndex = 0;
    for (std::uint32_t c = 0; c < chunks.NumEntries() && sampleIndex < sampleTotal; ++c) {
        const std::uint64_t chunkOffset = chunks.GetEntry(c);
        // The place inside the chunk is kept at 64 bits, so sizes that add up
        // past 2^31 still give the true position rather than a wrapped one.
        std::uint64_t inChunk = 0;
        // The next `stsc` entry takes over at its first chunk; without entries
        // no chunk holds a sample.
        if (!stsc.IsLast() && stsc.NextFirstChunk() == std::uint64_t{c} + 1) stsc.Next();
        const auto perChunk = static_cast<std::int32_t>(stsc.SamplesPerChunk());
        for (std::int32_t k = 0; k < perChunk && sampleIndex < sampleTotal; ++k) {
            std::uint32_t size = 0;
            if (!CaptionSampleSize(sizes, sampleIndex, size)) return kResultCaptionTables;
            const std::uint64_t time = times.Time();
            // A sample that starts exactly at the end time is still inside.
            if (firstOnTimeLine && sampleIndex >= mEditFirstSample && time <= endTime) {
                if (!format) format = GetCaptionMediaFormat(0);
                const std::uint64_t position = chunkOffset + inChunk;
                if (*format == kC608 && size == kFixedC608Size && sizes.Constant() == kFixedC608Size) {
                    add({time, position + 8, 2, true, position + 18, 2});
                } else if (*format == kC608) {
                    if (!check.probed) check.Run(path, chunkOffset);
                    std::uint64_t pairs = size >= check.skip ? (size - check.skip) / 2 : 0;
                    // A size from a broken table would ask for billions of
                    // records: no sample holds more pairs than the file could.
                    if (check.fileSize) pairs = std::min(pairs, *check.fileSize / 2);
                    const std::uint64_t first = position + check.skip;
                    const auto step = static_cast<std::uint64_t>(static_cast<std::int64_t>(frameDuration));
                    for (std::uint64_t j = 0; j < pairs; ++j) add({time + j * step, first + 2 * j, 2, false, 0, 0});
                } else if (*format == kC708 && size > kCaptionHeader) {
                    add({time, position + kCaptionHeader, size - kCaptionHeader, false, 0, 0});
                }
            }
            inChunk += size;
            ++sampleIndex;
            times.Next();
        }
    }
    return kResultSuccess;
}

} // namespace QT
