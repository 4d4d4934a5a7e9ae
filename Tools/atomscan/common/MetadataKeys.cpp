#include "common/MetadataKeys.h"

#include <cstdint>

#include "API/Inc/PeltBinaryData.h"
#include "Src/AtomReader.h"

namespace atomscan_tool {

namespace {

QT::AtomReader ReaderOf(const std::uint8_t* data, std::size_t size)
{
    return QT::AtomReader(data, static_cast<std::uint32_t>(size));
}

// `content` is a `keys` atom without its header: version and flags, count, entries.
void AddKeys(const QT::AtomReader& content, std::set<std::string>& keys)
{
    std::uint32_t count = 0, entrySize = 0;
    if (!content.U32(4, count)) return;
    std::uint64_t at = 8;
    for (std::uint32_t i = 0; i < count && content.U32(at, entrySize) && entrySize >= 8; ++i) {
        const std::uint8_t* name = content.Bytes(at + 8, entrySize - 8);
        if (name == nullptr) return;
        keys.emplace(reinterpret_cast<const char*>(name), entrySize - 8);
        at += entrySize;
    }
}

} // namespace

std::set<std::string> MetadataKeyCandidates(QT::IQTMovie& movie)
{
    // A key index with no entry behind it stands for the empty key.
    std::set<std::string> keys = {std::string()};
    Pelt::BinaryData keysAtom;
    if (movie.GetChildAtom(QT::MakeFourCC("keys"), keysAtom) == QT::kResultSuccess)
        AddKeys(ReaderOf(keysAtom.Data(), keysAtom.Size()), keys);

    Pelt::BinaryData meta;
    if (movie.GetChildAtom(QT::MakeFourCC("meta"), meta) != QT::kResultSuccess) return keys;
    const QT::AtomReader children = ReaderOf(meta.Data(), meta.Size());
    std::uint64_t at = 0;
    std::uint32_t childSize = 0, type = 0;
    while (children.U32(at, childSize) && children.U32(at + 4, type) && childSize >= 8 && children.Has(at, childSize)) {
        if (type == QT::MakeFourCC("keys")) AddKeys(ReaderOf(children.Bytes(at + 8, childSize - 8), childSize - 8), keys);
        at += childSize;
    }
    return keys;
}

} // namespace atomscan_tool
