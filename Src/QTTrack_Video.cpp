// Video tracks: image description properties and their export, the frame
// table and the temporal reference table.
#include "Src/QTTrack.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <tuple>

#include "Src/SampleTableCursors.h"
#include "Src/TraceSite.h"
#include "Src/VideoDescription.h"

namespace QT {

namespace {

constexpr FourCC kClap = MakeFourCC("clap");
constexpr FourCC kPasp = MakeFourCC("pasp");
constexpr FourCC kFiel = MakeFourCC("fiel");
constexpr FourCC kColr = MakeFourCC("colr");
constexpr FourCC kNclc = MakeFourCC("nclc");
constexpr FourCC kClut = MakeFourCC("clut");

constexpr std::uint32_t kClapPayload = 32;
constexpr std::uint32_t kPaspPayload = 8;
constexpr std::uint32_t kFielPayload = 2;
constexpr std::uint32_t kColrPayload = 10;

// Where a colour table atom may stand behind the fixed part.
constexpr std::uint32_t kClutTypeAt = 90;
constexpr std::uint32_t kClutMinSize = 94;

// The payload of the first extension atom of `type`, when it is exactly `size` bytes.
bool ExactExtension(const AtomReader& reader, AtomPtr description, FourCC type, std::uint32_t size,
                    AtomPtr& outPayload)
{
    std::uint32_t found = 0;
    return QTTrack::FindImageDescriptionExtension(reader, description, type, outPayload, found) && found == size;
}

// A track aperture atom: width and height at 12 and 16, signed 16.16. An
// atom too short to hold both counts as absent.
bool ReadApertureDimensions(const AtomReader& reader, AtomPtr atom, float& outWidth, float& outHeight)
{
    std::int32_t width = 0, height = 0;
    if (!atom || reader.U32Or(atom.Field(0)) < 20 || !reader.S32(atom.Field(12), width) ||
        !reader.S32(atom.Field(16), height)) {
        return false;
    }
    constexpr float kFixedOne = 1.0f / 65536.0f;
    outWidth = static_cast<float>(width) * kFixedOne;
    outHeight = static_cast<float>(height) * kFixedOne;
    return true;
}

// The fields by which two descriptions are compared; a field beyond its
// description is absent, and only equal to another absent field.
using DescriptionKey = std::tuple<std::optional<std::uint32_t>, std::optional<std::uint32_t>,
                                  std::optional<std::uint16_t>, std::optional<std::uint16_t>,
                                  std::optional<std::uint32_t>, std::optional<std::uint32_t>,
                                  std::optional<std::uint16_t>>;

DescriptionKey KeyOf(const DescriptionFields& d, bool withSize)
{
    return {withSize ? d.U32(kDescSize) : std::nullopt, d.U32(kDescFormat), d.U16(kDescWidth), d.U16(kDescHeight),
            d.U32(kDescHorizontalResolution), d.U32(kDescVerticalResolution), d.U16(kDescDepth)};
}

// Whether every description of `stsd` matches the first. The descriptions
// are walked once, by the rules of GetNthSampleDescriptionPtr: a description
// that cannot be reached (below 8 bytes, or leaving the atom) ends the walk
// with false, since nothing can be said of it.
bool DescriptionsAlike(const AtomReader& reader, AtomPtr stsd, bool withSize)
{
    const std::int32_t count = reader.S32Or(stsd.Field(12));
    if (count < 2) return true;
    const std::uint64_t end = std::min<std::uint64_t>(stsd.Field(reader.U32Or(stsd.Field(0))), reader.Size());
    std::uint64_t at = stsd.Field(16);
    std::optional<DescriptionKey> first;
    for (std::int32_t i = 0; i < count; ++i) {
        std::uint32_t size = 0;
        if (at > end || !reader.U32(at, size) || size < 8 || size > end - at) return false;
        const DescriptionKey key = KeyOf(DescriptionFields(reader, AtomPtr::At(static_cast<std::uint32_t>(at))), withSize);
        if (!first) first = key;
        else if (key != *first) return false;
        at += size;
    }
    return true;
}

// Byte reversal of one field of the platform copy, where it lies inside it.
void Reverse(Bytes& data, std::uint64_t offset, std::uint32_t width)
{
    if (offset > data.size() || width > data.size() - offset) return;
    std::reverse(data.begin() + static_cast<std::ptrdiff_t>(offset),
                 data.begin() + static_cast<std::ptrdiff_t>(offset + width));
}

// The platform form of a description copied to `data`: the extensions first,
// since their search reads the size and the colour table id in file order.
void ConvertToPlatformForm(Bytes& data)
{
    const AtomReader copy(data.data(), static_cast<std::uint32_t>(data.size()));
    const AtomPtr description = AtomPtr::At(0);
    AtomPtr payload;
    if (ExactExtension(copy, description, kPasp, kPaspPayload, payload)) {
        for (std::uint32_t i = 0; i < kPaspPayload; i += 4) Reverse(data, payload.Field(i), 4);
    }
    if (ExactExtension(copy, description, kClap, kClapPayload, payload)) {
        for (std::uint32_t i = 0; i < kClapPayload; i += 4) Reverse(data, payload.Field(i), 4);
    }
    if (ExactExtension(copy, description, kColr, kColrPayload, payload) && copy.U32Or(payload.Field(0)) == kNclc) {
        Reverse(data, payload.Field(0), 4);
        for (std::uint32_t i = 4; i < kColrPayload; i += 2) Reverse(data, payload.Field(i), 2);
    }
    // Size, format, reserved (4 + 2), data reference index, version, revision,
    // vendor, qualities, width, height, resolutions, data size, frame count,
    // depth, colour table id. The compressor name stays as it is.
    static constexpr std::uint32_t kWords[] = {0, 4, 8, 20, 24, 28, 36, 40, 44};
    static constexpr std::uint32_t kHalves[] = {12, 14, 16, 18, 32, 34, 48, 82, 84};
    for (std::uint32_t at : kWords) Reverse(data, at, 4);
    for (std::uint32_t at : kHalves) Reverse(data, at, 2);
}

// A blob of `size` bytes of the copy at `at`; empty when they are not all in
// the copy or no memory can be had.
Pelt::BinaryData CopyBytes(const AtomReader& reader, std::uint64_t at, std::uint32_t size)
{
    const std::uint8_t* bytes = size != 0 ? reader.Bytes(at, size) : nullptr;
    return bytes ? Pelt::BinaryData(bytes, size) : Pelt::BinaryData();
}

} // namespace

bool QTTrack::FindImageDescriptionExtension(const AtomReader& reader, AtomPtr description, FourCC type,
                                            AtomPtr& outPayload, std::uint32_t& outPayloadSize)
{
    std::uint32_t size = 0;
    if (!description || !reader.U32(description.Field(kDescSize), size) || size == kDescFixedSize) return false;
    const std::uint64_t end = std::min<std::uint64_t>(description.Field(size), reader.Size());
    std::uint64_t p = description.Field(kDescFixedSize);
    if (size >= kClutMinSize && reader.U16Or(description.Field(kDescColorTableId), 1) == 0 &&
        reader.U32Or(description.Field(kClutTypeAt)) == kClut) {
        p += reader.U32Or(p);
    }
    for (;;) {
        std::uint32_t atomSize = 0;
        if (p >= end || end - p < 8 || !reader.U32(p, atomSize) || atomSize < 8) return false;
        if (reader.U32Or(p + 4) == type && p + 8 < end) {
            // An atom that claims more bytes than its description holds is
            // not taken: its payload would be read from what lies behind.
            if (atomSize > end - p) return false;
            outPayload = AtomPtr::At(static_cast<std::uint32_t>(p + 8));
            outPayloadSize = atomSize - 8;
            return true;
        }
        p += atomSize;
    }
}

bool QTTrack::GetAllSampleDescriptionsEquivalent() { return DescriptionsAlike(Reader(), Item().mStsd, false); }

bool QTTrack::GetAllImageDescriptionsEquivalent(bool ignoreSize)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetAllImageDescriptionsEquivalent");
    return DescriptionsAlike(Reader(), Item().mStsd, !ignoreSize);
}

