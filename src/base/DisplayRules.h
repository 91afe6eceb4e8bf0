#pragma once

#include <QList>
#include <QPoint>
#include <QStringList>

#include <optional>

namespace ostrel {

/// The identifiers of displays with these names, in their order: 32-bit FNV-1a of the name, so that they survive
/// restarts; of two names with one hash the later in the alphabet has it plus one.
QList<quint32> displayIdentifiers(const QStringList &names);

/// The main one of displays whose corners are these, where nobody says which it is: the one at (0,0); else the first by
/// (y, x). Absent without displays.
std::optional<qsizetype> mainDisplayIndex(const QList<QPoint> &corners);

} // namespace ostrel
