#include "capture/CapturePlan.h"

#include "capture/CaptureConfiguration.h"
#include "capture/CaptureError.h"
#include "capture/DisplayList.h"

namespace ostrel {

namespace {

std::shared_ptr<DisplayCaptureContext> makeContext(const CapturableDisplay &display, const QString &label)
{
    auto context = std::make_shared<DisplayCaptureContext>();
    context->displayId = QString::number(display.displayId);
    context->displayLabel = label;
    context->width = display.width;
    context->height = display.height;
    return context;
}

} // namespace

Result<CapturePlan> planCapture(DisplaySource &source, double frameFps, qint32 processID,
                                const std::optional<QString> &bundleIdentifier)
{
    const auto content = source.shareableContent();
    if (!content)
        return std::unexpected(content.error());
    if (content->displays.isEmpty())
        return std::unexpected(captureError(CaptureErrorCode::NoDisplay));

    CapturePlan plan;
    plan.mode = source.captureMode();
    plan.filterMode =
        ScreenCaptureFilterStrategy::displayFilterMode(content->applications, processID, bundleIdentifier);
    const auto ordered = orderedDisplays(content->displays, content->mainDisplayId);
    plan.candidates = activeDisplayCandidates(ordered, content->mainDisplayId);
    for (qsizetype i = 0; i < ordered.size(); ++i) {
        const CapturableDisplay &display = ordered[i];
        plan.displays.append(CapturePlan::Display{
            .displayId = display.displayId,
            .filter = makeDisplayFilter(display, plan.filterMode),
            .configuration = makeConfiguration(display, frameFps),
            .context = makeContext(display, displayLabel(display.displayId, i, content->mainDisplayId)),
        });
    }
    return plan;
}

} // namespace ostrel