bool QTTrack::GetTrackCleanApertureDimensions(float& outWidth, float& outHeight)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetTrackCleanApertureDimensions");
    return ReadApertureDimensions(Reader(), Item().mClef, outWidth, outHeight);
}

bool QTTrack::GetTrackProductionApertureDimensions(float& outWidth, float& outHeight)
{
    return ReadApertureDimensions(Reader(), Item().mProf, outWidth, outHeight);
}

bool QTTrack::GetTrackEncodedPixelsDimensions(float& outWidth, float& outHeight)
{
    return ReadApertureDimensions(Reader(), Item().mEnof, outWidth, outHeight);
}

FourCC QTTrack::GetVideoMediaCompressionFourCC(std::int32_t index)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetVideoMediaCompressionFourCC");
    const AtomReader reader = Reader();
    return DescriptionFields(reader, GetNthSampleDescriptionPtr(Item().mStsd, index)).U32(kDescFormat).value_or(0);
}

FourCC QTTrack::GetVideoMediaVendorFourCC(std::int32_t index)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetVideoMediaVendorFourCC");
    const AtomReader reader = Reader();
    return DescriptionFields(reader, GetNthSampleDescriptionPtr(Item().mStsd, index)).U32(kDescVendor).value_or(0);
}

std::int32_t QTTrack::GetVideoMediaWidth(std::int32_t index)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetVideoMediaWidth");
    const AtomReader reader = Reader();
    const auto width = DescriptionFields(reader, GetNthSampleDescriptionPtr(Item().mStsd, index)).U16(kDescWidth);
    return static_cast<std::int16_t>(width.value_or(0));
}

