#include "Tests/Support/MovieBuilder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace testsupport {

ByteWriter& ByteWriter::F64(double v)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &v, sizeof bits);
    return U64(bits);
}

ByteWriter& ByteWriter::Code(const char* fourcc)
{
    if (std::strlen(fourcc) != 4) throw std::invalid_argument("four-character code expected");
    return Text(fourcc);
}

Bytes Atom::Serialize() const
{
    ByteWriter w;
    const Bytes body = ByteWriter().Raw(payload).Raw(Concat(children));
    if (wide) w.U32(size.value_or(1)).Code(type.c_str()).U64(body.size() + 16);
    else w.U32(size.value_or(static_cast<std::uint32_t>(body.size() + 8))).Code(type.c_str());
    return w.Raw(body).Take();
}

Atom Stsz(std::uint32_t constantSize, const std::vector<std::uint32_t>& sizes, std::optional<std::uint32_t> count)
{
    ByteWriter w;
    w.U32(0).U32(constantSize).U32(count.value_or(static_cast<std::uint32_t>(sizes.size())));
    for (std::uint32_t s : constantSize ? std::vector<std::uint32_t>{} : sizes) w.U32(s);
    return Atom("stsz", w.Take());
}

Atom Stsd(const std::vector<Bytes>& descriptions)
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(descriptions.size()));
    for (const Bytes& d : descriptions) w.Raw(d);
    return Atom("stsd", w.Take());
}

Bytes SampleDescription(const char* format, const Bytes& body)
{
    return ByteWriter().U32(static_cast<std::uint32_t>(16 + body.size())).Code(format).Zeros(6).U16(1).Raw(body);
}

Bytes HdlrPayload(const char* subtype) { return ByteWriter().U32(0).Code("mhlr").Code(subtype).Zeros(13); }

Bytes ImageDescription(const ImageDescriptionPlan& p)
{
    ByteWriter w; // resolutions 72 dpi, one frame
    w.U32(p.size.value_or(static_cast<std::uint32_t>(86 + p.extensions.size()))).Code(p.format.c_str()).Zeros(6).U16(1)
        .U32(0).Code(p.vendor.c_str()).U32(p.temporalQuality).U32(p.spatialQuality).U16(p.width).U16(p.height)
        .U32(0x480000).U32(0x480000).U32(p.dataSize).U16(1);
    Bytes name(32, 0);
    name[0] = p.nameLength.value_or(static_cast<std::uint8_t>(p.name.size()));
    std::copy_n(p.name.begin(), std::min<std::size_t>(p.name.size(), 31), name.begin() + 1);
    return w.Raw(name).U16(p.depth).U16(p.colorTableId).Raw(p.extensions);
}

Atom Keys(const std::vector<std::string>& keys, std::optional<std::int32_t> count)
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(count.value_or(static_cast<std::int32_t>(keys.size()))));
    for (const std::string& k : keys) w.U32(static_cast<std::uint32_t>(8 + k.size())).Code("mdta").Text(k);
    return Atom("keys", w.Take());
}

Atom Ilst(const std::vector<MetadataItem>& items)
{
    ByteWriter w;
    for (const MetadataItem& i : items) {
        const auto size = static_cast<std::uint32_t>(i.value.size());
        w.U32(24 + size).U32(static_cast<std::uint32_t>(i.keyIndex)).U32(16 + size).Code("data").U32(i.dataType).U32(0)
            .Raw(i.value);
    }
    return Atom("ilst", w.Take());
}

namespace {

// The identity matrix of `tkhd` and `mvhd`.
ByteWriter& Identity(ByteWriter& w) { return w.U32(0x10000).Zeros(12).U32(0x10000).Zeros(12).U32(0x40000000); }

} // namespace

