// Sound tracks: the sound description, the channel map of its `chan`
// extension, and the file ranges of the frames within the edit.
#include <algorithm>
#include <array>

#include "Src/QTTrack.h"
#include "Src/SampleTableCursors.h"

namespace QT {

namespace {

constexpr FourCC kWave = MakeFourCC("wave");
constexpr FourCC kEnda = MakeFourCC("enda");
constexpr FourCC kChan = MakeFourCC("chan");

constexpr FourCC kRaw = MakeFourCC("raw ");
constexpr FourCC kTwos = MakeFourCC("twos");
constexpr FourCC kSowt = MakeFourCC("sowt");
constexpr FourCC k16be = MakeFourCC("16be");
constexpr FourCC k16le = MakeFourCC("16le");
constexpr FourCC kIn24 = MakeFourCC("in24");
constexpr FourCC k42ni = MakeFourCC("42ni");
constexpr FourCC kIn32 = MakeFourCC("in32");
constexpr FourCC k23ni = MakeFourCC("23ni");
constexpr FourCC kFl32 = MakeFourCC("fl32");
constexpr FourCC k23lf = MakeFourCC("23lf");
constexpr FourCC kFl64 = MakeFourCC("fl64");
constexpr FourCC k46lf = MakeFourCC("46lf");
constexpr FourCC kLpcm = MakeFourCC("lpcm");
constexpr FourCC kMcpl = MakeFourCC("mcpl");
constexpr FourCC kMp4a = MakeFourCC("mp4a");
constexpr FourCC kAc3 = MakeFourCC("ac-3");
constexpr FourCC kEc3 = MakeFourCC("ec-3");
constexpr FourCC kUnkn = kUnknownMediaType;

// Places in a sound description, from its size field.
constexpr std::uint32_t kDescFormat = 4;
constexpr std::uint32_t kDescChannels = 24;     // signed 16-bit; 3 in version 2
constexpr std::uint32_t kDescSampleSize = 26;   // signed 16-bit; 16 in version 2
constexpr std::uint32_t kDescPacketSize = 30;
constexpr std::uint32_t kDescRate = 32;         // 16.16; 1.0 in version 2
constexpr std::uint32_t kDescV2Rate = 40;       // big-endian double
constexpr std::uint32_t kDescV2Channels = 48;
constexpr std::uint32_t kDescV2Marker = 52;
constexpr std::uint32_t kDescV2Bits = 56;
constexpr std::uint32_t kDescV2Flags = 60;
constexpr std::uint32_t kDescV2BytesPerPacket = 64;
constexpr std::uint32_t kDescV2FramesPerPacket = 68;
constexpr std::uint32_t kExtensionsV1 = 52;     // versions 0 and 1 alike
constexpr std::uint32_t kExtensionsV2 = 72;
constexpr std::uint32_t kV2Marker = 0x7f000000;

constexpr std::uint32_t kFlagFloat = 1u << 0;
constexpr std::uint32_t kFlagBigEndian = 1u << 1;
constexpr std::uint32_t kFlagSignedInteger = 1u << 2;

// Stored formats of descriptions that are not version 2. S is the sample
// size field; a row with kAnySize matches every S. The first matching row
// gives the code, by the byte order that `wave`/`enda` tell.
constexpr std::int32_t kAnySize = -1;
struct LegacyFormatRow {
    FourCC stored;
    std::int32_t sampleSize;
    FourCC bigEndian;
    FourCC littleEndian;
};
constexpr LegacyFormatRow kLegacyFormats[] = {
    {kIn32, kAnySize, kIn32, k23ni},
    {kIn24, kAnySize, kIn24, k42ni},
    {kFl32, kAnySize, kFl32, k23lf},
    {kFl64, kAnySize, kFl64, k46lf},
    {k23ni, kAnySize, k23ni, k23ni},
    {kTwos, 8, kTwos, kTwos},
    {kTwos, 24, kIn24, kIn24},
    {kTwos, kAnySize, k16be, k16be},
    {kSowt, 8, kTwos, kTwos},
    {kSowt, 24, k42ni, k42ni},
    {kSowt, kAnySize, k16le, k16le},
    {kLpcm, 16, k16be, k16le},
    {kLpcm, 24, kIn24, k42ni},
    {kLpcm, 32, kIn32, k23ni},
    {kLpcm, kAnySize, kUnkn, kUnkn},
    {kMcpl, 16, k16be, k16le},
    {kMcpl, 24, kIn24, k42ni},
    {kMcpl, 32, kIn32, k23ni},
    {kMcpl, kAnySize, kUnkn, kUnkn},
    {kRaw, kAnySize, kRaw, kRaw},
    {kMp4a, kAnySize, kMp4a, kMp4a},
    {kAc3, kAnySize, kAc3, kAc3},
    {kEc3, kAnySize, kEc3, kEc3},
};

// `lpcm` in a version 2 description, by its flags and bits per channel N.
// The first matching row gives the code, by the big-endian flag; no row: unkn.
enum class Bit { kAny, kSet, kClear };
struct LpcmRow {
    Bit isFloat;
    Bit isSigned;
    std::uint32_t bits;
    FourCC bigEndian;
    FourCC littleEndian;
};
constexpr std::uint32_t kAnyBits = 0;
constexpr LpcmRow kLpcmFormats[] = {
    {Bit::kSet, Bit::kSet, kAnyBits, kUnkn, kUnkn},
    {Bit::kAny, Bit::kSet, 8, kTwos, kTwos},
    {Bit::kAny, Bit::kClear, 8, kRaw, kRaw},
    {Bit::kSet, Bit::kAny, 16, kUnkn, kUnkn},
    {Bit::kAny, Bit::kAny, 16, k16be, k16le},
    {Bit::kSet, Bit::kAny, 24, kUnkn, kUnkn},
    {Bit::kAny, Bit::kAny, 24, kIn24, k42ni},
    {Bit::kClear, Bit::kAny, 32, kIn32, k23ni},
    {Bit::kSet, Bit::kAny, 32, kFl32, k23lf},
    {Bit::kSet, Bit::kAny, 64, kFl64, k46lf},
};

// Bits per sample of a description that is not version 2 and whose sample
// size field says 16: the format code decides; any other code gives 16.
struct FormatBitsRow {
    FourCC format;
    std::uint32_t bits;
};
constexpr FormatBitsRow kBitsOfFormat[] = {
    {kFl64, 64}, {k46lf, 64}, {kIn32, 32}, {k23ni, 32}, {kFl32, 32}, {k23lf, 32}, {kIn24, 24}, {k42ni, 24},
};

// The codes whose samples are not plain frames.
constexpr FourCC kCompressedFormats[] = {kMp4a, kAc3, kEc3, kUnkn};

// Tagged 5.1 layouts of a `chan` atom: the vector the host gets, by role.
constexpr std::uint32_t kLayoutUseDescriptions = 0;
constexpr std::uint32_t kLayoutUseBitmap = 0x10000;
struct LayoutRow {
    std::uint32_t tag;
    bool needsBitmap; // the row holds only with `bitmap`
    std::uint32_t bitmap;
    std::array<std::int32_t, 6> order;
};
constexpr LayoutRow kKnownLayouts[] = {
    {0x790006, false, 0, {0, 1, 2, 3, 4, 5}}, // L R C LFE Ls Rs
    {0x7a0006, false, 0, {0, 1, 4, 5, 2, 3}}, // L R Ls Rs C LFE
    {0x7b0006, false, 0, {0, 2, 1, 5, 3, 4}}, // L C R Ls Rs LFE
    {0x7c0006, false, 0, {1, 2, 0, 5, 3, 4}}, // C L R Ls Rs LFE
    {kLayoutUseBitmap, true, 63, {0, 1, 2, 3, 4, 5}},
};
constexpr std::uint32_t kChanHeader = 24;           // through the count of channel descriptions
constexpr std::uint32_t kChannelDescriptionSize = 20;
constexpr std::uint32_t kRolesOf51 = 6;

bool BitMatches(Bit want, bool have) { return want == Bit::kAny || (want == Bit::kSet) == have; }

// The first atom of `type` among those that follow each other from `begin`
// to `end`. The walk stops, with null, at an atom of size 0, one that passes
// `end`, or fewer than 8 bytes before `end`.
AtomPtr FindChildAtom(const AtomReader& reader, std::uint32_t begin, std::uint32_t end, FourCC type)
{
    AtomHeader header;
    for (std::uint32_t at = begin; at < end; at = header.next) {
        if (StepAtom(reader, at, end, 8, header) != StepResult::kGood) return AtomPtr();
        if (header.type == type) return AtomPtr::At(at);
    }
    return AtomPtr();
}

// One sound description in the store, read in place. The description lies
// inside `stsd` (GetNthSampleDescriptionPtr holds it there); a field beyond
// the description's own size reads as 0, so a short description is never
// read into its neighbour.
class SoundDescriptionView {
public:
    SoundDescriptionView(const AtomReader& reader, AtomPtr description)
        : mReader(reader), mDescription(description), mSize(reader.U32Or(description.Field(0)))
    {
        isVersion2 = static_cast<std::int32_t>(mSize) >= 52 && U16(kDescPacketSize) == 0 &&
                     S16(kDescSampleSize) == 16 && S16(kDescChannels) == 3 && U32(kDescRate) == 0x10000 &&
                     U32(kDescV2Marker) == kV2Marker;
    }

