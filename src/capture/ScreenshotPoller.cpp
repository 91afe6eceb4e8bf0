#include "capture/ScreenshotPoller.h"

#include "base/Checked.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "base/SerialQueue.h"
#include "capture/CaptureSources.h"

#include <algorithm>
#include <chrono>
#include <vector>

namespace ostrel {

namespace {

constexpr qint64 failureThreshold = 5;
constexpr qint64 shortestIntervalMs = 100;

void logFailure(const ScreenshotPolling::Source &source, const Error &error)
{
    qCCritical(logScreenCapture, "screen capture screenshot failed displayId=%s error=%s",
               qUtf8Printable(source.displayId), qUtf8Printable(error.localizedDescription));
}

QString repeatedFailureMessage(const ScreenshotPolling::Source &source, const Error &error)
{
    return QStringLiteral("Screen capture failed repeatedly for %1: %2")
        .arg(source.displayLabel, error.localizedDescription);
}

} // namespace

Task<> pollScreenshots(ScreenshotPolling polling, std::stop_token stop)
{
    const std::chrono::milliseconds interval(std::max(polling.intervalMs, shortestIntervalMs));
    std::vector<qint64> failures(std::size_t(polling.displays.size()), 0);
    do {
        for (std::size_t i = 0; i < failures.size(); ++i) {
            const auto taken = co_await polling.sampleQueue.run(
                stop, [sources = polling.sources, i] { return sources->captureScreenshot(i); });
            if (!taken)
                co_return;
            if (*taken) {
                // A turn that was skipped says nothing of the display.
                if (**taken == ScreenshotOutcome::Taken)
                    failures[i] = 0;
                continue;
            }
            const ScreenshotPolling::Source &source = polling.displays[qsizetype(i)];
            const Error error = taken->error();
            checkedIncrement(failures[i]);
            logFailure(source, error);
            if (failures[i] < failureThreshold)
                continue;
            qCCritical(logScreenCapture, "screen capture source failed repeatedly displayId=%s threshold=%lld",
                       qUtf8Printable(source.displayId), failureThreshold);
            polling.failedRepeatedly(repeatedFailureMessage(source, error));
            co_return;
        }
    } while (co_await polling.clock.sleepFor(interval, stop));
}

} // namespace ostrel
