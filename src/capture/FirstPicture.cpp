#include "capture/FirstPicture.h"

namespace ostrel {

void FirstPicture::note()
{
    const std::scoped_lock lock(m_mutex);
    m_isThere = true;
}

void FirstPicture::notePause(bool isPaused)
{
    note(m_pause, isPaused);
}

void FirstPicture::notePrivateWindow(bool isInFront)
{
    note(m_privateWindow, isInFront);
}

void FirstPicture::note(Obstacle &obstacle, bool isThere)
{
    const std::scoped_lock lock(m_mutex);
    if (isThere)
        m_failure.reset();
    else if (obstacle.isThere)
        m_overcome = obstacle.words;
    obstacle.isThere = isThere;
}

void FirstPicture::noteFailure(const QString &words)
{
    const std::scoped_lock lock(m_mutex);
    m_failure = words;
    m_overcome.reset();
}

std::optional<QString> FirstPicture::whyNone() const
{
    const std::scoped_lock lock(m_mutex);
    if (m_isThere)
        return std::nullopt;
    for (const Obstacle *obstacle : {&m_pause, &m_privateWindow}) {
        if (obstacle->isThere)
            return obstacle->words;
    }
    if (m_failure)
        return m_failure;
    // Whoever asks a moment after it went is still told of it: the screen had hardly any time.
    if (m_overcome)
        return QStringLiteral("%1 None came from the screen after that.").arg(*m_overcome);
    return QStringLiteral("None came from the screen.");
}

} // namespace ostrel
