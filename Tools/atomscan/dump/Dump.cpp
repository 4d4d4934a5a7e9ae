#include "dump/Dump.h"

#include <stdexcept>

#include "common/MovieFile.h"

namespace atomscan_tool {

namespace {

void WriteTracks(JsonWriter& w, QT::IQTMovie& movie, const DumpContext& context)
{
    Guarded(
        w, "tracks", [&] { return movie.GetTrackCount(); },
        [&](std::uint32_t count) {
            w.BeginArray();
            for (std::uint32_t i = 0; i < count; ++i) {
                Guarded(
                    w, nullptr,
                    [&] {
                        Tessel::InterfaceRef<QT::IQTTrack> track = movie.GetIndTrack(i);
                        if (!track) throw std::runtime_error("no track object");
                        return track;
                    },
                    [&](const Tessel::InterfaceRef<QT::IQTTrack>& track) { WriteTrackSection(w, *track, context); });
            }
            w.EndArray();
        });
}

} // namespace

void WriteRefusal(JsonWriter& w, const QT::internal::OpenRefusal& refusal)
{
    w.BeginObject(true);
    w.Key("rule");
    w.String(refusal.rule);
    w.Key("track");
    if (refusal.track) w.UInt(*refusal.track);
    else w.Null();
    w.Key("atom");
    if (refusal.atom) w.String(FourCCText(*refusal.atom));
    else w.Null();
    w.Key("offset");
    if (refusal.offset) w.UInt(*refusal.offset);
    else w.Null();
    w.EndObject();
}

QT::ResultCode WriteDump(JsonWriter& w, const std::string& path, const DumpOptions& options,
                         QT::internal::OpenRefusal* outRefusal)
{
    OpenedMovie opened = OpenMovieFile(path);
    if (outRefusal) *outRefusal = opened.refusal;
    Tessel::InterfaceRef<QT::IQTMovie>& movie = opened.movie;
    const DumpContext context{options, opened.absolutePath, ToString16(opened.absolutePath)};
    w.BeginObject();
    w.Key("path");
    w.String(Bytes8Text(path));
    w.Key("open");
    w.String(CodeText(opened.code));
    if (opened.code != QT::kResultSuccess) {
        w.Key("refused");
        WriteRefusal(w, opened.refusal);
    }
    if (movie) {
        w.Key("movie");
        WriteMovieSection(w, *movie);
        WriteTracks(w, *movie, context);
        w.Key("references");
        WriteReferencesSection(w, movie, context);
    } else {
        NullField(w, "movie");
        w.Key("tracks");
        w.BeginArray();
        w.EndArray();
        NullField(w, "references");
    }
    w.EndObject();
    return opened.code;
}

QT::ResultCode WriteDumpJson(const std::string& path, const DumpOptions& options, std::string& outJson)
{
    JsonWriter w(outJson);
    const QT::ResultCode code = WriteDump(w, path, options);
    w.Finish();
    return code;
}

QT::ResultCode WriteDumpJson(const std::string& path, const DumpOptions& options, std::FILE* out,
                             QT::internal::OpenRefusal* outRefusal)
{
    JsonWriter w(out);
    const QT::ResultCode code = WriteDump(w, path, options, outRefusal);
    w.Finish();
    return code;
}

} // namespace atomscan_tool