std::int32_t QTTrack::GetVideoMediaHeight(std::int32_t index)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetVideoMediaHeight");
    const AtomReader reader = Reader();
    const auto height = DescriptionFields(reader, GetNthSampleDescriptionPtr(Item().mStsd, index)).U16(kDescHeight);
    return static_cast<std::int16_t>(height.value_or(0));
}

std::uint32_t QTTrack::GetVideoMediaDepth(std::int32_t index)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetVideoMediaDepth");
    const AtomReader reader = Reader();
    return DescriptionFields(reader, GetNthSampleDescriptionPtr(Item().mStsd, index)).U16(kDescDepth).value_or(0);
}

ResultCode QTTrack::GetVideoMediaCleanAperture(std::int32_t index, std::uint32_t& outWidthN, std::uint32_t& outWidthD,
                                               std::uint32_t& outHeightN, std::uint32_t& outHeightD,
                                               std::uint32_t& outOffsetXN, std::uint32_t& outOffsetXD,
                                               std::uint32_t& outOffsetYN, std::uint32_t& outOffsetYD)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetVideoMediaCleanAperture");
    const AtomReader reader = Reader();
    AtomPtr clap;
    if (!ExactExtension(reader, GetNthSampleDescriptionPtr(Item().mStsd, index), kClap, kClapPayload, clap)) {
        return kResultImageDescriptionItem;
    }
    std::uint32_t* const outputs[] = {&outWidthN,  &outWidthD,  &outHeightN,  &outHeightD,
                                      &outOffsetXN, &outOffsetXD, &outOffsetYN, &outOffsetYD};
    for (std::uint32_t i = 0; i < 8; ++i) *outputs[i] = reader.U32Or(clap.Field(4 * i));
    return kResultSuccess;
}

ResultCode QTTrack::GetVideoMediaPixelAspect(std::int32_t index, std::uint32_t& outHorizontal,
                                             std::uint32_t& outVertical)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetVideoMediaPixelAspect");
    const AtomReader reader = Reader();
    AtomPtr pasp;
    if (!ExactExtension(reader, GetNthSampleDescriptionPtr(Item().mStsd, index), kPasp, kPaspPayload, pasp)) {
        return kResultImageDescriptionItem;
    }
    outHorizontal = reader.U32Or(pasp.Field(0));
    outVertical = reader.U32Or(pasp.Field(4));
    return kResultSuccess;
}

