// A fake volume list in place of the system's, for the logical drive table.
#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "Src/ExternalReferences.h"
#include "vellum/VolumeServices.h"

namespace testsupport {

using Volumes = std::vector<vellum::filesupport::MountedVolume>;

enum VolumeFlags { kReady = 1, kFloppy = 2, kUnreadable = 4 };

// An unreadable label is empty whatever `label` says.
inline vellum::filesupport::MountedVolume Volume(const char16_t* root, const char16_t* label, int flags = kReady)
{
    const bool readable = !(flags & kUnreadable);
    return {.rootPath = root, .labelReadable = readable, .label = readable ? label : u"",
            .isReady = (flags & kReady) != 0, .isFloppy = (flags & kFloppy) != 0};
}

// Puts a fake volume list in place of the system's for one scope, in the
// process's drive table too if one is made. The lister shares the state, as a
// rebuild on another thread may still be calling it.
class FakeVolumes {
public:
    explicit FakeVolumes(Volumes volumes)
    {
        Set(std::move(volumes));
        mPrevious = vellum::filesupport::ReplaceMountedVolumeLister([state = mState] {
            std::lock_guard<std::mutex> lock(state->mutex);
            ++state->calls;
            return state->volumes;
        });
        RebuildProcessTable();
    }
    ~FakeVolumes()
    {
        vellum::filesupport::ReplaceMountedVolumeLister(std::move(mPrevious));
        RebuildProcessTable();
    }
    FakeVolumes(const FakeVolumes&) = delete;
    FakeVolumes& operator=(const FakeVolumes&) = delete;

    void Set(Volumes volumes) { std::lock_guard<std::mutex> lock(mState->mutex); mState->volumes = std::move(volumes); }
    // How often the list was read.
    int Calls() const { std::lock_guard<std::mutex> lock(mState->mutex); return mState->calls; }

private:
    static void RebuildProcessTable()
    {
        if (QT::IsLogicalDriveTableMade()) QT::GetLogicalDriveTable()->RebuildLogicalDriveTable();
    }
    struct State {
        std::mutex mutex;
        Volumes volumes;
        int calls = 0;
    };
    std::shared_ptr<State> mState = std::make_shared<State>();
    vellum::filesupport::MountedVolumeLister mPrevious;
};

} // namespace testsupport
