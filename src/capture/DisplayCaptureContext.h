#pragma once

#include "capture/KeptDownsample.h"
#include "capture/SignsOfLife.h"

#include <QString>
#include <optional>

namespace ostrel {

/// What the acceptance gate knows of one captured display. Sample queue only, but for the signs of life, and for the
/// label, which doesn't change.
struct DisplayCaptureContext {
    QString displayId; ///< the identifier in decimal
    QString displayLabel;
    qint64 width = 0; ///< pixels
    qint64 height = 0;
    /// Wall-clock milliseconds of the last frame that passed the throttle and was either sent or found unchanged.
    qint64 lastAcceptedFrameMs = 0;
    /// Of the newest picture, whatever became of it.
    KeptDownsample newestDownsample;
    /// Of the last frame that was sent, so that slow changes add up.
    std::optional<Downsample> lastSentDownsample;
    SignsOfLife signsOfLife;
};

} // namespace ostrel
