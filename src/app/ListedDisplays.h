#pragma once

#include "base/Error.h"
#include "capture/DisplaySource.h"

namespace ostrel {

/// The displays for a command that only looks: where the desktop would ask the user before it lists them, an error that
/// says how to let it ask, and no dialog.
Result<ShareableContent> listedDisplays(DisplaySource &source);

} // namespace ostrel
