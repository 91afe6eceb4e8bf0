#pragma once

#include "observer/WireRecords.h"

#include <QDateTime>
#include <QJsonObject>
#include <QString>

namespace ostrel {

/// The observer's status for people: a line for each thing, times of the day in local time, days where it wasn't today.
/// @param now decides what today is
QString statusText(const ObserverStatus &status, const QDateTime &now);

/// All ten fields by their names, absent ones null.
QJsonObject statusJson(const ObserverStatus &status);

} // namespace ostrel
