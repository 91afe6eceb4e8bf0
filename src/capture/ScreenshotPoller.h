#pragma once

#include "base/Task.h"

#include <QList>
#include <QString>
#include <functional>
#include <memory>
#include <stop_token>

namespace ostrel {

class CaptureSources;
class Clock;
class SerialQueue;

/// What one polling needs; the references outlive it.
struct ScreenshotPolling {
    struct Source {
        QString displayId;
        QString displayLabel;
    };

    Clock &clock;
    SerialQueue &sampleQueue;
    std::shared_ptr<CaptureSources> sources;
    QList<Source> displays; ///< in the order of the capture plan
    qint64 intervalMs = 0;  ///< between two rounds; below 100 counts as 100
    /// Called on the main thread when a display has failed five times in a row; polling has ended by then.
    std::function<void(const QString &message)> failedRepeatedly;
};

/// Takes a picture of each display in turn, the first at once, until it is stopped or a display keeps failing. Runs on
/// the main thread; pictures are taken and judged on the sample queue.
Task<> pollScreenshots(ScreenshotPolling polling, std::stop_token stop);

} // namespace ostrel
