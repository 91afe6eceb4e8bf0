#pragma once

#include "capture/DisplaySource.h"
#include "context/ActiveDisplay.h"

#include <QList>
#include <QString>

namespace ostrel {

/// The main display first, the others by identifier; displays that compare equal keep their order.
QList<CapturableDisplay> orderedDisplays(const QList<CapturableDisplay> &displays, quint32 mainDisplayId);

/// "Display 2"; the main display's ends in " (main)".
/// @param position zero-based, in the ordered list
QString displayLabel(quint32 displayId, qsizetype position, quint32 mainDisplayId);

/// What the active-display rule chooses from: the ordered displays with the identifiers and labels that their frames
/// carry.
QList<ActiveDisplayCandidate> activeDisplayCandidates(const QList<CapturableDisplay> &ordered, quint32 mainDisplayId);

} // namespace ostrel
