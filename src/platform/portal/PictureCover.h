#pragma once

#include "platform/portal/PrivatePlaces.h"
#include "platform/portal/StreamMonitor.h"

#include <QList>
#include <QRect>
#include <QSize>

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>

namespace ostrel {

/// Tells what is private in the pictures of one stream. Any thread.
class PictureCover
{
public:
    /// @param find      not empty
    /// @param processes whose windows are private
    /// @param picture   the size, in pixels, that pictures are expected to have
    PictureCover(FindPrivatePlaces find, QList<qint32> processes, const StreamMonitorFacts &monitor, QSize picture);

    struct Places {
        QList<QRect> black;               ///< pixels of the picture
        bool mayBeAnywhere = false;       ///< no picture of now may be seen
        std::chrono::milliseconds age{0}; ///< see PrivatePlaces
    };
    /// What must be black in a picture of this size. Absent when nobody tells where private windows are, or there is no
    /// such monitor.
    std::optional<Places> places(QSize picture);
    /// Whether `places` has an answer now, for pictures as they were last.
    bool isTold() { return places(m_picture).has_value(); }

    /// Says whether others rely on private windows being left out. They do from the beginning.
    void relyOn(bool isReliedOn);
    bool isReliedOn() const { return m_isReliedOn; }

private:
    QList<QRect> monitorsOf(QSize picture, const QList<QRect> &all);

    const FindPrivatePlaces m_find;
    const QList<qint32> m_processes;
    const StreamMonitorFacts m_monitor;
    std::atomic<QSize> m_picture;
    std::mutex m_mutex;
    std::optional<QList<QRect>> m_monitorsAtFirst; ///< those that the portal spoke of; guarded by the mutex
    bool m_haveMonitorsChanged = false;            ///< also by it
    std::atomic<bool> m_isReliedOn = true;
};

} // namespace ostrel
