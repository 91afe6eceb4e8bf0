#pragma once

#include <QString>

#include <mutex>
#include <optional>

namespace ostrel {

/// Whether the observer was ever given a picture, and what keeps one from coming, or did so last. Any thread.
class FirstPicture
{
public:
    /// The observer has one. Until then it may still be taken back, because of a private window.
    void note();
    /// Whether capture is paused, as it is while the session is locked.
    void notePause(bool isPaused);
    /// Whether a private window or page is in front.
    void notePrivateWindow(bool isInFront);
    /// @param words a whole sentence
    void noteFailure(const QString &words);

    /// @return why there was none, in a sentence or two; nothing once there was one
    std::optional<QString> whyNone() const;

private:
    /// What lasts for a while.
    struct Obstacle {
        const QString words;
        bool isThere = false;
    };
    void note(Obstacle &obstacle, bool isThere);

    mutable std::mutex m_mutex;
    bool m_isThere = false;
    Obstacle m_pause{.words = QStringLiteral("The session was locked.")};
    Obstacle m_privateWindow{.words = QStringLiteral("A private window or page was in front.")};
    std::optional<QString> m_failure;  ///< the newest, unless an obstacle came after it
    std::optional<QString> m_overcome; ///< the obstacle that went last, unless a failure came after it
};

} // namespace ostrel
