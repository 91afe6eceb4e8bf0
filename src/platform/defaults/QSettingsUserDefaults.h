#pragma once

#include "base/UserDefaults.h"

#include <QSettings>

namespace ostrel {

/// The user's small choices in an INI file, `$XDG_CONFIG_HOME/ostrel/ostrel.ini`. Main thread only.
class QSettingsUserDefaults final : public UserDefaults
{
public:
    QSettingsUserDefaults();
    /// @param file an absolute path; made when something is first stored
    explicit QSettingsUserDefaults(const QString &file);

    std::optional<QStringList> stringList(const QString &key) const override;
    void setStringList(const QString &key, const QStringList &value) override;

private:
    QSettings m_settings;
};

} // namespace ostrel
