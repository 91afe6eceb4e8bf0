#include "app/popover/CollapsedDays.h"

#include "base/UserDefaults.h"

namespace ostrel {

namespace {

const QString defaultsKey = QStringLiteral("journalCollapsedDays");

} // namespace

CollapsedDays::CollapsedDays(UserDefaults &defaults) : m_defaults(defaults)
{
    const QStringList kept = m_defaults.stringList(defaultsKey).value_or(QStringList());
    m_dateKeys = QSet<QString>(kept.begin(), kept.end());
}

void CollapsedDays::toggle(const QString &dateKey, const QSet<QString> &present)
{
    if (!m_dateKeys.remove(dateKey))
        m_dateKeys.insert(dateKey);
    m_dateKeys.intersect(present);
    QStringList sorted(m_dateKeys.begin(), m_dateKeys.end());
    sorted.sort();
    m_defaults.setStringList(defaultsKey, sorted);
}

} // namespace ostrel
