// The `movie` section: movie header numbers, user data and metadata.
#include <utility>
#include <vector>

#include <boost/variant/apply_visitor.hpp>

#include "dump/Dump.h"
#include "common/MetadataKeys.h"

namespace atomscan_tool {

namespace {

struct UserDataItem {
    std::uint32_t type = 0;
    Pelt::BinaryData data;
};

std::vector<UserDataItem> UserData(QT::IQTMovie& movie)
{
    std::vector<UserDataItem> items;
    const std::uint32_t count = movie.GetUserDataCount();
    for (std::uint32_t i = 0; i < count; ++i) {
        UserDataItem item;
        movie.GetUserData(i, item.data, item.type);
        items.push_back(std::move(item));
    }
    return items;
}

std::vector<std::pair<std::string, QT::MetadataValue>> Metadata(QT::IQTMovie& movie)
{
    std::vector<std::pair<std::string, QT::MetadataValue>> entries;
    for (const std::string& key : MetadataKeyCandidates(movie)) {
        QT::MetadataValue value;
        if (movie.GetMetadataValue(key, value)) entries.emplace_back(key, std::move(value));
    }
    return entries;
}

// Hex for binary, text for the strings, a number for the rest.
struct MetadataValueWriter : boost::static_visitor<void> {
    JsonWriter& w;
    explicit MetadataValueWriter(JsonWriter& writer) : w(writer) {}
    void operator()(const Pelt::BinaryData& v) const { WriteHex(w, v); }
    void operator()(const std::string& v) const { w.String(Bytes8Text(v)); }
    void operator()(const QT::String16& v) const { WriteString16(w, v); }
    void operator()(std::int32_t v) const { w.Int(v); }
    void operator()(std::uint32_t v) const { w.UInt(v); }
    void operator()(float v) const { w.Float(v); }
    void operator()(double v) const { w.Double(v); }
};

} // namespace

void WriteMovieSection(JsonWriter& w, QT::IQTMovie& movie)
{
    w.BeginObject();
    Field(w, "timeScale", [&] { return movie.GetTimeScale(); });
    Field(w, "duration", [&] { return movie.GetDuration(); });
    Field(w, "posterTime", [&] { return movie.GetPosterTime(); });
    Field(w, "movieAtomSize", [&] { return movie.GetMovieAtomSize(); });
    Field(w, "trackCount", [&] { return movie.GetTrackCount(); });
    Field(w, "bounds", [&] {
        QT::QTRect bounds;
        movie.GetBounds(bounds);
        return bounds;
    });
    Guarded(
        w, "userData", [&] { return UserData(movie); },
        [&](const std::vector<UserDataItem>& items) {
            w.BeginArray();
            for (const UserDataItem& item : items) {
                w.BeginObject(true);
                w.Key("type");
                w.String(FourCCText(item.type));
                w.Key("data");
                WriteHex(w, item.data);
                w.EndObject();
            }
            w.EndArray();
        });
    Guarded(
        w, "metadata", [&] { return Metadata(movie); },
        [&](const std::vector<std::pair<std::string, QT::MetadataValue>>& entries) {
            w.BeginArray();
            for (const auto& [key, value] : entries) {
                w.BeginObject(true);
                w.Key("key");
                w.String(Bytes8Text(key));
                w.Key("dataType");
                w.UInt(value.mDataType);
                w.Key("alternative");
                w.Int(value.mValue.which());
                w.Key("value");
                boost::apply_visitor(MetadataValueWriter(w), value.mValue);
                w.EndObject();
            }
            w.EndArray();
        });
    w.EndObject();
}

} // namespace atomscan_tool
