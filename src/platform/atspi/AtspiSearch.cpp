#include "platform/atspi/AtspiSearch.h"

#include "platform/atspi/AtspiMatchRule.h"
#include "platform/atspi/AtspiRoles.h"

#include <algorithm>
#include <chrono>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr qint64 slowSearchMs = 150;
constexpr auto restAfterSlowSearch = 10s;
/// How long a page's focus, or that of something in it, counts as its alone by the program's silence.
constexpr auto longestTrust = 2s;
/// Of programs without a search, as Qt's: what is deeper in a window than this reaches is not found.
constexpr qsizetype mostWalkedElements = 64;
constexpr qsizetype mostRememberedPrograms = 256;

bool saysSomething(const AtspiPage &page)
{
    const auto texts = {QStringLiteral("URI"), QStringLiteral("DocURL"), QStringLiteral("Title")};
    return std::ranges::any_of(texts, [&](const QString &name) { return !page.attributes.value(name).isEmpty(); });
}

} // namespace

std::optional<QList<AtspiPage>> AtspiSearch::pages(const AtspiReference &window)
{
    auto found = matches(window, AtspiMatchRule::firstPage());
    if (!found)
        return std::nullopt;
    QList<AtspiPage> pages = readPages(*found);
    if (found->isEmpty() || std::ranges::any_of(pages, saysSomething))
        return pages;
    found = matches(window, AtspiMatchRule::pages());
    return readPages(found.value_or(QList<AtspiReference>()));
}

QList<AtspiPage> AtspiSearch::readPages(const QList<AtspiReference> &found)
{
    QList<AtspiPage> pages;
    for (const AtspiReference &reference : found) {
        AtspiPage page{.reference = reference, .attributes = m_queries.documentAttributes(reference)};
        if (!page.attributes.value(QStringLiteral("URI")).startsWith(QLatin1String("devtools:")))
            pages.append(std::move(page));
    }
    return pages;
}

std::optional<AtspiFocus> AtspiSearch::focused(const AtspiReference &window)
{
    const auto found = matches(window, AtspiMatchRule::firstFocus());
    if (!found || m_denySearches.contains(window.name))
        return focusedByWalk(window);
    if (found->isEmpty())
        return std::nullopt;
    AtspiFocus first{.reference = found->first(), .control = m_queries.control(found->first()), .details = {}};
    if (first.control.role != AtspiRole::documentWeb) {
        first.details = m_queries.details(first.reference);
        if (!isOfPage(*first.details))
            return first;
    }
    if (isStillAlone(window, first.reference))
        return first;
    const auto control = controlBeside(window, first.reference);
    return control && *control != first.reference
               ? AtspiFocus{.reference = *control, .control = m_queries.control(*control), .details = {}}
               : first;
}

void AtspiSearch::endSampling()
{
    m_loneFocus.reset();
    m_watch.end();
}

/// Elements of pages tell what they are called in HTML.
bool AtspiSearch::isOfPage(const AtspiDetails &details)
{
    return details.attributes.contains(QStringLiteral("tag"));
}

/// A page, or what has the focus in it, says so also while a control beside the page has the focus, as a browser's
/// tabs. Only a search of the whole page comes to those behind it, and while somebody reads or writes in the page that
/// would be in every sample. But it also says it when its focus goes elsewhere, and it has not said so since it was
/// searched.
bool AtspiSearch::isStillAlone(const AtspiReference &window, const AtspiReference &object) const
{
    return m_loneFocus && m_loneFocus->window == window && m_loneFocus->object == object &&
           m_watch.isWatching(object) && m_loneFocus->changes == m_watch.changes() &&
           m_now() - m_loneFocus->searchedAt < longestTrust;
}

std::optional<AtspiReference> AtspiSearch::controlBeside(const AtspiReference &window, const AtspiReference &object)
{
    // Whoever has just begun to listen may have missed something.
    const bool wasWatched = m_watch.isWatching(object);
    m_watch.watch(object);
    const LoneFocus asked{.window = window, .object = object, .changes = m_watch.changes(), .searchedAt = m_now()};
    const auto found = matches(window, AtspiMatchRule::everyFocus()).value_or(QList<AtspiReference>());
    // An answer without it is none, or of another moment.
    const bool isAlone = wasWatched && found == QList<AtspiReference>{object};
    m_loneFocus = isAlone ? std::optional(asked) : std::nullopt;
    return controlIn(found);
}

