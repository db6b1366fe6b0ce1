#pragma once
// Where captured system audio comes from: the sound server on the desktop, or a test source. The
// level monitor owns one source and runs one capture run at a time through it.

#include <functional>

#include "core/AudioCaptureFailure.h"
#include "core/analysis/SampleBlock.h"

namespace lorvane {

class CaptureSource {
public:
    struct Handlers {
        // One call per block, always on the source's single capture thread, one at a time. The block's
        // bytes are only valid during the call.
        std::function<void(const SampleBlock&)> blockDidArrive;
        // The run could not start or ended by itself: permissionRequired or unavailable, with the
        // reason in plain words. Any thread.
        std::function<void(AudioCaptureFailureReport)> didFail;
    };

    // Destroying a source ends any run and waits for its thread: no handler runs afterwards.
    virtual ~CaptureSource() = default;

    // Main thread, answered at once without asking anyone: false when capture is known to be refused
    // before even trying (for example a sandbox that hides the sound server).
    virtual bool accessGranted() = 0;

    // Main thread. Begins a run and returns at once: connecting and opening the stream happen later on
    // the source's thread, and a failure may be reported from there. Does nothing while a run is live.
    virtual void start(Handlers handlers) = 0;

    // Any thread, including from inside a handler; idempotent. Ends the run without waiting for the
    // server. When called from outside the capture thread, no handler of the run is running when it
    // returns; in every case none is called afterwards.
    virtual void stop() = 0;
};

}  // namespace lorvane
