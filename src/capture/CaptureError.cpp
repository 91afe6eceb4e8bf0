#include "capture/CaptureError.h"

namespace ostrel {

namespace {

QString descriptionOf(CaptureErrorCode code)
{
    switch (code) {
    case CaptureErrorCode::NoDisplay:
        return QStringLiteral("No capturable display found");
    case CaptureErrorCode::NoStream:
        return QStringLiteral("Could not start screen capture");
    case CaptureErrorCode::NoImage:
        return QStringLiteral("Screenshot capture returned no image");
    }
    Q_UNREACHABLE();
}

} // namespace

Error captureError(CaptureErrorCode code)
{
    return Error{QStringLiteral("TamskOstrel.ScreenCapture"), int(code), descriptionOf(code)};
}

} // namespace ostrel
