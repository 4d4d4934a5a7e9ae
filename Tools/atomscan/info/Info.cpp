// `atomscan info MOVIE...`: a readable summary of each movie.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <boost/variant/apply_visitor.hpp>

#include "Commands.h"
#include "dump/Dump.h"
#include "info/InfoTrack.h"
#include "common/MetadataKeys.h"
#include "common/MovieFile.h"
#include "common/References.h"
#include "common/TextTable.h"

namespace atomscan_tool {

namespace {

struct MetadataText : boost::static_visitor<std::string> {
    std::string operator()(const Pelt::BinaryData& v) const { return BytesPreview(v.Data(), v.Size()); }
    std::string operator()(const std::string& v) const { return QuotedText(Bytes8Text(v)); }
    std::string operator()(const QT::String16& v) const { return QuotedText(ToUtf8(v)); }
    std::string operator()(std::int32_t v) const { return std::to_string(v); }
    std::string operator()(std::uint32_t v) const { return std::to_string(v); }
    std::string operator()(float v) const { return FormatNumber(v); }
    std::string operator()(double v) const { return FormatNumber(v); }
};

void PrintMetadata(QT::IQTMovie& movie)
{
    TextTable table({false, false});
    for (const std::string& key : MetadataKeyCandidates(movie)) {
        QT::MetadataValue value;
        if (movie.GetMetadataValue(key, value))
            table.AddRow({Bytes8Text(key), boost::apply_visitor(MetadataText(), value.mValue)});
    }
    if (table.Empty()) {
        std::printf("  metadata      none\n");
        return;
    }
    std::printf("  metadata\n");
    table.Print(stdout, "    ");
}

void PrintUserData(QT::IQTMovie& movie)
{
    const std::uint32_t count = movie.GetUserDataCount();
    if (count == 0) {
        std::printf("  user data     none\n");
        return;
    }
    std::printf("  user data\n");
    TextTable table({false, true, false});
    for (std::uint32_t i = 0; i < count; ++i) {
        Pelt::BinaryData data;
        std::uint32_t type = 0;
        movie.GetUserData(i, data, type);
        table.AddRow({FourCCDisplay(type), std::to_string(data.Size()) + " bytes", UserDataPreview(type, data)});
    }
    table.Print(stdout, "    ");
}

void PrintReferences(Tessel::InterfaceRef<QT::IQTMovie>& movie, const std::string& absolutePath)
{
    const ReferenceReport report = CheckReferences(movie, absolutePath);
    if (report.references.empty() && report.readable) {
        std::printf("  references    none\n");
        return;
    }
    std::printf("  references%s\n", report.readable ? "" : "    (a track's references could not all be read)");
    TextTable table({false, false});
    for (const ReferenceStatus& r : report.references)
        table.AddRow({r.found ? "found" : "missing", ToUtf8(r.reference.fullPath)});
    table.Print(stdout, "    ");
}

void PrintTracks(const MovieSummary& summary)
{
    if (summary.tracks.empty()) return;
    TextTable table({true, false, false, false, false, true, false, false});
    std::vector<std::string> headings = {"#"};
    for (const FactName& name : kTrackFacts) headings.push_back(name.heading);
    table.AddRow(std::move(headings));
    for (std::size_t i = 0; i < summary.tracks.size(); ++i) {
        std::vector<std::string> row = {std::to_string(i)};
        for (std::string& cell : TrackCells(summary.tracks[i])) row.push_back(std::move(cell));
        table.AddRow(std::move(row));
    }
    std::printf("\n");
    table.Print(stdout, "  ");
    std::printf("\n");
}

// "  label" padded to the column of the values.
void PrintFact(MovieFact fact, const std::string& value)
{
    std::printf("  %-14s%s\n", kMovieFacts[fact].heading, value.c_str());
}

bool PrintSummary(const std::string& path)
{
    OpenedMovie opened = OpenMovieFile(path);
    if (!opened.movie) {
        ReportError(path + ": " + OpenFailureText(opened.code));
        return false;
    }
    QT::IQTMovie& movie = *opened.movie;
    const MovieSummary summary = SummarizeMovie(movie, opened.absolutePath);
    const QT::QTRect& b = summary.bounds;
    std::printf("%s\n", Bytes8Text(path).c_str());
    PrintFact(kFactTimeScale, std::to_string(summary.timeScale));
    PrintFact(kFactDuration,
              std::to_string(summary.duration) + " (" + ClockText(summary.duration, summary.timeScale) + ")");
    PrintFact(kFactBounds, std::to_string(b.left) + " " + std::to_string(b.top) + " " + std::to_string(b.right) + " " +
                               std::to_string(b.bottom));
    PrintFact(kFactTracks, std::to_string(summary.tracks.size()));
    PrintTracks(summary);
    PrintMetadata(movie);
    PrintUserData(movie);
    PrintReferences(opened.movie, opened.absolutePath);
    return true;
}

} // namespace

int RunInfo(const std::vector<std::string>& paths, bool json, const DumpOptions& options)
{
    int status = kExitOk;
    if (json) {
        JsonWriter w(stdout);
        if (paths.size() > 1) w.BeginArray();
        for (const std::string& path : paths) {
            const QT::ResultCode code = WriteDump(w, path, options);
            if (code != QT::kResultSuccess) {
                ReportError(path + ": " + OpenFailureText(code));
                status = kExitFailed;
            }
        }
        if (paths.size() > 1) w.EndArray();
        w.Finish();
        return status;
    }
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (i > 0) std::printf("\n");
        try {
            if (!PrintSummary(paths[i])) status = kExitFailed;
        } catch (const std::exception& e) {
            std::fflush(stdout);
            ReportError(paths[i] + ": " + e.what());
            status = kExitFailed;
        }
    }
    return status;
}

} // namespace atomscan_tool
