#pragma once

#include "platform/sessionbus/GlibHandles.h"

namespace ostrel {

/// What a program is to search a window for. Each exists once: what is asked in every sample is not to be written in
/// every sample.
struct AtspiMatchRule {
    GlibHandle<GVariant> arguments; ///< of Collection.GetMatches
    int maximum = 0;
    bool isWhole = false; ///< comes to every element of a page

    // A program ends a search when it has found as many as it was asked for. Asked for one more than there are, it
    // looks at every element of the page: of 2,000 that takes Chromium ten milliseconds, where the first one takes less
    // than one.

    static const AtspiMatchRule &firstPage();
    static const AtspiMatchRule &pages(); ///< a few
    static const AtspiMatchRule &firstFocus();
    static const AtspiMatchRule &everyFocus(); ///< a few; whole
};

} // namespace ostrel
