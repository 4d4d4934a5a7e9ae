// Sound descriptions, their extension atoms and sound tracks for tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Inc/IAtomscan.h"
#include "Inc/IQTMovie.h"
#include "Tests/Support/MovieBuilder.h"

namespace testsupport {

// The fixed fields of versions 0 and 1 behind the common 16 bytes: version,
// revision, vendor, channels, sample size, compression id, packet size, rate.
inline ByteWriter SoundFields(std::uint16_t version, std::uint16_t channels, std::uint16_t sampleSize,
                              std::uint32_t rate16_16, std::uint16_t packetSize = 0)
{
    ByteWriter w;
    w.U16(version).U16(0).U32(0).U16(channels).U16(sampleSize).U16(0).U16(packetSize).U32(rate16_16);
    return w;
}

// A version 0 description; `extensions` follow the 36 fixed bytes directly.
inline Bytes SoundDescriptionV0(const char* format, std::uint16_t channels, std::uint16_t sampleSize,
                                std::uint32_t rate16_16, const std::vector<Atom>& extensions = {})
{
    return SampleDescription(format, SoundFields(0, channels, sampleSize, rate16_16).Raw(Concat(extensions)));
}

// A version 1 description: 16 more bytes (samples per packet, bytes per
// packet, bytes per frame, bytes per sample), then `extensions` at 52.
inline Bytes SoundDescriptionV1(const char* format, std::uint16_t channels, std::uint16_t sampleSize,
                                std::uint32_t rate16_16, const std::vector<Atom>& extensions = {})
{
    ByteWriter body = SoundFields(1, channels, sampleSize, rate16_16);
    body.U32(1).U32(sampleSize / 8u).U32(channels * (sampleSize / 8u)).U32(sampleSize / 8u);
    return SampleDescription(format, body.Raw(Concat(extensions)));
}

struct SoundV2 {
    double rate = 48000;
    std::uint32_t channels = 2;
    std::uint32_t bits = 16;
    std::uint32_t flags = 0;
    std::uint32_t bytesPerPacket = 4;
    std::uint32_t framesPerPacket = 1;
};

// A version 2 description: the legacy fields at their fixed values, the
// 0x7f000000 marker at 52, then `extensions` at 72.
inline Bytes SoundDescriptionV2(const char* format, const SoundV2& v, const std::vector<Atom>& extensions = {})
{
    ByteWriter body = SoundFields(2, 3, 16, 0x10000);
    body.U32(72).F64(v.rate).U32(v.channels).U32(0x7f000000).U32(v.bits).U32(v.flags).U32(v.bytesPerPacket)
        .U32(v.framesPerPacket);
    return SampleDescription(format, body.Raw(Concat(extensions)));
}

inline Atom Wave(std::vector<Atom> children) { return Atom("wave", std::move(children)); }
inline Atom Enda(std::uint16_t word) { return Atom("enda", ByteWriter().U16(word)); }
inline Atom Frma(const char* format) { return Atom("frma", ByteWriter().Code(format)); }

// `chan`: version/flags, layout tag, bitmap, count, then one 20-byte channel
// description per label. `count` overrides the stored count.
inline Atom Chan(std::uint32_t tag, std::uint32_t bitmap, const std::vector<std::uint32_t>& labels = {},
                 std::optional<std::uint32_t> count = {})
{
    ByteWriter w;
    w.U32(0).U32(tag).U32(bitmap).U32(count.value_or(static_cast<std::uint32_t>(labels.size())));
    for (std::uint32_t label : labels) w.U32(label).U32(0).U32(0).U32(0).U32(0);
    return Atom("chan", w.Take());
}

// A sound track of one description, in a movie whose time scale equals the
// media time scale unless set otherwise.
inline TrackSpec SoundTrack(const Bytes& description)
{
    TrackSpec t;
    t.mediaType = "soun";
    t.mediaTimeScale = 48000;
    t.descriptions = {description};
    return t;
}

inline Tessel::InterfaceRef<QT::IQTMovie> OpenMovieSpec(const MovieSpec& plan)
{
    TempFile file(BuildMovieFile(plan));
    Tessel::InterfaceRef<QT::IQTMovie> movie;
    if (QT::MakeParser()->OpenMovie(file.Path16(), movie) != QT::kResultSuccess) return {};
    return movie;
}

// Track 0 of a movie with just this track, the movie time scale at 48000.
inline Tessel::InterfaceRef<QT::IQTTrack> OpenTrack(const TrackSpec& track, std::uint32_t movieTimeScale = 48000)
{
    MovieSpec plan;
    plan.timeScale = movieTimeScale;
    plan.tracks = {track};
    Tessel::InterfaceRef<QT::IQTMovie> movie = OpenMovieSpec(plan);
    if (!movie) return {};
    return movie->GetIndTrack(0);
}

inline std::string FourCCText(QT::FourCC code)
{
    std::string s(4, ' ');
    for (int i = 0; i < 4; ++i) s[i] = static_cast<char>(code >> (24 - 8 * i));
    return s;
}

} // namespace testsupport
