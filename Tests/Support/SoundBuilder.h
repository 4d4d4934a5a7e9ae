// Sound descriptions, their extension atoms and sound tracks for tests.
#pragma once

#include "Tests/Support/MovieBuilder.h"

namespace testsupport {

// Versions 0 and 1: version, revision, vendor, channels, sample size,
// compression id, packet size and 16.16 rate, then `packetFields` bytes (16 in
// version 1) and `extensions`.
inline Bytes SoundDescriptionV0(const char* format, std::uint16_t channels, std::uint16_t sampleSize,
                                std::uint32_t rate16_16, const std::vector<Atom>& extensions = {},
                                std::uint16_t version = 0, std::size_t packetFields = 0)
{
    return SampleDescription(format, ByteWriter().U16(version).U16(0).U32(0).U16(channels).U16(sampleSize).U32(0)
                                         .U32(rate16_16).Zeros(packetFields).Raw(Concat(extensions)));
}

// Version 1 at 48 kHz unless told otherwise: extensions at 52.
inline Bytes SoundDescriptionV1(const char* format, std::uint16_t channels, std::uint16_t sampleSize,
                                const std::vector<Atom>& extensions = {}, std::uint32_t rate16_16 = 48000u << 16)
{
    return SoundDescriptionV0(format, channels, sampleSize, rate16_16, extensions, 1, 16);
}

// Version 2: the legacy fields at their fixed values (3 channels, 16 bits,
// rate 1.0), the 0x7f000000 marker at 52, and `extensions` at 72. Flags: 1
// float, 2 big-endian, 4 signed integer.
inline Bytes SoundDescriptionV2(const char* format, double rate, std::uint32_t channels, std::uint32_t bits,
                                std::uint32_t flags, std::uint32_t bytesPerPacket = 0,
                                std::uint32_t framesPerPacket = 1, const std::vector<Atom>& extensions = {})
{
    return SampleDescription(format, ByteWriter().U16(2).U16(0).U32(0).U16(3).U16(16).U32(0).U32(0x10000).U32(72)
                                         .F64(rate).U32(channels).U32(0x7f000000).U32(bits).U32(flags)
                                         .U32(bytesPerPacket).U32(framesPerPacket).Raw(Concat(extensions)));
}

inline Atom Wave(std::vector<Atom> children) { return Atom("wave", std::move(children)); }
inline Atom Enda(std::uint16_t word) { return Atom("enda", ByteWriter().U16(word)); }

// `chan`: version/flags, layout tag, bitmap, count, then a 20-byte channel
// description per label.
inline Atom Chan(std::uint32_t tag, std::uint32_t bitmap, const std::vector<std::uint32_t>& labels = {})
{
    ByteWriter w;
    w.U32(0).U32(tag).U32(bitmap).U32(static_cast<std::uint32_t>(labels.size()));
    for (std::uint32_t label : labels) w.U32(label).Zeros(16);
    return Atom("chan", w.Take());
}

inline TrackPlan SoundTrack(std::vector<Bytes> descriptions)
{
    TrackPlan t;
    t.mediaType = "soun";
    t.mediaTimeScale = 48000;
    t.descriptions = std::move(descriptions);
    return t;
}

inline std::string FourCCText(QT::FourCC c) { return {char(c >> 24), char(c >> 16), char(c >> 8), char(c)}; }

} // namespace testsupport
