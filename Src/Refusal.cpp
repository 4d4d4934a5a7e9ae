#include "Src/Refusal.h"

#include <string_view>

namespace QT {

namespace {

// Every rule an open can stop at. "{bytes}" stands for the number the rule names.
const char* RuleSentence(RefusalRule rule)
{
    switch (rule) {
    case RefusalRule::kNone: return "";
    case RefusalRule::kCannotOpen: return "the file could not be opened";
    case RefusalRule::kFileTooShort: return "the file is shorter than an atom header (8 bytes)";
    case RefusalRule::kFileUnreadable: return "the file could not be read";
    case RefusalRule::kNoMovieAtom: return "no moov atom before the end of the file";
    case RefusalRule::kFileEndsInHeader: return "the file ends inside an atom header";
    case RefusalRule::kAtomPastFileEnd: return "an atom runs {bytes} past the end of the file";
    case RefusalRule::kAtomSizeBelowHeader: return "an atom's size is smaller than its 8-byte header";
    case RefusalRule::kFileEndsInWideSize: return "the file ends inside an atom's 64-bit size";
    case RefusalRule::kWideSizeBelowHeader: return "an atom's 64-bit size is negative or below 8";
    case RefusalRule::kMovieAtomTooSmall: return "the movie atom is smaller than 9 bytes";
    case RefusalRule::kMovieAtomTooLarge: return "the movie atom is larger than 128 MiB";
    case RefusalRule::kMovieAtomPastFileEnd: return "the movie atom runs {bytes} past the end of the file";
    case RefusalRule::kMovieAtomNoMemory: return "the movie atom could not be copied into memory";
    case RefusalRule::kAtomSizeZero: return "an atom inside the movie atom has size 0";
    case RefusalRule::kAtomPastMovieAtomEnd: return "an atom runs {bytes} past the end of the movie atom";
    case RefusalRule::kNoMvhd: return "the movie atom has no mvhd";
    case RefusalRule::kNoTrack: return "the movie has no track";
    case RefusalRule::kNoTkhd: return "the track has no tkhd";
    case RefusalRule::kNoMdia: return "the track has no mdia";
    case RefusalRule::kEditListCut: return "the edit list is cut off by the end of the movie atom";
    case RefusalRule::kEditListTooLong: return "the edit list counts more entries than its atom holds";
    case RefusalRule::kMdiaNotLedByMdhd: return "mdia does not begin with mdhd";
    case RefusalRule::kAtomBetweenMdhdAndHdlr: return "an atom stands between mdhd and hdlr";
    case RefusalRule::kNoHdlr: return "the track has no hdlr";
    case RefusalRule::kAtomBetweenHdlrAndMinf: return "an atom stands between hdlr and minf";
    case RefusalRule::kNoMinf: return "the track has no minf";
    case RefusalRule::kMinfEmpty: return "minf holds no atom";
    case RefusalRule::kMinfEndsInFragment: return "minf ends in fewer than 9 bytes, too few to read as an atom";
    case RefusalRule::kMinfNotLedByMediaHeader: return "minf does not begin with its media header";
    case RefusalRule::kNoDinf: return "the track has no dinf";
    case RefusalRule::kNoStbl: return "the track has no stbl";
    case RefusalRule::kNoStsd: return "the track has no stsd";
    case RefusalRule::kNoStts: return "the track has no stts";
    case RefusalRule::kNoStsc: return "the track has no stsc";
    case RefusalRule::kNoStsz: return "the track has no stsz";
    case RefusalRule::kNoChunkOffsets: return "the track has neither stco nor co64";
    }
    return "";
}

} // namespace

std::string RefusalText(RefusalRule rule, std::uint64_t bytes)
{
    std::string text = RuleSentence(rule);
    constexpr std::string_view kBytes = "{bytes}";
    if (const std::size_t at = text.find(kBytes); at != std::string::npos)
        text.replace(at, kBytes.size(), std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes"));
    return text;
}

internal::OpenRefusal Explain(const RefusalPoint& point)
{
    if (point.rule == RefusalRule::kNone) return {};
    return {RefusalText(point.rule, point.bytes), point.track, point.atom, point.offset};
}

} // namespace QT
