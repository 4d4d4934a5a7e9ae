#include "info/InfoTrack.h"

#include <cstdio>
#include <string_view>
#include <vector>

#include "common/MovieFile.h"
#include "common/Text.h"

namespace atomscan_tool {

std::string FormatNumber(double value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.2f", value);
    std::string s = text;
    if (s.find('.') != std::string::npos) {
        s.erase(s.find_last_not_of('0') + 1);
        if (s.back() == '.') s.pop_back();
    }
    return s;
}

std::string QuotedText(const std::string& utf8)
{
    std::string text = "\"";
    for (const char c : utf8) text.push_back(static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? '.' : c);
    return text + "\"";
}

std::string BytesPreview(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    bool printable = size > 0 && IsValidUtf8(bytes);
    for (const char c : bytes)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) printable = false;
    if (printable) return QuotedText(std::string(bytes));
    constexpr std::size_t kShown = 16;
    return HexText(data, size < kShown ? size : kShown) + (size > kShown ? "..." : "");
}

std::string UserDataPreview(std::uint32_t type, const Pelt::BinaryData& data)
{
    const std::uint8_t* p = data.Data();
    const std::size_t size = data.Size();
    if ((type >> 24) == 0xa9 && size >= 4) {
        const std::size_t length = (std::size_t{p[0]} << 8) | p[1];
        if (length == size - 4) return BytesPreview(p + 4, length);
    }
    return BytesPreview(p, size);
}

namespace {

// The media time of an edit that shows no media (-1 as the library gives it).
constexpr std::uint32_t kEmptyEditMediaTime = 0xFFFFFFFF;

std::string EditText(QT::IQTTrack& track, std::uint32_t movieTimeScale)
{
    if (!track.HasSimpleEditList(false))
        return "several edits over " + ClockText(track.GetTrackDuration(), movieTimeScale);
    const std::string length = ClockText(track.GetEditDuration(), movieTimeScale);
    if (track.GetEditMediaTime() == kEmptyEditMediaTime) return "empty for " + length;
    std::string text = "from " + ClockText(track.GetEditMediaTime(), track.GetMediaTimeScale()) + " for " + length;
    if (!track.HasSimpleEditList(true)) text += ", rate not 1";
    if (track.IsTrackTrimmed()) text += ", trimmed";
    return text;
}

// Frames a second of a video track: frames over the media's length.
std::optional<double> VideoRate(QT::IQTTrack& track)
{
    std::vector<QT::VideoSampleRecord> media;
    if (track.MakeFullVideoSampleTable(false, true, media) != QT::kResultSuccess || media.empty()) return std::nullopt;
    std::uint64_t length = 0;
    for (const QT::VideoSampleRecord& r : media) length += r.mDuration;
    if (length == 0) return std::nullopt;
    return double(media.size()) * track.GetMediaTimeScale() / double(length);
}

void SummarizeVideo(QT::IQTTrack& track, TrackSummary& s)
{
    if (track.GetSampleDescriptionCount() >= 1) {
        s.codec = track.GetVideoMediaCompressionFourCC(0);
        s.format = std::to_string(track.GetVideoMediaWidth(0)) + "x" + std::to_string(track.GetVideoMediaHeight(0));
        std::uint32_t h = 0, v = 0;
        if (track.GetVideoMediaPixelAspect(0, h, v) == QT::kResultSuccess && h != v)
            s.format += ", pixel aspect " + std::to_string(h) + ":" + std::to_string(v);
    }
    // The frames that the edit shows; none when the edit cannot be applied.
    std::vector<QT::VideoSampleRecord> shown;
    s.frames.reset();
    if (track.MakeFullVideoSampleTable(false, false, shown) == QT::kResultSuccess) s.frames = shown.size();
    s.rate = VideoRate(track);
}

void SummarizeAudio(QT::IQTTrack& track, TrackSummary& s)
{
    s.frames.reset();
    if (track.GetSampleDescriptionCount() < 1) return;
    s.codec = track.GetAudioMediaRawDataFormat(0);
    s.format = std::to_string(track.GetAudioMediaSampleRate(0)) + " Hz, " +
               std::to_string(track.GetAudioMediaNumChannels(0)) + " ch";
    if (!track.IsAudioMediaUncompressed(0)) return;
    s.format += ", " + std::to_string(track.GetAudioMediaBitsPerSample(0)) + "-bit " +
                FourCCText(track.GetAudioMediaDataFormat(0));
    // Frames of sound in the edit, from the ranges of the file that hold them.
    QT::AudioSampleRangeMap ranges;
    if (track.MakeAudioSampleRangeMap(ranges, false) != QT::kResultSuccess) return;
    std::uint64_t frames = 0;
    for (const auto& entry : ranges) frames += entry.second.mSampleCount;
    s.frames = frames;
}

void SummarizeTimecode(QT::IQTTrack& track, const std::string& moviePath, TrackSummary& s)
{
    if (track.GetSampleDescriptionCount() < 1) return;
    QT::TimecodeInfo info;
    QT::String16 name;
    if (track.GetTimecodeMediaInfo(info, name) != 0) return;
    if (info.mTicksPerFrame != 0) {
        s.rate = double(info.mTimeScale) / info.mTicksPerFrame;
        s.dropFrame = info.mDropFrame;
    }
    std::uint64_t offset = 0;
    std::uint32_t size = 0;
    if (track.GetTimecodeMediaSampleLocation(offset, size) != 0 || size > kLargestTimecodeSample) return;
    const auto bytes = ReadFileRange(moviePath, offset, size);
    if (!bytes) return;
    std::int64_t frame = 0;
    if (track.GetTimecodeFrameValue(Pelt::BinaryData(bytes->empty() ? nullptr : bytes->data(), bytes->size()), info,
                                    frame) != 0)
        return;
    if (auto text = TimecodeText(frame, info.mNumberOfFrames, info.mDropFrame)) s.format = "start " + *text;
    if (!name.empty()) s.format += ", source " + ToUtf8(name);
}

void SummarizeCaption(QT::IQTTrack& track, QT::FourCC format, const std::string& moviePath, TrackSummary& s)
{
    s.codec = format;
    QT::CaptionSampleMap captions;
    if (track.MakeCaptionSampleTable(ToString16(moviePath), captions, false) == QT::kResultSuccess)
        s.format = std::to_string(captions.size()) + " caption records";
}

} // namespace

