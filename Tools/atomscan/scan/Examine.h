// What `scan` learns of one file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Inc/AtomscanTypes.h"
#include "info/InfoTrack.h"
#include "scan/Walk.h"

namespace atomscan_tool {

struct ScanRecord {
    enum class Status { Movie, NotAMovie, Unreadable, Skipped };
    std::string path;
    Status status = Status::Unreadable;
    std::uint64_t size = 0;      // when the file was found
    QT::ResultCode open = 0;     // the library's open (a movie, or not a movie)
    // Not a movie: why the library refused it. Today the text of the result
    // code; a finer account of the refusal goes here.
    std::string refusal;
    std::string reason;          // unreadable or skipped: why
    MovieSummary movie;          // a movie: its facts
    std::vector<std::string> missingReferences; // files it names that are not found
    bool referencesReadable = true;
    // Per track that has any: frames (sound: ranges; timecode: its sample)
    // that start beyond the end of the file.
    struct OffsetsBeyondEnd {
        std::uint32_t track = 0;
        std::uint64_t count = 0;
    };
    std::vector<OffsetsBeyondEnd> offsetsBeyondEnd;
};

// Opens a file the walk found, never writing to it. A file that is no longer
// a regular file is not opened; one that vanishes or shrinks on the way is
// unreadable, with the reason. Throws nothing.
ScanRecord Examine(const WalkEntry& entry);

} // namespace atomscan_tool