ResultCode QTTrack::GetVideoMediaCodecName(std::int32_t index, String16& outName)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetVideoMediaCodecName");
    const AtomReader reader = Reader();
    const DescriptionFields description(reader, GetNthSampleDescriptionPtr(Item().mStsd, index));
    const std::optional<std::uint8_t> length = description.U8(kDescNameLength);
    if (!length) return kResultImageDescriptionItem;
    // The length byte may claim up to 255 bytes, past the 31 of the field;
    // the name is cut where its description ends.
    const std::uint32_t count = std::min<std::uint32_t>(*length, description.Size() - kDescName);
    char name[256] = {};
    if (const std::uint8_t* bytes = reader.Bytes(description.Where().Field(kDescName), count)) {
        std::copy(bytes, bytes + count, name);
    }
    outName = Tessel::MakeString(name);
    return kResultSuccess;
}

ResultCode QTTrack::GetVideoMediaQuality(std::int32_t index, std::uint32_t& outTemporal, std::uint32_t& outSpatial)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetVideoMediaQuality");
    const AtomReader reader = Reader();
    const DescriptionFields description(reader, GetNthSampleDescriptionPtr(Item().mStsd, index));
    const auto temporal = description.U32(kDescTemporalQuality);
    const auto spatial = description.U32(kDescSpatialQuality);
    if (!temporal || !spatial) return kResultImageDescriptionItem;
    outTemporal = *temporal;
    outSpatial = *spatial;
    return kResultSuccess;
}

ResultCode QTTrack::GetVideoMediaFieldInfo(std::int32_t index, std::uint32_t& outFieldCount,
                                           std::uint32_t& outFieldOrdering)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetVideoMediaFieldInfo");
    const AtomReader reader = Reader();
    AtomPtr fiel;
    if (!ExactExtension(reader, GetNthSampleDescriptionPtr(Item().mStsd, index), kFiel, kFielPayload, fiel)) {
        return kResultImageDescriptionItem;
    }
    const std::uint8_t count = reader.U8Or(fiel.Field(0));
    if (count != 1 && count != 2) return kResultImageDescriptionItem;
    outFieldCount = count;
    const std::uint8_t ordering = reader.U8Or(fiel.Field(1));
    if (ordering != 0 && ordering != 1 && ordering != 6 && ordering != 9 && ordering != 14) {
        return kResultImageDescriptionItem;
    }
    outFieldOrdering = ordering;
    return kResultSuccess;
}

ResultCode QTTrack::GetVideoMediaColorInfo(std::int32_t index, std::uint32_t& outPrimaries, std::uint32_t& outTransfer,
                                           std::uint32_t& outMatrix)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetVideoMediaColorInfo");
    const AtomReader reader = Reader();
    AtomPtr colr;
    if (!ExactExtension(reader, GetNthSampleDescriptionPtr(Item().mStsd, index), kColr, kColrPayload, colr) ||
        reader.U32Or(colr.Field(0)) != kNclc) {
        return kResultImageDescriptionItem;
    }
    // Values this system does not know become 2, unspecified.
    const std::uint16_t primaries = reader.U16Or(colr.Field(4));
    const std::uint16_t transfer = reader.U16Or(colr.Field(6));
    const std::uint16_t matrix = reader.U16Or(colr.Field(8));
    outPrimaries = (primaries == 1 || primaries == 5 || primaries == 6) ? primaries : 2;
    outTransfer = (transfer == 1 || transfer == 7) ? transfer : 2;
    outMatrix = (matrix == 1 || matrix == 6 || matrix == 7) ? matrix : 2;
    return kResultSuccess;
}

ResultCode QTTrack::GetVideoMediaArbitraryImageDescriptionExtensionAsBinary(std::int32_t index, FourCC type,
                                                                            Pelt::BinaryData& outData)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType,
                    "QT::QTTrack::GetVideoMediaArbitraryImageDescriptionExtensionAsBinary");
    const AtomReader reader = Reader();
    AtomPtr payload;
    std::uint32_t size = 0;
    if (!FindImageDescriptionExtension(reader, GetNthSampleDescriptionPtr(Item().mStsd, index), type, payload, size)) {
        return kResultNotFound;
    }
    Pelt::BinaryData copy = CopyBytes(reader, payload.Offset(), size);
    if (copy.Empty()) return kResultNotFound;
    outData = copy;
    return kResultSuccess;
}

