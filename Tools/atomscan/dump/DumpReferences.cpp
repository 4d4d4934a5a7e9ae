// The `references` section: the movie's external files by track and in one
// map, and whether they can all be found.
#include <optional>
#include <stdexcept>
#include <utility>

#include "dump/Dump.h"

namespace atomscan_tool {

namespace {

struct TrackMaps {
    QT::TrackReferenceMap video, audio, timecode;
};

void WriteTrackMap(JsonWriter& w, const QT::TrackReferenceMap& map)
{
    w.BeginObject();
    for (const auto& [index, path] : map) {
        w.Key(std::to_string(index));
        WriteString16(w, path);
    }
    w.EndObject();
}

} // namespace

void WriteReferencesSection(JsonWriter& w, Tessel::InterfaceRef<QT::IQTMovie>& movie, const DumpContext& context)
{
    w.BeginObject();
    // One call fills the three maps; should it throw, each of them shows the error.
    std::optional<TrackMaps> maps;
    std::string mapsError;
    try {
        maps.emplace();
        QT::GetExternalReferences(movie, maps->video, maps->audio, maps->timecode);
    } catch (const std::exception& e) {
        maps.reset();
        mapsError = e.what();
    }
    const std::pair<const char*, QT::TrackReferenceMap TrackMaps::*> kMaps[] = {
        {"video", &TrackMaps::video}, {"audio", &TrackMaps::audio}, {"timecode", &TrackMaps::timecode}};
    for (const auto& [key, member] : kMaps) {
        w.Key(key);
        if (maps) WriteTrackMap(w, (*maps).*member);
        else WriteError(w, mapsError);
    }
    std::optional<QT::ExternalReferenceMap> all;
    std::string allError;
    Guarded(
        w, "all",
        [&] {
            std::pair<bool, QT::ExternalReferenceMap> r;
            try {
                r.first = QT::GetAllExternalReferences(movie, r.second);
            } catch (const std::exception& e) {
                allError = e.what();
                throw;
            }
            all = r.second;
            return r;
        },
        [&](const std::pair<bool, QT::ExternalReferenceMap>& r) { WriteExternalReferences(w, r.first, r.second); });
    Field(w, "valid", [&] {
        if (!all) throw std::runtime_error(allError);
        return QT::ValidateExternalReferences(context.absolutePath16, *all);
    });
    w.EndObject();
}

} // namespace atomscan_tool