    bool isVersion2 = false;

    FourCC RawDataFormat() const { return U32(kDescFormat); }

    std::uint32_t SampleRate() const
    {
        if (!isVersion2) return U32(kDescRate) >> 16;
        const double rate = F64(kDescV2Rate);
        // A rate that is no number or does not fit 32 bits gives 0.
        if (!(rate > -1.0 && rate < 4294967296.0)) return 0;
        return static_cast<std::uint32_t>(rate);
    }

    std::uint32_t NumChannels() const
    {
        return isVersion2 ? U32(kDescV2Channels) : static_cast<std::uint32_t>(std::int32_t{S16(kDescChannels)});
    }

    FourCC DataFormat() const
    {
        const FourCC stored = RawDataFormat();
        if (isVersion2) {
            if (stored == kMp4a) return kMp4a;
            if (stored != kLpcm) return kUnkn;
            const std::uint32_t flags = U32(kDescV2Flags);
            const std::uint32_t bits = U32(kDescV2Bits);
            for (const LpcmRow& row : kLpcmFormats) {
                if (BitMatches(row.isFloat, flags & kFlagFloat) && BitMatches(row.isSigned, flags & kFlagSignedInteger) &&
                    (row.bits == kAnyBits || row.bits == bits))
                    return (flags & kFlagBigEndian) ? row.bigEndian : row.littleEndian;
            }
            return kUnkn;
        }
        const std::int32_t sampleSize = S16(kDescSampleSize);
        for (const LegacyFormatRow& row : kLegacyFormats) {
            if (row.stored == stored && (row.sampleSize == kAnySize || row.sampleSize == sampleSize))
                return row.bigEndian == row.littleEndian || !IsLittleEndian() ? row.bigEndian : row.littleEndian;
        }
        return kUnkn;
    }

