#include "MetadataKeys.h"

#include <cstdint>

#include "API/Inc/PeltBinaryData.h"
#include "BigEndian.h"

namespace atomscan_tool {

namespace {

// `content` is a `keys` atom without its header: version and flags, count, entries.
void AddKeys(const std::uint8_t* content, std::size_t size, std::set<std::string>& keys)
{
    if (size < 8) return;
    const std::uint32_t count = BigEndian32(content + 4);
    std::size_t at = 8;
    for (std::uint32_t i = 0; i < count && size - at >= 8; ++i) {
        const std::uint32_t entrySize = BigEndian32(content + at);
        if (entrySize < 8 || entrySize > size - at) return;
        keys.emplace(reinterpret_cast<const char*>(content + at + 8), entrySize - 8);
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
        AddKeys(keysAtom.Data(), keysAtom.Size(), keys);

    Pelt::BinaryData meta;
    if (movie.GetChildAtom(QT::MakeFourCC("meta"), meta) != QT::kResultSuccess) return keys;
    const std::uint8_t* data = meta.Data();
    const std::size_t size = meta.Size();
    std::size_t at = 0;
    while (size - at >= 8) {
        const std::uint32_t childSize = BigEndian32(data + at);
        if (childSize < 8 || childSize > size - at) break;
        if (BigEndian32(data + at + 4) == QT::MakeFourCC("keys")) AddKeys(data + at + 8, childSize - 8, keys);
        at += childSize;
    }
    return keys;
}

} // namespace atomscan_tool
