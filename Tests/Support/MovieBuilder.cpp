#include "Tests/Support/MovieBuilder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace testsupport {

ByteWriter& ByteWriter::U8(std::uint32_t v)
{
    mBytes.push_back(static_cast<std::uint8_t>(v));
    return *this;
}
ByteWriter& ByteWriter::U16(std::uint32_t v) { return U8(v >> 8).U8(v); }
ByteWriter& ByteWriter::U32(std::uint32_t v) { return U16(v >> 16).U16(v); }
ByteWriter& ByteWriter::U64(std::uint64_t v) { return U32(static_cast<std::uint32_t>(v >> 32)).U32(static_cast<std::uint32_t>(v)); }
ByteWriter& ByteWriter::F64(double v)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &v, sizeof bits);
    return U64(bits);
}
ByteWriter& ByteWriter::Code(const char* fourcc)
{
    if (std::strlen(fourcc) != 4) throw std::invalid_argument("four-character code expected");
    for (int i = 0; i < 4; ++i) U8(static_cast<unsigned char>(fourcc[i]));
    return *this;
}
ByteWriter& ByteWriter::Raw(const Bytes& b)
{
    mBytes.insert(mBytes.end(), b.begin(), b.end());
    return *this;
}
ByteWriter& ByteWriter::Text(const std::string& s)
{
    mBytes.insert(mBytes.end(), s.begin(), s.end());
    return *this;
}
ByteWriter& ByteWriter::Zeros(std::size_t n)
{
    mBytes.insert(mBytes.end(), n, 0);
    return *this;
}

Bytes Atom::Serialize() const
{
    Bytes body = payload;
    for (const Atom& child : children) {
        Bytes c = child.Serialize();
        body.insert(body.end(), c.begin(), c.end());
    }
    ByteWriter w;
    if (wide) {
        w.U32(size.value_or(1)).Code(type.c_str()).U64(body.size() + 16);
    } else {
        w.U32(size.value_or(static_cast<std::uint32_t>(body.size() + 8))).Code(type.c_str());
    }
    w.Raw(body);
    return w.Take();
}

Bytes MvhdPayload(std::uint32_t timeScale, std::uint32_t duration, std::uint32_t posterTime)
{
    ByteWriter w;
    w.U32(0).U32(0).U32(0).U32(timeScale).U32(duration).U32(0x10000).U16(0x100).Zeros(10);
    for (std::uint32_t v : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u}) w.U32(v);
    // preview time, preview duration, poster time, selection time/duration, current time, next track id
    w.U32(0).U32(0).U32(posterTime).U32(0).U32(0).U32(0).U32(2);
    return w.Take();
}

Bytes TkhdPayload(std::uint32_t flags, std::uint32_t duration, std::int32_t width16_16, std::int32_t height16_16,
                  std::vector<std::uint32_t> matrix)
{
    if (matrix.empty()) matrix = {0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};
    ByteWriter w;
    w.U32(flags).U32(0).U32(0).U32(1).U32(0).U32(duration).Zeros(8).U16(0).U16(0).U16(0).U16(0);
    for (std::uint32_t v : matrix) w.U32(v);
    w.U32(static_cast<std::uint32_t>(width16_16)).U32(static_cast<std::uint32_t>(height16_16));
    return w.Take();
}

Bytes MdhdPayload(std::uint32_t timeScale, std::uint32_t duration)
{
    return ByteWriter().U32(0).U32(0).U32(0).U32(timeScale).U32(duration).U16(0).U16(0);
}

Bytes HdlrPayload(const char* subtype, const char* componentType)
{
    return ByteWriter().U32(0).Code(componentType).Code(subtype).U32(0).U32(0).U32(0).U8(0);
}

Atom Elst(const std::vector<std::array<std::uint32_t, 3>>& edits)
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(edits.size()));
    for (const auto& e : edits) w.U32(e[0]).U32(e[1]).U32(e[2]);
    return Atom("elst", w.Take());
}

Atom Stts(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& entries)
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(entries.size()));
    for (const auto& e : entries) w.U32(e.first).U32(e.second);
    return Atom("stts", w.Take());
}

Atom Stsc(const std::vector<std::array<std::uint32_t, 3>>& entries)
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(entries.size()));
    for (const auto& e : entries) w.U32(e[0]).U32(e[1]).U32(e[2]);
    return Atom("stsc", w.Take());
}

Atom Stsz(std::uint32_t constantSize, const std::vector<std::uint32_t>& sizes, std::optional<std::uint32_t> count)
{
    ByteWriter w;
    w.U32(0).U32(constantSize).U32(count.value_or(static_cast<std::uint32_t>(sizes.size())));
    if (constantSize == 0)
        for (std::uint32_t s : sizes) w.U32(s);
    return Atom("stsz", w.Take());
}

Atom Stco(const std::vector<std::uint32_t>& offsets)
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(offsets.size()));
    for (std::uint32_t o : offsets) w.U32(o);
    return Atom("stco", w.Take());
}

Atom Co64(const std::vector<std::uint64_t>& offsets)
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(offsets.size()));
    for (std::uint64_t o : offsets) w.U64(o);
    return Atom("co64", w.Take());
}

Atom Stss(const std::vector<std::uint32_t>& syncSamples)
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(syncSamples.size()));
    for (std::uint32_t s : syncSamples) w.U32(s);
    return Atom("stss", w.Take());
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
    ByteWriter w;
    w.U32(static_cast<std::uint32_t>(16 + body.size())).Code(format).Zeros(6).U16(1).Raw(body);
    return w.Take();
}

