#pragma once

#include "platform/kwin/KWinNews.h"

#include <chrono>
#include <deque>
#include <optional>

namespace ostrel {

/// The windows as they are, and as they were within the last second. Not safe for threads.
class KWinHistory
{
public:
    static constexpr std::chrono::milliseconds span{1000};
    /// Of these only a window that goes mad, or a thousand that move at once, makes more within the span.
    static constexpr std::size_t mostPast = 4096;

    /// @param now time that only ever goes on
    void take(KWinNews news, std::chrono::milliseconds now);
    /// Nothing is known from now on, until news come.
    void forget();

    /// Windows that are seen, or were: one that has moved is there several times.
    struct Moments {
        QList<QRect> monitors;
        QList<KWinWindow> windows;
    };
    /// @return absent when nothing is known, or not all of the last second
    std::optional<Moments> lately(std::chrono::milliseconds now) const;

private:
    struct Past {
        KWinWindow window;
        std::chrono::milliseconds until;
    };

    void keep(const KWinWindow &window, std::chrono::milliseconds now);
    void dropOlder(std::chrono::milliseconds now);

    std::optional<KWinNews> m_now;
    std::deque<Past> m_past; ///< the oldest first
    std::chrono::milliseconds m_lackingUntil = std::chrono::milliseconds::min();
};

} // namespace ostrel
