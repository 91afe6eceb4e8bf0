#include "platform/portal/PictureCover.h"

#include "base/Log.h"
#include "platform/pixels/CoveredAreas.h"

#include <utility>

namespace ostrel {

PictureCover::PictureCover(FindPrivatePlaces find, QList<qint32> processes, const StreamMonitorFacts &monitor,
                           QSize picture)
    : m_find(std::move(find)), m_processes(std::move(processes)), m_monitor(monitor), m_picture(picture)
{}

std::optional<PictureCover::Places> PictureCover::places(QSize picture)
{
    m_picture = picture;
    const auto found = m_find(m_processes);
    if (!found)
        return std::nullopt;
    // Where monitors can't be told apart, what is private on either is black.
    const QList<QRect> monitors = monitorsOf(picture, found->monitors);
    if (monitors.isEmpty())
        return std::nullopt;
    Places places{.black = {}, .mayBeAnywhere = found->mayBeAnywhere, .age = found->age};
    for (const QRect &monitor : monitors)
        places.black += pixelsTouched(found->windows, monitor, picture);
    return places;
}

QList<QRect> PictureCover::monitorsOf(QSize picture, const QList<QRect> &all)
{
    const bool haveChanged = [&] {
        const std::scoped_lock lock(m_mutex);
        if (!m_monitorsAtFirst)
            m_monitorsAtFirst = all;
        m_haveMonitorsChanged = m_haveMonitorsChanged || *m_monitorsAtFirst != all;
        return m_haveMonitorsChanged;
    }();
    // What the portal has said of places is said once: another monitor may be there now.
    return monitorsOfStream(haveChanged ? StreamMonitorFacts{} : m_monitor, picture, all);
}

void PictureCover::relyOn(bool isReliedOn)
{
    if (m_isReliedOn.exchange(isReliedOn) && !isReliedOn)
        qCWarning(logPlatform, "nobody tells where private windows are in the pictures of the screen");
}

} // namespace ostrel
