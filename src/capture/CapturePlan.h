#pragma once

#include "capture/DisplayCaptureContext.h"
#include "capture/DisplaySource.h"
#include "context/ActiveDisplay.h"

#include <QList>
#include <QString>
#include <memory>
#include <optional>

namespace ostrel {

/// What a start found and decided, before anything is captured.
struct CapturePlan {
    struct Display {
        quint32 displayId = 0;
        DisplayContentFilter filter;
        DisplayCaptureConfiguration configuration;
        std::shared_ptr<DisplayCaptureContext> context;
    };

    CaptureMode mode = CaptureMode::Screenshots;
    DisplayFilterMode filterMode;
    QList<Display> displays; ///< in their order
    QList<ActiveDisplayCandidate> candidates;
};

/// Lists, orders and labels the displays and decides whose windows are left out. Blocks for the display source's
/// answer: sample queue only.
/// @return the source's error, or CaptureErrorCode::NoDisplay
Result<CapturePlan> planCapture(DisplaySource &source, double frameFps, qint32 processID,
                                const std::optional<QString> &bundleIdentifier);

} // namespace ostrel