ResultCode QTTrack::GetVideoMediaImageDescriptionAsBinary(std::int32_t index, Pelt::BinaryData& outData)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::GetVideoMediaImageDescriptionAsBinary");
    const AtomReader reader = Reader();
    const AtomPtr description = GetNthSampleDescriptionPtr(Item().mStsd, index);
    if (!description) return kResultNotFound;
    Pelt::BinaryData copy = CopyBytes(reader, description.Offset(), reader.U32Or(description.Field(kDescSize)));
    if (copy.Empty()) return kResultNotFound;
    outData = copy;
    return kResultSuccess;
}

ResultCode QTTrack::GetVideoMediaImageDescriptionAsPlatformBinary(std::int32_t index, Pelt::BinaryData& outData)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType,
                    "QT::QTTrack::GetVideoMediaImageDescriptionAsPlatformBinary");
    const AtomReader reader = Reader();
    const AtomPtr description = GetNthSampleDescriptionPtr(Item().mStsd, index);
    if (!description) return kResultNotFound;
    const std::uint32_t size = reader.U32Or(description.Field(kDescSize));
    const std::uint8_t* bytes = reader.Bytes(description.Offset(), size);
    if (!bytes || size == 0) return kResultNotFound;
    Bytes data(bytes, bytes + size);
    ConvertToPlatformForm(data);
    Pelt::BinaryData copy(data.data(), data.size());
    if (copy.Empty()) return kResultNotFound;
    outData = copy;
    return kResultSuccess;
}

bool QTTrack::VideoTrackContainsDeltaFrames()
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::VideoTrackContainsDeltaFrames");
    const AtomPtr stss = Item().mStss;
    return stss && Reader().U32Or(stss.Field(12)) != GetTotalSampleCount();
}

bool QTTrack::VideoTrackHasTemporalReferenceData() { return Item().mSdtp && Item().mCtts; }

bool QTTrack::VideoTrackHasEarlierDisplayKeyFrames()
{
    const AtomPtr sdtp = Item().mSdtp;
    if (!sdtp) return false;
    const SdtpFlags flags(Reader(), sdtp);
    for (std::uint32_t i = 0; i < flags.Count(); ++i) {
        const std::uint8_t f = flags.At(i);
        if ((f & kSdtpEarlierDisplayAllowed) != 0 && (f & kSdtpDependsOnNone) != 0) return true;
    }
    return false;
}

namespace {

// Lines of the temporal reference table.
TraceSite gInvalidSdtpTrace;
TraceSite gInvalidTableTrace;

void TraceInvalidTable() { gInvalidTableTrace.Emit("Invalid Quicktime sample table data detected."); }

// The distinct display indices that have come up: a bitmap over the table for
// those inside it, and a list for those outside, made distinct on demand.
class SeenIndices {
public:
    explicit SeenIndices(std::uint32_t tableSize) : mTableSize(tableSize), mBits((std::uint64_t{tableSize} + 63) / 64) {}

    void Insert(std::uint32_t index)
    {
        if (index < mTableSize) {
            std::uint64_t& word = mBits[index / 64];
            const std::uint64_t bit = std::uint64_t{1} << (index % 64);
            if ((word & bit) == 0) ++mInside;
            word |= bit;
        } else {
            mOutside.push_back(index);
        }
    }

    std::uint64_t Size()
    {
        std::sort(mOutside.begin(), mOutside.end());
        mOutside.erase(std::unique(mOutside.begin(), mOutside.end()), mOutside.end());
        return std::uint64_t{mInside} + mOutside.size();
    }

private:
    std::uint32_t mTableSize;
    std::vector<std::uint64_t> mBits;
    std::uint32_t mInside = 0;
    std::vector<std::uint32_t> mOutside;
};

// Samples that the runs of `stsc` can place in the chunk table, up to
// `limit`: each run's chunks that the table holds, times its samples per chunk.
std::uint32_t SamplesInChunks(StscCursor stsc, std::uint32_t chunkCount, std::uint32_t limit)
{
    std::uint64_t samples = 0;
    for (; !stsc.AtEnd() && samples < limit; stsc.Next()) {
        const std::uint64_t firstChunk = std::max<std::uint32_t>(stsc.FirstChunk(), 1) - 1;
        const std::uint64_t inTable = firstChunk < chunkCount ? chunkCount - firstChunk : 0;
        const std::uint64_t runChunks = stsc.IsLast() ? inTable : std::min<std::uint64_t>(stsc.RunChunks(0), inTable);
        samples += runChunks * stsc.SamplesPerChunk();
    }
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(samples, limit));
}

