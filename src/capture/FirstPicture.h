#pragma once

#include <QString>

#include <mutex>
#include <optional>

namespace ostrel {

/// Whether the observer was ever given a picture, and what was last seen to keep one from coming. Any thread.
class FirstPicture
{
public:
    /// The observer has one. Until then it may still be taken back, because of a private window.
    void note();
    /// Capture is paused, as it is while the session is locked.
    void notePause();
    /// A private window or page is in front.
    void notePrivateWindow();
    /// @param words a whole sentence
    void noteFailure(const QString &words);

    /// @return why there was none, in a sentence; nothing once there was one
    std::optional<QString> whyNone() const;

private:
    void noteObstacle(const QString &words);

    mutable std::mutex m_mutex;
    bool m_isThere = false;
    std::optional<QString> m_obstacle;
};

} // namespace ostrel
