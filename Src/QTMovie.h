// The movie object: a share of the store and the movie-level answers.
#pragma once

#include "Inc/IQTMovie.h"
#include "Src/CountedObject.h"
#include "Src/CountedPtr.h"
#include "Src/QTMooVAtom.h"

namespace QT {

class QTMovie : public CountedObject<IQTMovie, kIID_IQTMovie> {
public:
    void GetBounds(QTRect& outBounds) override;
    Tessel::InterfaceRef<IQTTrack> GetIndTrack(std::uint64_t inWhichTrack) override;
    std::uint32_t GetTimeScale() override;
    std::uint32_t GetDuration() override;
    std::uint32_t GetTrackCount() override { return mStore->GetTrackCount(); }
    std::uint32_t GetPosterTime() override;
    std::uint64_t GetMovieAtomSize() override { return mStore->GetAtomSize(); }
    std::uint32_t GetUserDataCount() override { return mStore->GetUserDataCount(); }
    void GetUserData(std::uint32_t inIndex, Pelt::BinaryData& outData, std::uint32_t& outType) override
    {
        mStore->GetUserData(inIndex, outData, outType);
    }
    bool GetUserDataByType(FourCC inType, Pelt::BinaryData& outData) override
    {
        return mStore->GetUserDataByType(inType, outData);
    }
    bool GetMetadataValue(std::string inKey, MetadataValue& outValue) override
    {
        return mStore->GetMetadataValue(inKey, outValue);
    }
    std::uint32_t GetChildAtom(FourCC inType, Pelt::BinaryData& outData) override
    {
        return mStore->GetChildAtom(inType, outData);
    }

    // Makes `mStore` a further reference to `store`; once, by the open.
    void SetStore(const CountedPtr<QTMooVAtom>& store) { mStore = store; }

private:
    // A word of `mvhd`; 0 when the atom is too short for it.
    std::uint32_t MovieHeaderWord(std::uint32_t position) const;

    CountedPtr<QTMooVAtom> mStore;
};

} // namespace QT