    std::uint32_t BitsPerSample() const
    {
        if (isVersion2) return U32(kDescV2Bits);
        const std::int16_t sampleSize = S16(kDescSampleSize);
        if (sampleSize != 16) return static_cast<std::uint32_t>(std::int32_t{sampleSize});
        const FourCC format = DataFormat();
        for (const FormatBitsRow& row : kBitsOfFormat)
            if (row.format == format) return row.bits;
        return 16;
    }

    std::uint32_t PackedBitsPerSample() const
    {
        if (!isVersion2) return BitsPerSample();
        const std::uint32_t bytesPerPacket = U32(kDescV2BytesPerPacket);
        const std::uint32_t framesPerPacket = U32(kDescV2FramesPerPacket);
        const std::uint32_t channels = U32(kDescV2Channels);
        if (bytesPerPacket == 0 || framesPerPacket == 0 || channels == 0) return BitsPerSample();
        return bytesPerPacket / framesPerPacket * 8 / channels;
    }

    // The first extension atom of `type`, or null. Extensions start behind the
    // fixed fields (52, or 72 in version 2) and run to the description's end.
    AtomPtr FindSoundExtension(FourCC type) const
    {
        if (mSize <= 52) return AtomPtr();
        const std::uint32_t begin = mDescription.Offset() + (isVersion2 ? kExtensionsV2 : kExtensionsV1);
        return FindChildAtom(mReader, begin, mDescription.Offset() + mSize, type);
    }

private:
    // True when the first `enda` child of a `wave` extension holds a word
    // other than 0. An `enda` too short to hold its word counts as big-endian.
    bool IsLittleEndian() const
    {
        const AtomPtr wave = FindSoundExtension(kWave);
        if (!wave) return false;
        const std::uint32_t waveEnd = wave.Offset() + mReader.U32Or(wave.Field(0));
        const AtomPtr enda = FindChildAtom(mReader, wave.Offset() + 8, waveEnd, kEnda);
        if (!enda || mReader.U32Or(enda.Field(0)) < 10) return false;
        return mReader.U16Or(enda.Field(8)) != 0;
    }

