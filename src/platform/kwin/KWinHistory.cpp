#include "platform/kwin/KWinHistory.h"

#include <QHash>

#include <utility>

namespace ostrel {

namespace {

/// Whether a picture may show it otherwise than it is now.
bool hasChanged(const KWinWindow &window, const KWinWindow *next)
{
    if (next == nullptr)
        return window.isSeen;
    return (window.isSeen || next->isSeen) && *next != window;
}

} // namespace

void KWinHistory::take(KWinNews news, std::chrono::milliseconds now)
{
    dropOlder(now);
    if (m_now) {
        QHash<QString, const KWinWindow *> next;
        for (const KWinWindow &window : std::as_const(news.windows))
            next.insert(window.id, &window);
        for (const KWinWindow &window : std::as_const(m_now->windows)) {
            const KWinWindow *same = next.value(window.id);
            if (hasChanged(window, same))
                keep(window, same, now);
        }
    } else {
        m_lackingUntil = now + span;
    }
    m_now = std::move(news);
}

void KWinHistory::keep(const KWinWindow &window, const KWinWindow *next, std::chrono::milliseconds now)
{
    if (m_past.size() >= mostPast) {
        m_past.clear();
        m_lackingUntil = now + span;
        return;
    }
    Past &past = m_past.emplace_back(Past{.window = window, .until = now});
    if (next == nullptr)
        return;
    past.window.isFlying = window.isSeen != next->isSeen;
    // Where it jumps, effects may draw it in between.
    past.window.frame |= next->frame;
}

void KWinHistory::dropOlder(std::chrono::milliseconds now)
{
    while (!m_past.empty() && m_past.front().until + span < now)
        m_past.pop_front();
}

void KWinHistory::confirm(std::chrono::milliseconds time, bool isElsewhere)
{
    m_confirmed = time;
    if (isElsewhere)
        m_elsewhere = time;
}

void KWinHistory::forget()
{
    m_now.reset();
    m_confirmed.reset();
    m_past.clear();
}

std::optional<KWinHistory::Moments> KWinHistory::lately(std::chrono::milliseconds now) const
{
    if (!m_now || !m_confirmed || now < m_lackingUntil)
        return std::nullopt;
    Moments moments{.monitors = m_now->monitors, .windows = {}, .age = now - *m_confirmed};
    const bool isElsewhere = m_elsewhere && *m_elsewhere + span >= now;
    for (const KWinWindow &window : m_now->windows) {
        if (!window.isSeen && !isElsewhere)
            continue;
        moments.windows.push_back(window);
        moments.windows.back().isFlying = isElsewhere;
    }
    for (const Past &past : m_past) {
        if (past.until + span >= now)
            moments.windows.push_back(past.window);
    }
    return moments;
}

} // namespace ostrel
