#include "platform/defaults/QSettingsUserDefaults.h"

#include <QStandardPaths>

namespace ostrel {

namespace {

QString defaultFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QLatin1String("/ostrel/ostrel.ini");
}

} // namespace

QSettingsUserDefaults::QSettingsUserDefaults() : QSettingsUserDefaults(defaultFile()) {}

QSettingsUserDefaults::QSettingsUserDefaults(const QString &file) : m_settings(file, QSettings::IniFormat) {}

std::optional<QStringList> QSettingsUserDefaults::stringList(const QString &key) const
{
    if (!m_settings.contains(key))
        return std::nullopt;
    return m_settings.value(key).toStringList();
}

void QSettingsUserDefaults::setStringList(const QString &key, const QStringList &value)
{
    m_settings.setValue(key, value);
    // At once: a choice that the user has made must not depend on how the program ends.
    m_settings.sync();
}

} // namespace ostrel
