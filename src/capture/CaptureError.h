#pragma once

#include "base/Error.h"

namespace ostrel {

/// The failures of a recording that are its own; their codes are seen by users in reports and never change.
enum class CaptureErrorCode {
    NoDisplay = 1,
    NoStream = 2,
    NoImage = 3,
};

/// The error with domain "TamskOstrel.ScreenCapture", that code and its sentence.
Error captureError(CaptureErrorCode code);

} // namespace ostrel
