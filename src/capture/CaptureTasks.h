#pragma once

#include "base/TaskSlot.h"
#include "capture/CapturePlan.h"
#include "capture/ScreenCaptureRecorder.h"

#include <QtGlobal>
#include <memory>

namespace ostrel {

class CaptureSources;
class RecorderNews;

/// What captures by itself while a recording runs: the sampler of the foreground, the polling of screenshots where the
/// plan says so, and the watch over both. Main thread.
class CaptureTasks
{
public:
    struct Needs {
        ScreenCaptureRecorder::Dependencies with;
        std::shared_ptr<CaptureSources> sources;
        std::shared_ptr<RecorderNews> news;
    };

    /// @param intervalMs the least time between two frames of a display
    void start(const Needs &needs, const CapturePlan &plan, qint64 intervalMs);
    void cancel();

private:
    void startForegroundAppSampler(const Needs &needs, const CapturePlan &plan);
    void startScreenshotPolling(const Needs &needs, const CapturePlan &plan, qint64 intervalMs);
    void startWatch(const Needs &needs, const CapturePlan &plan);

    TaskSlot m_foregroundAppTask;
    TaskSlot m_screenshotTask;
    TaskSlot m_watchTask;
};

} // namespace ostrel
