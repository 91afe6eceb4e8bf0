#pragma once

#include "platform/kwin/KWinNews.h"

#include <chrono>
#include <deque>
#include <optional>

namespace ostrel {

/// The windows as they are, and as they were within the last second. Longer than that no picture waits until it is held
/// against them, and no effect draws a window elsewhere that has come or gone. Not safe for threads.
class KWinHistory
{
public:
    static constexpr std::chrono::milliseconds span{1000};
    /// Of these only a window that goes mad, or a thousand that move at once, makes more within the span.
    static constexpr std::size_t mostPast = 4096;

    /// @param now time that only ever goes on
    void take(KWinNews news, std::chrono::milliseconds now);
    /// All that was drawn before this time is told.
    /// @param time by the same clock
    /// @param isElsewhere whether an effect shows windows elsewhere then
    void confirm(std::chrono::milliseconds time, bool isElsewhere);
    /// Nothing is known from now on, until news have come for a second.
    void forget();

    /// Windows that are seen, or were: one that has moved is there several times. While an effect shows windows
    /// elsewhere, and for a second after, all windows: it may show any, and they are all flying.
    struct Moments {
        QList<QRect> monitors;
        QList<KWinWindow> windows;
        std::chrono::milliseconds age{0}; ///< what was drawn since then may not be told yet
    };
    /// @return absent when nothing is known, or not all of the last second
    std::optional<Moments> lately(std::chrono::milliseconds now) const;

private:
    struct Past {
        KWinWindow window;
        std::chrono::milliseconds until;
    };

    /// @param next the same window as it is now; null when it is there no more
    void keep(const KWinWindow &window, const KWinWindow *next, std::chrono::milliseconds now);
    void dropOlder(std::chrono::milliseconds now);

    std::optional<KWinNews> m_now;
    std::optional<std::chrono::milliseconds> m_confirmed;
    std::optional<std::chrono::milliseconds> m_elsewhere; ///< when windows were shown elsewhere last
    std::deque<Past> m_past;                              ///< the oldest first
    std::chrono::milliseconds m_lackingUntil = std::chrono::milliseconds::min();
};

} // namespace ostrel
