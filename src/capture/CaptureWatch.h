#pragma once

#include "base/Task.h"
#include "capture/CapturePlan.h"

#include <QList>
#include <QString>
#include <chrono>
#include <functional>
#include <memory>
#include <stop_token>

namespace ostrel {

class CaptureSources;
class Clock;
class SerialQueue;

/// What the watch over one recording's capture needs; the references outlive it.
struct CaptureWatch {
    /// A display that shows no sign of life between so many looks has stalled.
    static constexpr int silentLooks = 3;
    static constexpr std::chrono::seconds timeBetweenLooks{10};

    Clock &clock;
    SerialQueue &sampleQueue;
    std::shared_ptr<CaptureSources> sources;
    CaptureMode mode = CaptureMode::Screenshots;
    QList<std::shared_ptr<DisplayCaptureContext>> displays; ///< those that are captured
    /// Called when displays have stalled, and again each time they have done so for as long once more.
    std::function<void(const QString &message)> stalled;
    /// Called when displays whose streams answer have given no picture since the start, for as long; once for each.
    std::function<void(const QString &message)> missesPictures;
    /// Called when every display has moved: once after the start, and once after each stall, and after pictures were
    /// missed.
    std::function<void()> goesOn;
};

/// Watches whether anything is still done for every display, until it is stopped. Main thread, which looks at counters
/// only: whatever hangs, it doesn't. It counts looks, not the time of day, so that neither a clock that is set nor a
/// machine that sleeps is a stall.
Task<> watchCapture(CaptureWatch watch, std::stop_token stop);

} // namespace ostrel
