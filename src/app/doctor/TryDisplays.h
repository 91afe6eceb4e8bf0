#pragma once

#include "app/doctor/DesktopFacts.h"

namespace ostrel {

class DisplaySource;

/// Takes a picture of every display as a recording would, and throws it away. May block as long as the source does.
/// @return in the order of a recording; or why the displays could not be listed
Result<QList<DisplayFacts>> tryDisplays(DisplaySource &source);

} // namespace ostrel
