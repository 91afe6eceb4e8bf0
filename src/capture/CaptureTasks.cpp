#include "capture/CaptureTasks.h"

#include "capture/CaptureSources.h"
#include "capture/CaptureWatch.h"
#include "capture/ForegroundSampler.h"
#include "capture/RecorderNews.h"
#include "capture/ScreenshotPoller.h"

namespace ostrel {

void CaptureTasks::start(const Needs &needs, const CapturePlan &plan, qint64 intervalMs)
{
    startForegroundAppSampler(needs, plan);
    if (plan.mode == CaptureMode::Screenshots)
        startScreenshotPolling(needs, plan, intervalMs);
    startWatch(needs, plan);
}

void CaptureTasks::cancel()
{
    m_screenshotTask.cancel();
    m_foregroundAppTask.cancel();
    m_watchTask.cancel();
}

void CaptureTasks::startForegroundAppSampler(const Needs &needs, const CapturePlan &plan)
{
    const ForegroundSampling sampling{.clock = needs.with.clock,
                                      .context = needs.with.context,
                                      .contextQueue = needs.with.contextQueue,
                                      .sampleQueue = needs.with.sampleQueue,
                                      .sources = needs.sources,
                                      .displays = plan.candidates};
    m_foregroundAppTask.start([sampling](std::stop_token stop) { return sampleForegroundApp(sampling, stop); });
}

void CaptureTasks::startScreenshotPolling(const Needs &needs, const CapturePlan &plan, qint64 intervalMs)
{
    ScreenshotPolling polling{
        .clock = needs.with.clock,
        .sampleQueue = needs.with.sampleQueue,
        .sources = needs.sources,
        .displays = {},
        .intervalMs = intervalMs,
        .failedRepeatedly = [news = needs.news, displays = plan.displays](const QString &message) {
            for (const CapturePlan::Display &display : displays)
                display.context->signsOfLife.end();
            news->tellThatStreamsDied(message);
        }};
    for (const CapturePlan::Display &display : plan.displays)
        polling.displays.append({display.context->displayId, display.context->displayLabel});
    m_screenshotTask.start([polling](std::stop_token stop) { return pollScreenshots(polling, stop); });
}

void CaptureTasks::startWatch(const Needs &needs, const CapturePlan &plan)
{
    const auto news = needs.news;
    CaptureWatch watch{
        .clock = needs.with.clock,
        .sampleQueue = needs.with.sampleQueue,
        .sources = needs.sources,
        .mode = plan.mode,
        .displays = {},
        .stalled = [news](const QString &message) { news->tell(&ScreenCaptureRecorder::onStalled, message); },
        .missesPictures =
            [news](const QString &message) { news->tell(&ScreenCaptureRecorder::onPicturesMissing, message); },
        .goesOn = [news] { news->tell(&ScreenCaptureRecorder::onGoesOn); }};
    for (const CapturePlan::Display &display : plan.displays) {
        if (!display.context->signsOfLife.hasEnded())
            watch.displays.append(display.context);
    }
    m_watchTask.start([watch](std::stop_token stop) { return watchCapture(watch, stop); });
}

} // namespace ostrel
