// A fake volume list in place of the system's, for the logical drive table.
#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "vellum/VolumeServices.h"

namespace testsupport {

enum VolumeFlags { kReady = 1, kFloppy = 2, kUnreadable = 4 };

inline vellum::filesupport::MountedVolume Volume(const char16_t* root, const char16_t* label, int flags = kReady)
{
    vellum::filesupport::MountedVolume v;
    v.rootPath = root;
    v.labelReadable = !(flags & kUnreadable);
    if (v.labelReadable) v.label = label;
    v.isReady = flags & kReady;
    v.isFloppy = flags & kFloppy;
    return v;
}

// Puts a fake volume list in place of the system's for one scope.
class FakeVolumes {
public:
    explicit FakeVolumes(std::vector<vellum::filesupport::MountedVolume> volumes) : mState(std::make_shared<State>())
    {
        Set(std::move(volumes));
        std::shared_ptr<State> state = mState;
        mPrevious = vellum::filesupport::ReplaceMountedVolumeLister([state] {
            std::lock_guard<std::mutex> lock(state->mutex);
            ++state->calls;
            return state->volumes;
        });
    }
    ~FakeVolumes() { vellum::filesupport::ReplaceMountedVolumeLister(std::move(mPrevious)); }
    FakeVolumes(const FakeVolumes&) = delete;
    FakeVolumes& operator=(const FakeVolumes&) = delete;

    void Set(std::vector<vellum::filesupport::MountedVolume> volumes)
    {
        std::lock_guard<std::mutex> lock(mState->mutex);
        mState->volumes = std::move(volumes);
    }
    int Calls() const
    {
        std::lock_guard<std::mutex> lock(mState->mutex);
        return mState->calls;
    }

private:
    struct State {
        std::mutex mutex;
        std::vector<vellum::filesupport::MountedVolume> volumes;
        int calls = 0;
    };
    std::shared_ptr<State> mState;
    vellum::filesupport::MountedVolumeLister mPrevious;
};

} // namespace testsupport
