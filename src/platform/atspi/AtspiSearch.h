#pragma once

#include "platform/atspi/AtspiFocusWatch.h"
#include "platform/atspi/AtspiQueries.h"

#include <QDeadlineTimer>
#include <QHash>
#include <QSet>

#include <chrono>
#include <functional>

namespace ostrel {

struct AtspiMatchRule;

/// An object, and what it says about itself.
struct AtspiFocus {
    AtspiReference reference;
    AtspiControl control;
    std::optional<AtspiDetails> details; ///< where they have been read already
};

/// A web page, and what it says about itself ("URI", "Title").
struct AtspiPage {
    AtspiReference reference;
    AtspiAttributes attributes;
};

/// Searches within windows, by the programs themselves where they can: that is one round trip, where walking over the
/// tree takes hundreds.
///
/// A search runs in the searched program's main thread. One that took long, as in a huge page, is not repeated for a
/// while, lest recording makes that program jerk.
class AtspiSearch
{
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    AtspiSearch(AtspiBus &bus, AtspiQueries &queries, Clock now)
        : m_bus(bus), m_queries(queries), m_now(std::move(now)), m_watch(bus)
    {}

    /// The visible web page, or the visible pages, outermost first, where the first one says nothing of use. A
    /// browser's own tools beside a page are no page. @return nothing where the program can't search
    std::optional<QList<AtspiPage>> pages(const AtspiReference &window);
    /// What has the keyboard's focus.
    std::optional<AtspiFocus> focused(const AtspiReference &window);
    /// Watches nothing until the next search.
    void endSampling();

private:
    /// A page, or something in it, that has the focus while nothing else in its window has, and what that was found
    /// out from.
    struct LoneFocus {
        AtspiReference window;
        AtspiReference object;
        quint64 changes = 0;
        std::chrono::steady_clock::time_point searchedAt;
    };

    std::optional<QList<AtspiReference>> matches(const AtspiReference &window, const AtspiMatchRule &rule);
    /// Without a browser's own tools.
    QList<AtspiPage> readPages(const QList<AtspiReference> &found);
    static bool isOfPage(const AtspiDetails &details);
    bool isStillAlone(const AtspiReference &window, const AtspiReference &object) const;
    std::optional<AtspiReference> controlBeside(const AtspiReference &window, const AtspiReference &object);
    std::optional<AtspiReference> controlIn(const QList<AtspiReference> &found);
    std::optional<AtspiFocus> focusedByWalk(const AtspiReference &window);
    std::optional<AtspiReference> walkToFocused(const AtspiReference &window);
    void forgetOtherPrograms();

    AtspiBus &m_bus;
    AtspiQueries &m_queries;
    QSet<QByteArray> m_cannotSearch;
    /// Programs that deny an object which they have when they are asked to search in it: those of Qt. Only what has the
    /// focus is looked for in them; pages would take hundreds of round trips in every sample.
    QSet<QByteArray> m_denySearches;
    QHash<QByteArray, QDeadlineTimer> m_restUntil;
    QHash<QByteArray, QDeadlineTimer> m_wholeRestUntil; ///< from searches of whole pages only
    int m_generation = -1;
    const Clock m_now;
    AtspiFocusWatch m_watch;
    std::optional<LoneFocus> m_loneFocus;
};

} // namespace ostrel
