#pragma once

#include "capture/DisplaySource.h"

namespace ostrel {

/// The spacing of the frames that are kept of one display, in milliseconds: 1000 / `frameFps`, at least 100. A rate
/// below 0.1 frames a second, zero and negative ones included, counts as 0.1. A rate that is not a number is fatal.
qint64 minFrameIntervalMs(double frameFps);

/// How a display is captured at a rate: at its own size, with the cursor, without sound.
DisplayCaptureConfiguration makeConfiguration(const CapturableDisplay &display, double frameFps);

/// What a capture of that display contains.
DisplayContentFilter makeDisplayFilter(const CapturableDisplay &display, const DisplayFilterMode &mode);

} // namespace ostrel
