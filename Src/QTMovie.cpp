#include "Src/QTMovie.h"

#include <algorithm>

#include "Src/QTTrack.h"

namespace QT {

std::uint32_t QTMovie::MovieHeaderWord(std::uint32_t position) const
{
    // `mvhd` is known only to have a good header: a word beyond the copy reads as 0.
    return mStore->Reader().U32Or(mStore->GetMvhd().Field(position), 0);
}

std::uint32_t QTMovie::GetTimeScale() { return MovieHeaderWord(20); }
std::uint32_t QTMovie::GetDuration() { return MovieHeaderWord(24); }
std::uint32_t QTMovie::GetPosterTime() { return MovieHeaderWord(88); }

Tessel::InterfaceRef<IQTTrack> QTMovie::GetIndTrack(std::uint64_t inWhichTrack)
{
    VELLUM_CONTRACT(inWhichTrack < GetTrackCount(), "QT::QTMovie::GetIndTrack");
    auto local = MakeCounted<QTTrack>();
    local->Initialize(inWhichTrack, mStore, GetTimeScale());
    return HandOut<IQTTrack>(std::move(local));
}

void QTMovie::GetBounds(QTRect& outBounds)
{
    QTRect bounds; // starts at the origin, so the result always contains it
    const std::uint32_t count = mStore->GetTrackCount();
    for (std::uint32_t i = 0; i < count; ++i) {
        QTRect r;
        Tessel::InterfaceRef<IQTTrack> track = GetIndTrack(i);
        track->GetTrackDimensions(r);
        bounds.left = std::min(bounds.left, r.left);
        bounds.top = std::min(bounds.top, r.top);
        bounds.right = std::max(bounds.right, r.right);
        bounds.bottom = std::max(bounds.bottom, r.bottom);
    }
    outBounds = bounds;
}

} // namespace QT