    bool Inside(std::uint32_t rel, std::uint32_t width) const { return rel <= mSize && width <= mSize - rel; }
    std::uint32_t U32(std::uint32_t rel) const { return Inside(rel, 4) ? mReader.U32Or(mDescription.Field(rel)) : 0; }
    std::uint16_t U16(std::uint32_t rel) const { return Inside(rel, 2) ? mReader.U16Or(mDescription.Field(rel)) : 0; }
    std::int16_t S16(std::uint32_t rel) const { return static_cast<std::int16_t>(U16(rel)); }
    double F64(std::uint32_t rel) const
    {
        double value = 0;
        return Inside(rel, 8) && mReader.F64(mDescription.Field(rel), value) ? value : 0;
    }

    AtomReader mReader;
    AtomPtr mDescription;
    std::uint32_t mSize; // as stored; GetNthSampleDescriptionPtr has held it within `stsd`
};

} // namespace

std::uint32_t QTTrack::GetAudioMediaSampleRate(std::int32_t inSampleDescriptionIndex)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kAudioMediaType, "QT::QTTrack::GetAudioMediaSampleRate");
    const AtomPtr description = GetNthSampleDescriptionPtr(Item().mStsd, inSampleDescriptionIndex);
    return description ? SoundDescriptionView(Reader(), description).SampleRate() : 0;
}

std::uint32_t QTTrack::GetAudioMediaNumChannels(std::int32_t inSampleDescriptionIndex)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kAudioMediaType, "QT::QTTrack::GetAudioMediaNumChannels");
    const AtomPtr description = GetNthSampleDescriptionPtr(Item().mStsd, inSampleDescriptionIndex);
    return description ? SoundDescriptionView(Reader(), description).NumChannels() : 0;
}

std::uint32_t QTTrack::GetAudioMediaBitsPerSample(std::int32_t inSampleDescriptionIndex)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kAudioMediaType, "QT::QTTrack::GetAudioMediaBitsPerSample");
    const AtomPtr description = GetNthSampleDescriptionPtr(Item().mStsd, inSampleDescriptionIndex);
    return description ? SoundDescriptionView(Reader(), description).BitsPerSample() : 0;
}