Atom BuildTrak(const TrackPlan& plan)
{
    ByteWriter tkhd; // flags, times, track id 1, duration, layer, group, volume, matrix, width, height
    tkhd.U32(plan.flags).Zeros(8).U32(1).U32(0).U32(plan.duration).Zeros(16);
    Identity(tkhd).U32(static_cast<std::uint32_t>(plan.width << 16)).U32(static_cast<std::uint32_t>(plan.height << 16));
    std::vector<Atom> trak{Atom("tkhd", tkhd.Take())};
    if (plan.edits) trak.emplace_back("edts", std::vector<Atom>{Table("elst", *plan.edits)});

    std::vector<Bytes> descriptions = plan.descriptions;
    if (descriptions.empty()) descriptions.push_back(SampleDescription("data", {}));
    std::vector<Atom> stbl{Stsd(descriptions), Table("stts", plan.stts)};
    if (plan.stss) stbl.push_back(Table("stss", *plan.stss));
    stbl.push_back(Table("stsc", plan.stsc));
    stbl.push_back(Stsz(plan.stszConstant, plan.stszSizes));
    stbl.push_back(plan.co64 ? Table("co64", *plan.co64) : Stco(plan.stco));
    stbl.insert(stbl.end(), plan.extraStbl.begin(), plan.extraStbl.end());
    for (const Atom& replacement : plan.replaceStbl)
        for (Atom& child : stbl)
            if (child.type == replacement.type) child = replacement;

    const Atom mediaHeader = plan.mediaType == "vide"   ? Atom("vmhd", ByteWriter().U32(1).Zeros(8))
                             : plan.mediaType == "soun" ? Atom("smhd", Bytes(8))
                                                        : Atom("gmhd");
    const Atom selfContained("dinf", {Atom("dref", ByteWriter().U32(0).U32(1), {Atom("alis", ByteWriter().U32(1))})});
    const Atom mdhd("mdhd", ByteWriter().Zeros(12).U32(plan.mediaTimeScale).U32(plan.mediaDuration).Zeros(4));
    const Atom hdlr("hdlr", HdlrPayload(plan.hdlrSubtype.value_or(plan.mediaType).c_str()));
    trak.emplace_back("mdia", std::vector<Atom>{
                                  mdhd, hdlr, Atom("minf", {mediaHeader, plan.dinf.value_or(selfContained), Atom("stbl", stbl)})});
    return Atom("trak", trak);
}

Atom BuildMoov(const MoviePlan& plan)
{
    ByteWriter mvhd; // times, scale, duration, rate 1, volume 1, matrix, preview, poster, selection, current, next id
    mvhd.Zeros(12).U32(plan.timeScale).U32(plan.duration).U32(0x10000).U16(0x100).Zeros(10);
    std::vector<Atom> moov{Atom("mvhd", Identity(mvhd).Zeros(24).U32(2).Take())};
    for (const TrackPlan& t : plan.tracks) moov.push_back(BuildTrak(t));
    moov.insert(moov.end(), plan.extraMoov.begin(), plan.extraMoov.end());
    return Atom("moov", moov);
}

Bytes Concat(const std::vector<Atom>& atoms)
{
    ByteWriter w;
    for (const Atom& a : atoms) w.Raw(a.Serialize());
    return w.Take();
}

Bytes BuildMovieFile(const MoviePlan& plan, const Bytes& mdatPayload)
{
    return Concat({Atom("ftyp", ByteWriter().Code("qt  ").U32(0x200).Code("qt  ")), BuildMoov(plan),
                   Atom("mdat", mdatPayload)});
}

TempFile::TempFile(const Bytes& contents, const std::string& name)
{
    std::string dir = (std::filesystem::temp_directory_path() / "atomscan-test-XXXXXX").string();
    if (!::mkdtemp(dir.data())) throw std::runtime_error("mkdtemp failed");
    mDir = dir;
    mPath = mDir / name;
    std::ofstream out(mPath, std::ios::binary);
    out.write(reinterpret_cast<const char*>(contents.data()), static_cast<std::streamsize>(contents.size()));
    if (!out) throw std::runtime_error("cannot write " + mPath.string());
}

TempFile::~TempFile()
{
    std::error_code ec;
    std::filesystem::remove_all(mDir, ec);
}

QT::String16 TempFile::Path16() const { return ToString16(mPath.string()); }

Bytes TempFile::Read() const { return ReadFile(mPath); }

QT::String16 ToString16(const std::string& utf8) { return vellum::utility::UTF8to16(utf8, nullptr, nullptr); }

Bytes ReadFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::filesystem::path TestDataDir() { return ATOMSCAN_TEST_DATA_DIR; }

} // namespace testsupport
