#include "capture/CaptureConfiguration.h"

#include "base/Checked.h"

#include <algorithm>
#include <cmath>

namespace ostrel {

namespace {

constexpr double slowestFrameFps = 0.1;
constexpr qint64 shortestIntervalMs = 100;
constexpr double intervalTimescale = 600;

} // namespace

qint64 minFrameIntervalMs(double frameFps)
{
    return std::max(shortestIntervalMs, checkedTruncate(1000 / std::max(frameFps, slowestFrameFps)));
}

DisplayCaptureConfiguration makeConfiguration(const CapturableDisplay &display, double frameFps)
{
    return DisplayCaptureConfiguration{
        .width = display.width,
        .height = display.height,
        // Rounded: 600 / 30 may come out a hair below 20.
        .minimumFrameInterval600 = checkedTruncate(std::round(intervalTimescale / std::max(frameFps, slowestFrameFps))),
        .queueDepth = 3,
        .showsCursor = true,
        .capturesAudio = false,
    };
}

DisplayContentFilter makeDisplayFilter(const CapturableDisplay &display, const DisplayFilterMode &mode)
{
    return DisplayContentFilter{.displayId = display.displayId, .mode = mode};
}

} // namespace ostrel
