#include "platform/kwin/KWinHistory.h"

#include <QHash>

#include <utility>

namespace ostrel {

void KWinHistory::take(KWinNews news, std::chrono::milliseconds now)
{
    dropOlder(now);
    if (m_now) {
        QHash<QString, const KWinWindow *> next;
        for (const KWinWindow &window : news.windows)
            next.insert(window.id, &window);
        for (const KWinWindow &window : std::as_const(m_now->windows)) {
            const KWinWindow *same = next.value(window.id);
            if (window.isSeen && (same == nullptr || !(*same == window)))
                keep(window, now);
        }
    }
    m_now = std::move(news);
}

void KWinHistory::keep(const KWinWindow &window, std::chrono::milliseconds now)
{
    if (m_past.size() < mostPast) {
        m_past.push_back({.window = window, .until = now});
        return;
    }
    m_past.clear();
    m_lackingUntil = now + span;
}

void KWinHistory::dropOlder(std::chrono::milliseconds now)
{
    while (!m_past.empty() && m_past.front().until + span < now)
        m_past.pop_front();
}

void KWinHistory::forget()
{
    m_now.reset();
    m_past.clear();
}

std::optional<KWinHistory::Moments> KWinHistory::lately(std::chrono::milliseconds now) const
{
    if (!m_now || now < m_lackingUntil)
        return std::nullopt;
    Moments moments{.monitors = m_now->monitors, .windows = {}};
    for (const KWinWindow &window : m_now->windows) {
        if (window.isSeen)
            moments.windows.push_back(window);
    }
    for (const Past &past : m_past) {
        if (past.until + span >= now)
            moments.windows.push_back(past.window);
    }
    return moments;
}

} // namespace ostrel