std::uint32_t QTTrack::GetAudioMediaPackedBitsPerSample(std::int32_t inSampleDescriptionIndex)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kAudioMediaType, "QT::QTTrack::GetAudioMediaPackedBitsPerSample");
    const AtomPtr description = GetNthSampleDescriptionPtr(Item().mStsd, inSampleDescriptionIndex);
    return description ? SoundDescriptionView(Reader(), description).PackedBitsPerSample() : 0;
}

FourCC QTTrack::GetAudioMediaDataFormat(std::int32_t inSampleDescriptionIndex)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kAudioMediaType, "QT::QTTrack::GetAudioMediaDataFormat");
    const AtomPtr description = GetNthSampleDescriptionPtr(Item().mStsd, inSampleDescriptionIndex);
    return description ? SoundDescriptionView(Reader(), description).DataFormat() : kUnkn;
}

bool QTTrack::IsAudioMediaUncompressed(std::int32_t inSampleDescriptionIndex)
{
    const FourCC format = GetAudioMediaDataFormat(inSampleDescriptionIndex);
    return std::find(std::begin(kCompressedFormats), std::end(kCompressedFormats), format) ==
           std::end(kCompressedFormats);
}

FourCC QTTrack::GetAudioMediaRawDataFormat(std::int32_t inSampleDescriptionIndex)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kAudioMediaType, "QT::QTTrack::GetAudioMediaRawDataFormat");
    const AtomPtr description = GetNthSampleDescriptionPtr(Item().mStsd, inSampleDescriptionIndex);
    return description ? SoundDescriptionView(Reader(), description).RawDataFormat() : 0;
}

bool QTTrack::GetMultiChannelMap(std::int32_t inSampleDescriptionIndex, ChannelOrderMap& outChannelMap,
                                 bool& outLayoutNotUnderstood)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kAudioMediaType, "QT::QTTrack::GetMultiChannelMap");
    outLayoutNotUnderstood = false;
    const AtomReader reader = Reader();
    const AtomPtr description = GetNthSampleDescriptionPtr(Item().mStsd, inSampleDescriptionIndex);
    if (!description) return false;
    const SoundDescriptionView view(reader, description);
    const AtomPtr chan = view.FindSoundExtension(kChan);
    if (!chan) return false;

    // A `chan` too short for its tag, bitmap and count says nothing: it is
    // taken as absent.
    const std::uint32_t chanSize = reader.U32Or(chan.Field(0));
    if (chanSize < kChanHeader) return false;
    const std::uint32_t tag = reader.U32Or(chan.Field(12));
    const std::uint32_t bitmap = reader.U32Or(chan.Field(16));
    const std::uint32_t count = reader.U32Or(chan.Field(20));

    if (tag == kLayoutUseDescriptions) {
        // A count of channel descriptions that the atom cannot hold is a
        // damaged `chan`: answered like one that does not match the channels.
        if (count > (chanSize - kChanHeader) / kChannelDescriptionSize) return false;
        if (count != view.NumChannels()) return false;
        if (count != kRolesOf51) {
            outLayoutNotUnderstood = true;
            return true;
        }
        outChannelMap.assign(kRolesOf51, -1);
        for (std::uint32_t i = 0; i < kRolesOf51; ++i) {
            const std::uint32_t label = reader.U32Or(chan.Field(kChanHeader + kChannelDescriptionSize * i));
            if (label >= 1 && label <= kRolesOf51) outChannelMap[label - 1] = static_cast<std::int32_t>(i);
        }
        return true;
    }
    for (const LayoutRow& row : kKnownLayouts) {
        if (row.tag == tag && (!row.needsBitmap || row.bitmap == bitmap)) {
            outChannelMap.assign(row.order.begin(), row.order.end());
            return true;
        }
    }
    outLayoutNotUnderstood = true;
    return true;
}

