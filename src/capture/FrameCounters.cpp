#include "capture/FrameCounters.h"

#include <QStringList>

namespace ostrel {

QString FrameCounters::diagnosticSummary(qint64 buffered) const
{
    const auto entry = [](const char *label, qint64 value) {
        return QLatin1String(label) + QLatin1Char('=') + QString::number(value);
    };
    const QStringList entries{
        entry("callbacks", callbackCount),
        entry("accepted", acceptedFrameCount),
        entry("buffered", buffered),
        entry("missingContext", missingContextCount),
        entry("invalid", invalidSampleCount),
        entry("missingPixel", missingPixelBufferCount),
        entry("throttled", throttledFrameCount),
        entry("downsampleFailed", downsampleFailureCount),
        entry("unchanged", unchangedFrameCount),
        entry("jpegFailed", jpegFailureCount),
    };
    return entries.join(QLatin1Char(' '));
}

} // namespace ostrel
