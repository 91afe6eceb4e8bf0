#pragma once

#include <QList>
#include <QSet>
#include <QString>

#include <chrono>
#include <optional>

namespace ostrel {

/// Which monitors there were while a session of the portal's was open. A value.
class MonitorHistory
{
public:
    using Monitors = QSet<QString>;
    using Time = std::chrono::milliseconds;

    /// Those at the session's beginning; without them nothing is ever known to be gone.
    void begin(const Monitors &monitors) { m_kept = monitors; }
    bool isBegun() const { return m_kept.has_value(); }
    /// They have changed to these.
    void note(Time at, const Monitors &monitors);
    /// The session has outlived changes of before that time: monitors that went then were not what it needs, and nor
    /// are those that came.
    void outlive(Time before);

    bool hasChanged(Time from, Time to) const;
    /// Whether one was seen to be gone, in between, that had been there all the time before.
    bool hasLost(Time from, Time to) const;

private:
    struct Change {
        Time at;
        Monitors monitors;
    };

    std::optional<Monitors> m_kept; ///< there from the beginning, over all changes that it has outlived
    QList<Change> m_changes;        ///< later ones
};

} // namespace ostrel