TrackSummary SummarizeTrack(QT::IQTTrack& track, std::uint32_t movieTimeScale, const std::string& moviePath)
{
    TrackSummary s;
    const QT::FourCC mediaType = track.GetTrackMediaType();
    s.type = mediaType;
    s.enabled = track.IsTrackEnabled();
    s.frames = track.GetEditSampleCount();
    s.edit = EditText(track, movieTimeScale);
    if (mediaType == QT::kVideoMediaType) SummarizeVideo(track, s);
    else if (mediaType == QT::kAudioMediaType) SummarizeAudio(track, s);
    else if (mediaType == QT::kTimecodeMediaType) SummarizeTimecode(track, moviePath, s);
    if (track.GetSampleDescriptionCount() >= 1) {
        const QT::FourCC captionFormat = track.GetCaptionMediaFormat(0);
        if (captionFormat != QT::kUnknownMediaType) SummarizeCaption(track, captionFormat, moviePath, s);
    }
    return s;
}

std::array<std::string, kTrackFactCount> TrackCells(const TrackSummary& s)
{
    std::array<std::string, kTrackFactCount> cells;
    cells[kFactType] = FourCCText(s.type);
    cells[kFactEnabled] = s.enabled ? "yes" : "no";
    cells[kFactCodec] = s.codec ? FourCCText(*s.codec) : "-";
    cells[kFactFormat] = s.format;
    cells[kFactFrames] = s.frames ? std::to_string(*s.frames) : "";
    cells[kFactRate] = s.rate ? FormatNumber(*s.rate) + " fps" + (s.dropFrame ? " DF" : "") : "";
    cells[kFactEdit] = s.edit;
    return cells;
}

MovieSummary SummarizeMovie(QT::IQTMovie& movie, const std::string& moviePath)
{
    MovieSummary m;
    m.timeScale = movie.GetTimeScale();
    m.duration = movie.GetDuration();
    movie.GetBounds(m.bounds);
    const std::uint32_t count = movie.GetTrackCount();
    for (std::uint32_t i = 0; i < count; ++i) {
        Tessel::InterfaceRef<QT::IQTTrack> track = movie.GetIndTrack(i);
        m.tracks.push_back(SummarizeTrack(*track, m.timeScale, moviePath));
    }
    return m;
}

} // namespace atomscan_tool
