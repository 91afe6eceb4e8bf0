#pragma once

#include <QSet>
#include <QString>

namespace ostrel {

class UserDefaults;

/// Which days of the journal are folded, over launches. Main thread.
class CollapsedDays
{
public:
    /// Restores what was kept. The defaults outlive this object.
    explicit CollapsedDays(UserDefaults &defaults);

    const QSet<QString> &dateKeys() const { return m_dateKeys; }
    /// Folds an open day, or opens a folded one. Days that are not among those present are forgotten.
    void toggle(const QString &dateKey, const QSet<QString> &present);

private:
    UserDefaults &m_defaults;
    QSet<QString> m_dateKeys;
};

} // namespace ostrel
