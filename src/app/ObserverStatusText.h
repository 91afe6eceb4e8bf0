#pragma once

#include "observer/WireRecords.h"

#include <QDateTime>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace ostrel {

/// The observer's status for people: a line for each thing, times of the day in local time, days where it wasn't today.
/// @param now decides what today is
/// @param recorderError what is wrong with the program that records, where that is known
QString statusText(const ObserverStatus &status, const QDateTime &now,
                   const std::optional<QString> &recorderError = std::nullopt);

/// All ten fields by their names, absent ones null.
QJsonObject statusJson(const ObserverStatus &status);

} // namespace ostrel