std::optional<AtspiFocus> AtspiSearch::focusedByWalk(const AtspiReference &window)
{
    const auto found = walkToFocused(window);
    return found ? std::optional(AtspiFocus{.reference = *found, .control = m_queries.control(*found), .details = {}})
                 : std::nullopt;
}

/// The first one beside the page, else the first one in it.
std::optional<AtspiReference> AtspiSearch::controlIn(const QList<AtspiReference> &found)
{
    const QList<std::optional<quint32>> roles = m_queries.roles(found);
    QList<AtspiReference> controls;
    for (qsizetype i = 0; i < found.size(); ++i) {
        if (roles[i] && *roles[i] != AtspiRole::documentWeb)
            controls.append(found[i]);
    }
    if (controls.size() < 2)
        return controls.isEmpty() ? std::nullopt : std::optional(controls.first());
    const auto isBeside = [this](const AtspiReference &each) { return !isOfPage(m_queries.details(each)); };
    const auto beside = std::ranges::find_if(controls, isBeside);
    return beside != controls.end() ? *beside : controls.first();
}

std::optional<QList<AtspiReference>> AtspiSearch::matches(const AtspiReference &window, const AtspiMatchRule &rule)
{
    forgetOtherPrograms();
    if (m_cannotSearch.contains(window.name))
        return std::nullopt;
    if (m_denySearches.contains(window.name))
        return QList<AtspiReference>();
    // A page that takes long to search wholly may well be found at once, and its control too.
    auto &restUntil = rule.isWhole ? m_wholeRestUntil : m_restUntil;
    const auto rest = restUntil.constFind(window.name);
    if (rest != restUntil.cend() && !rest->hasExpired())
        return QList<AtspiReference>();

    const auto reply = m_bus.ask({.name = window.name,
                                  .path = window.path,
                                  .interface = "org.a11y.atspi.Collection",
                                  .method = "GetMatches",
                                  .arguments = AtspiBus::sharedArguments(rule.arguments),
                                  .replyType = "(a(so))",
                                  .isAskedAhead = !rule.isWhole});
    if (reply.elapsedMs >= slowSearchMs)
        restUntil.insert(window.name, QDeadlineTimer(restAfterSlowSearch));
    // A window may just have closed, too.
    if (reply.outcome == AtspiBus::Outcome::NotThere && m_queries.role(window))
        m_denySearches.insert(window.name);
    if (reply.outcome == AtspiBus::Outcome::Unknown) {
        m_cannotSearch.insert(window.name);
        return std::nullopt;
    }
    return reply.value ? AtspiQueries::referencesIn(reply.value.get(), rule.maximum) : QList<AtspiReference>();
}

std::optional<AtspiReference> AtspiSearch::walkToFocused(const AtspiReference &window)
{
    QList<AtspiReference> queue{window};
    std::optional<AtspiReference> focusedPage;
    qsizetype walked = 0;
    while (!queue.isEmpty() && walked < mostWalkedElements) {
        const auto children = m_queries.firstChildren(queue.takeFirst(), mostWalkedElements - walked);
        const QList<AtspiStates> states = m_queries.states(children);
        walked += std::max<qsizetype>(1, children.size());
        for (qsizetype i = 0; i < children.size(); ++i) {
            const bool isFocused = states[i].has(AtspiState::focused);
            if (isFocused && m_queries.role(children[i]) != AtspiRole::documentWeb)
                return children[i];
            if (isFocused && !focusedPage)
                focusedPage = children[i];
            if (states[i].has(AtspiState::showing))
                queue.append(children[i]);
        }
    }
    return focusedPage;
}

void AtspiSearch::forgetOtherPrograms()
{
    const bool tooMany = m_cannotSearch.size() + m_denySearches.size() + m_restUntil.size() + m_wholeRestUntil.size() >
                         mostRememberedPrograms;
    if (m_generation == m_bus.generation() && !tooMany)
        return;
    m_generation = m_bus.generation();
    m_cannotSearch.clear();
    m_denySearches.clear();
    m_restUntil.clear();
    m_wholeRestUntil.clear();
}

} // namespace ostrel
