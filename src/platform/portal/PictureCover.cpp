#include "platform/portal/PictureCover.h"

#include "base/Log.h"
#include "platform/pixels/CoveredAreas.h"

#include <utility>

namespace ostrel {

PictureCover::PictureCover(FindPrivatePlaces find, QList<qint32> processes, const StreamMonitorFacts &monitor,
                           QSize picture)
    : m_find(std::move(find)), m_processes(std::move(processes)), m_monitor(monitor), m_picture(picture)
{}

std::optional<QList<QRect>> PictureCover::places(QSize picture)
{
    m_picture = picture;
    const auto found = m_find(m_processes);
    if (!found)
        return std::nullopt;
    // Where monitors can't be told apart, what is private on either is black.
    const QList<QRect> monitors = monitorsOfStream(m_monitor, picture, found->monitors);
    if (monitors.isEmpty())
        return std::nullopt;
    QList<QRect> places;
    for (const QRect &monitor : monitors)
        places += pixelsTouched(found->windows, monitor, picture);
    return places;
}

void PictureCover::relyOn(bool isReliedOn)
{
    if (m_isReliedOn.exchange(isReliedOn) && !isReliedOn)
        qCWarning(logPlatform, "nobody tells where private windows are in the pictures of the screen");
}

} // namespace ostrel
