#pragma once

#include "observer/ObserverSettings.h"

#include <QString>
#include <QStringList>

#include <expected>

namespace ostrel {

/// What the values of the settings may be, for whoever edits them. The record itself holds anything.
namespace SettingRules {

/// All keys, in the order of the record's fields.
QStringList keys();
bool isKey(const QString &key);
/// The key that a mistyped one comes closest to.
QString nearestKey(const QString &mistyped);

/// Whether its value must not be seen by others.
bool isSecret(const QString &key);
/// Whether the observer alone says what it is.
bool isObservers(const QString &key);

/// What the setting takes, to complete "KEY takes ...". For a known key.
QString takes(const QString &key);

/// Gives one setting the value that its user has written. Numbers are in the C locale. Blanks and line breaks around a
/// secret are no part of it; an empty one is none.
/// @return a sentence for the user that says why it can't be; it never repeats a secret. The settings are as they were.
std::expected<void, QString> assign(ObserverSettings &settings, const QString &key, const QString &value);

} // namespace SettingRules

} // namespace ostrel
