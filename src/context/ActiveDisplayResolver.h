#pragma once

#include "context/ActiveDisplay.h"

#include <QList>
#include <QPointF>
#include <QRectF>
#include <optional>

namespace ostrel {

/// Decides which display the user works on. Pure; any thread.
namespace ActiveDisplayResolver {

/// The display that holds most of the focused window ("focusedWindow"), the earlier one where two hold as much. Where
/// no window is known or no display holds any of it, the display under the mouse ("mouse"): its left and top edges
/// belong to it, its right and bottom edges don't. Where neither decides, none: there is no default display.
///
/// All geometry is in desktop coordinates. An empty rectangle counts as absent.
std::optional<ActiveDisplaySelection> resolve(const std::optional<QRectF> &windowFrame,
                                              const std::optional<QPointF> &mouseLocation,
                                              const QList<ActiveDisplayCandidate> &displays);

} // namespace ActiveDisplayResolver

} // namespace ostrel