Atom SelfContainedDinf()
{
    Atom alis("alis", ByteWriter().U32(1));
    Atom dref("dref", ByteWriter().U32(0).U32(1), {alis});
    return Atom("dinf", {dref});
}

Bytes ImageDescription(const ImageDescriptionPlan& plan)
{
    ByteWriter w;
    w.U32(plan.size.value_or(static_cast<std::uint32_t>(86 + plan.extensions.size())))
        .Code(plan.format.c_str())
        .Zeros(6)
        .U16(1)
        .U16(0)
        .U16(0)
        .Code(plan.vendor.c_str())
        .U32(plan.temporalQuality)
        .U32(plan.spatialQuality)
        .U16(plan.width)
        .U16(plan.height)
        .U32(plan.horizontalResolution)
        .U32(plan.verticalResolution)
        .U32(plan.dataSize)
        .U16(plan.frameCount);
    Bytes name(32, 0);
    name[0] = plan.nameLength.value_or(static_cast<std::uint8_t>(plan.name.size()));
    std::copy_n(plan.name.begin(), std::min<std::size_t>(plan.name.size(), 31), name.begin() + 1);
    w.Raw(name).U16(plan.depth).U16(plan.colorTableId).Raw(plan.extensions);
    return w.Take();
}

Atom Sdtp(const Bytes& flags) { return Atom("sdtp", ByteWriter().U32(0).Raw(flags)); }

Atom Ctts(const std::vector<std::pair<std::uint32_t, std::int32_t>>& entries)
{
    ByteWriter w;
    w.U32(0).U32(static_cast<std::uint32_t>(entries.size()));
    for (const auto& e : entries) w.U32(e.first).U32(static_cast<std::uint32_t>(e.second));
    return Atom("ctts", w.Take());
}

Atom BuildTrak(const TrackPlan& plan)
{
    std::vector<Atom> trak;
    trak.emplace_back("tkhd", TkhdPayload(plan.flags, plan.duration, plan.width << 16, plan.height << 16, plan.matrix));
    for (const Atom& a : plan.beforeMdia) trak.push_back(a);
    if (plan.edits) trak.emplace_back("edts", std::vector<Atom>{Elst(*plan.edits)});

    std::vector<Atom> stbl;
    std::vector<Bytes> descriptions = plan.descriptions;
    if (descriptions.empty()) descriptions.push_back(SampleDescription("data", {}));
    stbl.push_back(Stsd(descriptions));
    stbl.push_back(Stts(plan.stts));
    if (plan.stss) stbl.push_back(Stss(*plan.stss));
    stbl.push_back(Stsc(plan.stsc));
    stbl.push_back(Stsz(plan.stszConstant, plan.stszSizes,
                        plan.stszConstant ? std::optional<std::uint32_t>(static_cast<std::uint32_t>(plan.stszSizes.size()))
                                          : std::nullopt));
    if (plan.co64) stbl.push_back(Co64(*plan.co64));
    else stbl.push_back(Stco(plan.stco));
    for (const Atom& a : plan.extraStbl) stbl.push_back(a);
    for (const Atom& replacement : plan.replaceStbl)
        for (Atom& child : stbl)
            if (child.type == replacement.type) child = replacement;

    Atom mediaHeader = plan.mediaHeader ? *plan.mediaHeader
                       : plan.mediaType == "vide" ? Atom("vmhd", ByteWriter().U32(1).Zeros(8))
                       : plan.mediaType == "soun" ? Atom("smhd", ByteWriter().U32(0).Zeros(4))
                                                  : Atom("gmhd", std::vector<Atom>{});
    std::vector<Atom> minf{mediaHeader, plan.dinf ? *plan.dinf : SelfContainedDinf(), Atom("stbl", stbl)};
    const std::string subtype = plan.hdlrSubtype.value_or(plan.mediaType);
    std::vector<Atom> mdia{Atom("mdhd", MdhdPayload(plan.mediaTimeScale, plan.mediaDuration)),
                           Atom("hdlr", HdlrPayload(subtype.c_str())), Atom("minf", minf)};
    trak.emplace_back("mdia", mdia);
    for (const Atom& a : plan.extraTrak) trak.push_back(a);
    return Atom("trak", trak);
}

Atom BuildMoov(const MoviePlan& plan)
{
    std::vector<Atom> moov{Atom("mvhd", MvhdPayload(plan.timeScale, plan.duration, plan.posterTime))};
    for (const TrackPlan& t : plan.tracks) moov.push_back(BuildTrak(t));
    for (const Atom& a : plan.extraMoov) moov.push_back(a);
    return Atom("moov", moov);
}

Bytes Concat(const std::vector<Atom>& atoms)
{
    Bytes out;
    for (const Atom& a : atoms) {
        Bytes b = a.Serialize();
        out.insert(out.end(), b.begin(), b.end());
    }
    return out;
}

Bytes BuildMovieFile(const MoviePlan& plan, const Bytes& mdatPayload)
{
    return Concat({Atom("ftyp", ByteWriter().Code("qt  ").U32(0x200).Code("qt  ")), BuildMoov(plan),
                   Atom("mdat", mdatPayload)});
}

namespace {

std::filesystem::path MakeTempDir()
{
    std::string templ = (std::filesystem::temp_directory_path() / "atomscan-test-XXXXXX").string();
    if (!::mkdtemp(templ.data())) throw std::runtime_error("mkdtemp failed");
    return templ;
}

} // namespace

TempFile::TempFile(const Bytes& contents, const std::string& name) : mDir(MakeTempDir()), mPath(mDir / name)
{
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