// The low 8 bits of a 32-bit difference of display indices.
std::int8_t Low8(std::uint32_t difference) { return static_cast<std::int8_t>(static_cast<std::uint8_t>(difference)); }

} // namespace

ResultCode QTTrack::MakeFullVideoSampleTable(bool sortByTime, bool ignoreEdits, std::vector<VideoSampleRecord>& outTable)
{
    return MakeVideoSampleTable(sortByTime, ignoreEdits, 0xffffffffu, outTable);
}

ResultCode QTTrack::MakeVideoSampleTable(bool sortByTime, bool ignoreEdits, std::uint32_t maxEntries,
                                         std::vector<VideoSampleRecord>& outTable)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::MakeVideoSampleTable");
    if (!ignoreEdits && !HasSimpleEditList(true)) return kResultEditListNotSimple;
    const std::uint32_t sampleCount = GetTotalSampleCount();
    if (sampleCount == 0) return kResultBadSampleTables;

    const AtomReader reader = Reader();
    const TrackItem& item = Item();
    const ChunkOffsetHelper chunks(item);
    const std::uint32_t chunkCount = chunks.NumEntries();
    const SampleSizes sizes(reader, item.mStsz);
    // Sizes whose entries would lie beyond their atom or the copy count as missing.
    if (sizes.Count() < sampleCount || sizes.KnownCount() < sampleCount) return kResultBadSampleTables;

    StscCursor stsc(reader, item.mStsc, chunkCount);
    // Each sample a chunk of its own: one `stsc` entry, a constant size, and
    // as many chunks as samples. The samples per chunk are not looked at.
    const bool oneEntry = reader.U32Or(item.mStsc.Field(12)) == 1 && stsc.EntryCount() == 1;
    // With sizes of their own, the walk by runs below gives the same places
    // when the one entry starts at chunk 1 with one sample per chunk and the
    // chunks reach every sample: sample i is then chunk i, at its start.
    const bool direct = oneEntry && ((sizes.Constant() != 0 && chunkCount == sampleCount) ||
                                     (stsc.FirstChunk() == 1 && stsc.SamplesPerChunk() == 1 &&
                                      chunkCount >= sampleCount));
    // Room for what this call can add, as far as the copy describes it: a
    // chunk for each sample in the direct form, else no more samples than the
    // runs of `stsc` can place in the chunk table. A sample count that nothing
    // in the copy backs (with a constant size `stts` alone tells it) thus
    // reserves nothing beyond that, and records come one by one as the walk
    // places them: a table costs no more than what is written. The capacity
    // is raised to this bound rather than to the sample count.
    const std::uint32_t described = direct ? sampleCount : SamplesInChunks(stsc, chunkCount, sampleCount);
    outTable.reserve(outTable.size() + std::min(maxEntries, described));

    // The edit numbers in locals: the stores into the table cannot change them.
    const std::uint32_t editEnd = mEditMediaTime + mEditDuration;
    const std::uint32_t editFirstSample = mEditFirstSample;
    const std::uint32_t editFirstSampleDuration = mEditFirstSampleDuration;

    // Sync samples, numbered from 1. A present `stss` without entries marks
    // the first sample only.
    const bool hasSync = static_cast<bool>(item.mStss);
    const SyncSamples sync(reader, item.mStss);
    std::uint32_t syncPosition = 0;
    std::uint32_t nextSync = sync.Count() > 0 ? sync.At(0) - 1 : 0;

    SttsCursor stts(reader, item.mStts);
    std::uint32_t storedDuration = stts.AtEnd() ? 0 : stts.Duration();
    std::uint32_t sttsCount = stts.Count(); // of the current entry, read once per entry
    std::uint32_t runFirstSample = 0;
    std::uint32_t sizeBeforeInChunk = 0; // sizes of the samples ahead in the chunk, summed in 32 bits
    // The previous sample's place in its run: chunk of the run and place in
    // the chunk, with the samples per chunk they were counted by. The next
    // sample of the same run moves on by one instead of dividing again.
    std::uint32_t chunkInRun = 0, inChunk = 0, placedPerChunk = 0;
    bool placed = false;
    // Samples of the current run, as last worked out, for the entry and the
    // samples per chunk they were worked out with.
    std::uint32_t runEntry = 0, runPerChunk = 0, runSamplesKnown = 0;
    bool runKnown = false;
    std::uint64_t baseChunk = std::numeric_limits<std::uint64_t>::max(), chunkBase = 0;
    std::uint32_t mediaTime = 0;
    std::uint32_t outputTime = 0;
    std::uint32_t added = 0;

    for (std::uint32_t sample = 0; sample < sampleCount; ++sample) {
        if (added >= maxEntries) break;
        VideoSampleRecord record;

        if (!hasSync) {
            record.mIsKeyFrame = true;
        } else if (nextSync == sample) {
            record.mIsKeyFrame = true;
            if (++syncPosition < sync.Count()) nextSync = sync.At(syncPosition) - 1;
        }

        record.mSize = sizes.SizeOf(sample);

        // A sample past the current `stts` entry moves on by one entry.
        if (sample - stts.FirstSample() >= sttsCount) {
            stts.Next();
            sttsCount = stts.Count();
            if (!stts.AtEnd()) storedDuration = stts.Duration();
        }

        if (direct) {
            record.mOffset = chunks.GetEntry(sample);
        } else {
            if (stsc.AtEnd()) return kResultNotFound;
            // Read once for the sample, and kept across a move to the next run.
            const std::uint32_t perChunk = stsc.SamplesPerChunk();
            int moves = 0;
            for (;; ++moves) {
                if (!runKnown || runEntry != stsc.Entry() || runPerChunk != perChunk) {
                    const std::uint32_t runChunks = stsc.RunChunks(std::uint64_t{stsc.FirstChunk()} - 1);
                    runSamplesKnown = perChunk * runChunks;
                    runEntry = stsc.Entry();
                    runPerChunk = perChunk;
                    runKnown = true;
                }
                const std::uint32_t runSamples = runSamplesKnown;
                if (sample - runFirstSample < runSamples) break;
                // One move to the next run is allowed for a sample: a run
                // without samples between two others ends the walk.
                if (moves == 1 || stsc.IsLast()) return kResultNotFound;
                runFirstSample += runSamples;
                stsc.Next();
            }
            if (placed && moves == 0 && perChunk == placedPerChunk) {
                if (++inChunk == perChunk) {
                    inChunk = 0;
                    ++chunkInRun;
                }
            } else {
                const std::uint32_t withinRun = sample - runFirstSample;
                chunkInRun = withinRun / perChunk;
                inChunk = withinRun % perChunk;
                placedPerChunk = perChunk;
                placed = true;
            }
            const std::uint64_t chunk = std::uint64_t{stsc.FirstChunk()} - 1 + chunkInRun;
            // A run that leads past the chunk table places no sample.
            if (chunk >= chunkCount) return kResultNotFound;
            if (inChunk == 0) sizeBeforeInChunk = 0;
            // Read once per chunk.
            if (chunk != baseChunk) {
                chunkBase = chunks.GetEntry(chunk);
                baseChunk = chunk;
            }
            record.mOffset = chunkBase + sizeBeforeInChunk;
            sizeBeforeInChunk += record.mSize;
        }

        std::uint32_t duration = storedDuration;
        bool shown = true;
        if (!ignoreEdits) {
            if (sample < editFirstSample || mediaTime >= editEnd) {
                shown = false;
            } else if (editFirstSampleDuration != 0 && sample == editFirstSample) {
                duration = editFirstSampleDuration;
            } else if (std::uint64_t{duration} + mediaTime > editEnd) {
                duration = editEnd - mediaTime;
            }
        }
        if (shown) {
            record.mDuration = duration;
            record.mTime = outputTime;
            outTable.push_back(record);
            ++added;
            outputTime += duration;
        }
        mediaTime += duration;
    }

    if (sortByTime) {
        std::sort(outTable.begin(), outTable.end(),
                  [](const VideoSampleRecord& a, const VideoSampleRecord& b) { return a.mTime < b.mTime; });
    }
    return kResultSuccess;
}