ResultCode QTTrack::MakeAudioSampleRangeMap(AudioSampleRangeMap& outMap, bool inKeyByFileOffset)
{
    VELLUM_CONTRACT(GetTrackMediaType() == kAudioMediaType, "QT::QTTrack::MakeAudioSampleRangeMap");
    if (!HasSimpleEditList(true)) return kResultEditListNotSimple;

    // The first description speaks for the whole track. A track without one
    // has no channels to go by: its shape is refused, where asking for
    // description 0 would be a contract failure on the file's account.
    if (GetSampleDescriptionCount() < 1) return kResultAudioShape;
    const auto channels = static_cast<std::int16_t>(GetAudioMediaNumChannels(0));
    const auto bits = static_cast<std::int16_t>(GetAudioMediaBitsPerSample(0));
    if (channels < 1 || bits < 8 || bits > 64) return kResultAudioShape;
    // 12-bit samples count as one byte.
    const std::uint64_t bytesPerFrame = static_cast<std::uint64_t>(bits / 8) * static_cast<std::uint64_t>(channels);

    // One `stts` entry, or the rate is not constant. Its duration is not read.
    const AtomReader reader = Reader();
    const TrackItem& item = Item();
    SttsCursor stts(reader, item.mStts);
    if (reader.U32Or(item.mStts.Field(12)) != 1 || stts.EntryCount() != 1) return kResultAudioShape;
    // Widened as signed. The stop test below compares at unsigned 64 bits,
    // so a count of 2^31 or more never stops the walk early: it ends at the
    // end of the chunk table.
    const std::int64_t totalSamples = static_cast<std::int32_t>(stts.Count());
    if (totalSamples == 0) return kResultSuccess;

    // For sound the edit's media time is a frame number.
    const std::uint64_t start = mEditFirstSample;
    const std::uint64_t end = std::uint64_t{mEditFirstSample} + mEditDuration;

    // One pass over the runs and the chunks. Chunks count from 0 in the order
    // of the runs; no run passes the chunk table, whose count is bounded by
    // the copy, so a hostile run or count cannot lengthen the walk.
    const ChunkOffsetHelper chunks(item);
    const std::uint32_t chunkCount = chunks.NumEntries();
    std::uint64_t position = 0; // frame number of the current chunk's first frame
    std::uint64_t chunkIndex = 0;
    std::uint64_t outputPosition = 0;
    std::uint64_t chunksSeen = 0; // chunks of the runs before the last
    for (StscCursor stsc(reader, item.mStsc, chunkCount); !stsc.AtEnd() && chunkIndex < chunkCount; stsc.Next()) {
        const std::uint32_t run = stsc.RunChunks(chunksSeen);
        if (!stsc.IsLast()) chunksSeen += run;
        const std::uint64_t samplesPerChunk = stsc.SamplesPerChunk();
        for (std::uint32_t k = 0; k < run && chunkIndex < chunkCount; ++k, ++chunkIndex) {
            const std::uint64_t chunkEnd = position + samplesPerChunk;
            if (chunkEnd >= start && position <= end) {
                std::uint64_t offset = chunks.GetEntry(chunkIndex);
                std::uint64_t frames = samplesPerChunk;
                if (start > position) {
                    frames -= start - position;
                    offset += (start - position) * bytesPerFrame;
                }
                if (chunkEnd > end) frames = end - std::max(position, start);
                if (frames != 0) {
                    // An existing key keeps its range; the frames still count.
                    // Keys mostly rise, so the end is the hint: a rising key
                    // goes in without a search of the tree.
                    outMap.emplace_hint(outMap.end(), inKeyByFileOffset ? offset : outputPosition,
                                        AudioSampleRange{frames, outputPosition, offset});
                    outputPosition += frames;
                }
            }
            position = chunkEnd;
        }
        // Only at the end of a run: a run is always finished.
        if (position >= static_cast<std::uint64_t>(totalSamples)) break;
    }
    return kResultSuccess;
}

} // namespace QT
