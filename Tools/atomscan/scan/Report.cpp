#include "scan/Report.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "common/Text.h"
#include "common/TextTable.h"
#include "dump/JsonWriter.h"

namespace atomscan_tool {

namespace {

const char* StatusText(ScanRecord::Status status)
{
    switch (status) {
    case ScanRecord::Status::Movie: return "movie";
    case ScanRecord::Status::NotAMovie: return "not a movie";
    case ScanRecord::Status::Unreadable: return "unreadable";
    case ScanRecord::Status::Skipped: return "skipped";
    }
    return "";
}

void WriteTrack(JsonWriter& w, const TrackSummary& t)
{
    w.BeginObject(true);
    w.Key(kTrackFacts[kFactType].key);
    w.String(FourCCText(t.type));
    w.Key(kTrackFacts[kFactEnabled].key);
    w.Bool(t.enabled);
    w.Key(kTrackFacts[kFactCodec].key);
    if (t.codec) w.String(FourCCText(*t.codec));
    else w.Null();
    w.Key(kTrackFacts[kFactFormat].key);
    w.String(t.format);
    w.Key(kTrackFacts[kFactFrames].key);
    if (t.frames) w.UInt(*t.frames);
    else w.Null();
    w.Key(kTrackFacts[kFactRate].key);
    if (t.rate) w.Double(*t.rate);
    else w.Null();
    w.Key(kTrackFacts[kFactEdit].key);
    w.String(t.edit);
    w.EndObject();
}

void WriteMovie(JsonWriter& w, const ScanRecord& r)
{
    const MovieSummary& m = r.movie;
    w.Key(kMovieFacts[kFactTimeScale].key);
    w.UInt(m.timeScale);
    w.Key(kMovieFacts[kFactDuration].key);
    w.UInt(m.duration);
    w.Key(kMovieFacts[kFactBounds].key);
    w.BeginArray(true);
    for (const std::int32_t v : {m.bounds.left, m.bounds.top, m.bounds.right, m.bounds.bottom}) w.Int(v);
    w.EndArray();
    w.Key(kMovieFacts[kFactTracks].key);
    w.BeginArray(true);
    for (const TrackSummary& t : m.tracks) WriteTrack(w, t);
    w.EndArray();
    w.Key("missingReferences");
    w.BeginArray(true);
    for (const std::string& path : r.missingReferences) w.String(path);
    w.EndArray();
    w.Key("referencesReadable");
    w.Bool(r.referencesReadable);
    w.Key("offsetsBeyondEnd");
    w.BeginArray(true);
    for (const auto& o : r.offsetsBeyondEnd) {
        w.BeginObject(true);
        w.Key("track");
        w.UInt(o.track);
        w.Key("count");
        w.UInt(o.count);
        w.EndObject();
    }
    w.EndArray();
}

std::string Plural(std::size_t n, const std::string& one, const std::string& many)
{
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

// The findings of a movie, or why a file is not one.
std::string NoteText(const ScanRecord& r)
{
    if (r.status == ScanRecord::Status::NotAMovie) return r.refusal;
    std::vector<std::string> notes;
    if (!r.missingReferences.empty()) notes.push_back(Plural(r.missingReferences.size(), "missing file", "missing files"));
    if (!r.referencesReadable) notes.push_back("references not all readable");
    for (const auto& o : r.offsetsBeyondEnd)
        notes.push_back("track " + std::to_string(o.track) + ": " +
                        Plural(o.count, "offset beyond the end", "offsets beyond the end"));
    std::string text;
    for (const std::string& n : notes) text += (text.empty() ? "" : "; ") + n;
    return text;
}

std::string CodecsText(const MovieSummary& m)
{
    std::string text;
    for (const TrackSummary& t : m.tracks) text += (text.empty() ? "" : " ") + (t.codec ? FourCCText(*t.codec) : "-");
    return text;
}

std::string DurationText(long double seconds)
{
    return ClockText(static_cast<std::uint64_t>(std::llround(seconds * 1000)), 1000);
}

void Line(std::FILE* out, const std::string& label, const std::string& value)
{
    std::fprintf(out, "%-20s%s\n", label.c_str(), value.c_str());
}

} // namespace

std::string ScanJsonKeysText()
{
    std::string movie, track;
    for (std::size_t i = kFactTimeScale; i < kMovieFactCount; ++i)
        movie += std::string(movie.empty() ? "" : ", ") + "\"" + kMovieFacts[i].key + "\"";
    for (const FactName& name : kTrackFacts) track += std::string(track.empty() ? "" : ", ") + "\"" + name.key + "\"";
    return "\"" + std::string(kMovieFacts[kFactPath].key) +
           "\", \"status\" (\"movie\", \"not a movie\", \"unreadable\", \"skipped\"); for a movie and for a file "
           "that is not one \"size\" and \"open\" (the open's result code); for a file that is not a movie "
           "\"refusal\"; for a movie " +
           movie + " (each track with " + track +
           ", the facts of 'atomscan info'), \"missingReferences\" (the paths of files it names that are not "
           "found), \"referencesReadable\", \"offsetsBeyondEnd\" ([{\"track\", \"count\"}]); for an unreadable "
           "or skipped file \"reason\". The last line is {\"summary\": {...}}.";
}

std::string ScanJsonLine(const ScanRecord& r)
{
    std::string text;
    JsonWriter w(text);
    w.BeginObject(true);
    w.Key(kMovieFacts[kFactPath].key);
    w.String(Bytes8Text(r.path));
    w.Key("status");
    w.String(StatusText(r.status));
    if (r.status == ScanRecord::Status::Movie || r.status == ScanRecord::Status::NotAMovie) {
        w.Key("size");
        w.UInt(r.size);
        w.Key("open");
        w.String(CodeText(r.open));
    }
    if (r.status == ScanRecord::Status::NotAMovie) {
        w.Key("refusal");
        w.String(r.refusal);
    } else if (r.status == ScanRecord::Status::Movie) {
        WriteMovie(w, r);
    } else {
        w.Key("reason");
        w.String(Bytes8Text(r.reason));
    }
    w.EndObject();
    w.Finish();
    return text;
}

ScanSummary Summarize(const std::vector<ScanRecord>& records, const WalkResult& walk)
{
    ScanSummary s;
    s.foldersRead = walk.foldersReached;
    s.foldersSeenAgain = walk.foldersSeenAgain;
    std::map<std::string, std::size_t> codecs;
    for (const ScanRecord& r : records) {
        switch (r.status) {
        case ScanRecord::Status::Movie: ++s.movies; break;
        case ScanRecord::Status::NotAMovie: ++s.notMovies; break;
        case ScanRecord::Status::Unreadable: ++s.unreadable; break;
        case ScanRecord::Status::Skipped: ++s.skipped; break;
        }
        if (r.status != ScanRecord::Status::Movie) continue;
        for (const TrackSummary& t : r.movie.tracks) ++codecs[t.codec ? FourCCText(*t.codec) : "-"];
        if (r.movie.timeScale != 0) s.seconds += static_cast<long double>(r.movie.duration) / r.movie.timeScale;
        if (!r.missingReferences.empty() || !r.referencesReadable) s.withMissingReferences.push_back(&r);
        if (!r.offsetsBeyondEnd.empty()) s.withOffsetsBeyondEnd.push_back(&r);
    }
    s.tracksByCodec.assign(codecs.begin(), codecs.end());
    std::stable_sort(s.tracksByCodec.begin(), s.tracksByCodec.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    return s;
}

void PrintScanText(std::FILE* out, const std::vector<ScanRecord>& records, const ScanSummary& s)
{
    TextTable table({false, true, true, false, false});
    table.AddRow({kMovieFacts[kFactPath].heading, kMovieFacts[kFactDuration].heading, kMovieFacts[kFactTracks].heading,
                  "codecs", "notes"});
    for (const ScanRecord& r : records) {
        if (r.status == ScanRecord::Status::Movie)
            table.AddRow({Bytes8Text(r.path), ClockText(r.movie.duration, r.movie.timeScale),
                          std::to_string(r.movie.tracks.size()), CodecsText(r.movie), NoteText(r)});
        else if (r.status == ScanRecord::Status::NotAMovie)
            table.AddRow({Bytes8Text(r.path), "", "", "", NoteText(r)});
    }
    if (s.movies + s.notMovies != 0) {
        table.Print(out, "");
        std::fprintf(out, "\n");
    }

    Line(out, "movies read", std::to_string(s.movies));
    Line(out, "not movies", std::to_string(s.notMovies));
    Line(out, "could not be read", std::to_string(s.unreadable));
    for (const ScanRecord& r : records)
        if (r.status == ScanRecord::Status::Unreadable)
            std::fprintf(out, "  %s: %s\n", Bytes8Text(r.path).c_str(), Bytes8Text(r.reason).c_str());
    Line(out, "skipped", std::to_string(s.skipped) + (s.skipped ? " (FIFOs, sockets and devices are not opened)" : ""));
    for (const ScanRecord& r : records)
        if (r.status == ScanRecord::Status::Skipped)
            std::fprintf(out, "  %s: %s\n", Bytes8Text(r.path).c_str(), r.reason.c_str());
    Line(out, "folders read", std::to_string(s.foldersRead) +
                                  (s.foldersSeenAgain ? " (" + std::to_string(s.foldersSeenAgain) +
                                                            " reached again through links, not read twice)"
                                                      : ""));
    std::string codecs;
    for (const auto& [codec, count] : s.tracksByCodec)
        codecs += (codecs.empty() ? "" : ", ") + codec + " " + std::to_string(count);
    Line(out, "tracks by codec", codecs.empty() ? "none" : codecs);
    Line(out, "total duration", DurationText(s.seconds));
    Line(out, "missing files", Plural(s.withMissingReferences.size(), "movie", "movies"));
    for (const ScanRecord* r : s.withMissingReferences) {
        std::fprintf(out, "  %s%s\n", Bytes8Text(r->path).c_str(),
                     r->referencesReadable ? "" : " (its references could not all be read)");
        for (const std::string& path : r->missingReferences) std::fprintf(out, "    %s\n", path.c_str());
    }
    Line(out, "offsets beyond end", Plural(s.withOffsetsBeyondEnd.size(), "movie", "movies") +
                                        (s.withOffsetsBeyondEnd.empty() ? "" : " ('atomscan fix' mends those of "
                                                                                "the first enabled video track)"));
    for (const ScanRecord* r : s.withOffsetsBeyondEnd) std::fprintf(out, "  %s: %s\n", Bytes8Text(r->path).c_str(),
                                                                   NoteText(*r).c_str());
}

std::string ScanJsonSummaryLine(const ScanSummary& s)
{
    std::string text;
    JsonWriter w(text);
    w.BeginObject(true);
    w.Key("summary");
    w.BeginObject(true);
    for (const auto& [key, value] : {std::pair("movies", s.movies), std::pair("notMovies", s.notMovies),
                                     std::pair("unreadable", s.unreadable), std::pair("skipped", s.skipped),
                                     std::pair("foldersRead", s.foldersRead)}) {
        w.Key(key);
        w.UInt(value);
    }
    w.Key("tracksByCodec");
    w.BeginObject(true);
    for (const auto& [codec, count] : s.tracksByCodec) {
        w.Key(codec);
        w.UInt(count);
    }
    w.EndObject();
    w.Key("totalSeconds");
    w.Double(static_cast<double>(std::llround(s.seconds * 1000)) / 1000);
    for (const auto& [key, list] : {std::pair("missingReferences", &s.withMissingReferences),
                                    std::pair("offsetsBeyondEnd", &s.withOffsetsBeyondEnd)}) {
        w.Key(key);
        w.BeginArray(true);
        for (const ScanRecord* r : *list) w.String(Bytes8Text(r->path));
        w.EndArray();
    }
    w.EndObject();
    w.EndObject();
    w.Finish();
    return text;
}

} // namespace atomscan_tool