ResultCode QTTrack::MakeVideoTemporalReferenceTable(std::vector<VideoTemporalReference>& outTable)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kVideoMediaType, "QT::QTTrack::MakeVideoTemporalReferenceTable");
    const TrackItem& item = Item();
    if (!item.mSdtp || !item.mCtts) return kResultBadSampleTables;
    const AtomReader reader = Reader();
    const std::uint32_t sampleCount = GetTotalSampleCount();
    const SdtpFlags flags(reader, item.mSdtp);
    // Every sample needs its flag byte. An `sdtp` too short for the samples
    // cannot describe the track: the table is left untouched, which also keeps
    // its size bounded by the copy.
    if (flags.Count() < sampleCount) {
        TraceInvalidTable();
        return kResultBadSampleTables;
    }
    outTable.resize(sampleCount);

    const auto frameDuration = static_cast<std::int32_t>(SttsCursor(reader, item.mStts).Duration());
    const CttsEntries ctts(reader, item.mCtts);
    SeenIndices seen(sampleCount);
    std::uint32_t decodeIndex = 0;
    std::uint32_t anchor = 0;
    std::uint32_t previousAnchor = 0;
    std::uint32_t placed = 0;

    for (std::uint32_t entry = 0; entry < ctts.Count(); ++entry) {
        const std::int32_t count = ctts.SampleCount(entry);
        const std::int32_t offset = ctts.SampleOffset(entry);
        for (std::int32_t i = 0; i < count; ++i) {
            // No display index can be worked out without a usable frame
            // duration; and a `ctts` that counts more samples than the track
            // has would place flags outside the table.
            if (frameDuration == 0 || (frameDuration == -1 && offset == std::numeric_limits<std::int32_t>::min()) ||
                decodeIndex >= sampleCount) {
                TraceInvalidTable();
                return kResultBadSampleTables;
            }
            const std::uint32_t display = static_cast<std::uint32_t>(offset / frameDuration) + decodeIndex;
            seen.Insert(display);
            if (display < sampleCount) {
                VideoTemporalReference& record = outTable[display];
                record.mDecodeOffset = Low8(decodeIndex - display);
                ++placed;
                const std::uint8_t f = flags.At(decodeIndex);
                outTable[decodeIndex].mDependencyFlags = f;
                if ((f & kSdtpEarlierDisplayAllowed) && (f & kSdtpDependsOnNone)) {
                    // An anchor without references.
                    record.mEarlierReferenceOffset = 0;
                    record.mLaterReferenceOffset = 0;
                    if (anchor < display) {
                        previousAnchor = placed == 1 ? display : anchor;
                        anchor = display;
                    }
                } else if (f & kSdtpEarlierDisplayAllowed) {
                    // An anchor that refers to the one before it.
                    if (anchor < display) {
                        previousAnchor = anchor;
                        anchor = display;
                    }
                    record.mEarlierReferenceOffset = Low8(previousAnchor - display);
                    record.mLaterReferenceOffset = 0;
                } else if (f & kSdtpNoneDependsOnThis) {
                    // A frame between two anchors.
                    record.mEarlierReferenceOffset = Low8(previousAnchor - display);
                    record.mLaterReferenceOffset = Low8(anchor - display);
                } else {
                    gInvalidSdtpTrace.Emit("Found invalid sdtp atom data at frame ", seen.Size());
                    TraceInvalidTable();
                    return kResultBadSampleTables;
                }
            }
            ++decodeIndex;
        }
    }
    if (seen.Size() >= outTable.size()) return kResultSuccess;
    TraceInvalidTable();
    return kResultBadSampleTables;
}

} // namespace QT
