#include "capture/FirstPicture.h"

namespace ostrel {

void FirstPicture::note()
{
    const std::scoped_lock lock(m_mutex);
    m_isThere = true;
}

void FirstPicture::notePause()
{
    noteObstacle(QStringLiteral("The session was locked."));
}

void FirstPicture::notePrivateWindow()
{
    noteObstacle(QStringLiteral("A private window or page was in front."));
}

void FirstPicture::noteFailure(const QString &words)
{
    noteObstacle(words);
}

void FirstPicture::noteObstacle(const QString &words)
{
    const std::scoped_lock lock(m_mutex);
    if (!m_isThere)
        m_obstacle = words;
}

std::optional<QString> FirstPicture::whyNone() const
{
    const std::scoped_lock lock(m_mutex);
    if (m_isThere)
        return std::nullopt;
    return m_obstacle.value_or(QStringLiteral("None came from the screen."));
}

} // namespace ostrel
