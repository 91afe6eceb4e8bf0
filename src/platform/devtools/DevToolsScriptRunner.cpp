#include "platform/devtools/DevToolsScriptRunner.h"

#include "platform/devtools/DevToolsSession.h"
#include "platform/devtools/HttpExchange.h"
#include "platform/devtools/Tabs.h"

#include <QJsonDocument>
#include <QUrl>

#include <algorithm>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr auto patience = 250ms;
constexpr auto restAfterSilence = 5s;
/// With less time than this a healthy browser would be taken for a silent one.
constexpr auto shortestQuestion = 20ms;
/// So many tabs of one title are asked; among more of them it is not found out.
constexpr qsizetype mostPagesAsked = 8;

/// The path of the browser's own socket, below the port that was asked: whatever host the answer names is ignored.
std::optional<QByteArray> browserPath(const QByteArray &version)
{
    const QUrl url(QJsonDocument::fromJson(version).object().value(QStringLiteral("webSocketDebuggerUrl")).toString());
    const QByteArray path = url.path(QUrl::FullyEncoded).toLatin1();
    return path.startsWith("/devtools/browser/") ? std::optional(path) : std::nullopt;
}

/// Asks in a world of our own beside the page's: what the page's scripts have made of `document` does not show there.
std::optional<TabState> stateOf(DevToolsSession &session, const Tab &tab)
{
    const QString idKey = QStringLiteral("targetId");
    const auto attached =
        session.call(QStringLiteral("Target.attachToTarget"), {{idKey, tab.id}, {QStringLiteral("flatten"), true}});
    const QString page = attached ? attached->value(QStringLiteral("sessionId")).toString() : QString();
    if (page.isEmpty())
        return std::nullopt;
    // A page's identifier is that of its main frame.
    const auto world =
        session.call(QStringLiteral("Page.createIsolatedWorld"), {{QStringLiteral("frameId"), tab.id}}, page);
    if (!world)
        return std::nullopt;
    const auto answer = session.call(
        QStringLiteral("Runtime.evaluate"),
        {{QStringLiteral("contextId"), world->value(QStringLiteral("executionContextId"))},
         {QStringLiteral("expression"), QStringLiteral("document.visibilityState + ' ' + document.hasFocus()")},
         {QStringLiteral("returnByValue"), true}},
        page);
    if (!answer)
        return std::nullopt;
    const QString state = answer->value(QStringLiteral("result")).toObject().value(QStringLiteral("value")).toString();
    return TabState{.isVisible = state.startsWith(QLatin1String("visible ")),
                    .isFocused = state.endsWith(QLatin1String(" true"))};
}

/// The candidate that is in front. One that does not say leaves it open for all of them.
std::optional<Tab> askPages(DevToolsSession &session, const TabCandidates &candidates)
{
    if (candidates.tabs.isEmpty() || candidates.tabs.size() > mostPagesAsked)
        return std::nullopt;
    QList<TabState> states;
    for (const Tab &tab : candidates.tabs) {
        const auto state = stateOf(session, tab);
        if (!state)
            return std::nullopt;
        states.append(*state);
    }
    return frontTab(candidates, states);
}

} // namespace

DevToolsScriptRunner::DevToolsScriptRunner(DebuggingPorts ports, Clock now)
    : m_ports(std::move(ports)), m_now(std::move(now))
{}

std::optional<QString> DevToolsScriptRunner::run(const Browser &browser, const QString & /*script*/,
                                                 QDeadlineTimer deadline)
{
    const QDeadlineTimer limit = std::min(deadline, QDeadlineTimer(patience));
    if (limit.remainingTimeAsDuration() < shortestQuestion || isResting(browser.processIdentifier))
        return std::nullopt;
    auto text = ask(browser, limit);
    if (!text && limit.hasExpired())
        m_restUntil[browser.processIdentifier] = m_now() + restAfterSilence;
    return text;
}

std::optional<QString> DevToolsScriptRunner::ask(const Browser &browser, QDeadlineTimer deadline) const
{
    auto session = connectTo(browser, deadline);
    if (!session)
        return std::nullopt;
    const auto profiles = session->call(QStringLiteral("Target.getBrowserContexts"), {});
    const auto targets = session->call(QStringLiteral("Target.getTargets"), {});
    const auto tabs = targets ? tabsIn(*targets) : std::nullopt;
    if (!profiles || !tabs)
        return std::nullopt;
    if (tabs->isEmpty())
        return QString();
    const TabCandidates candidates = candidatesFor(browser.windowTitle, *tabs);
    const bool isFound = candidates.isTitleEnough && candidates.tabs.size() == 1;
    const auto front = isFound ? std::optional(candidates.tabs.first()) : askPages(*session, candidates);
    // Browsers before version 140 or so do not say which profile is their own; then the window's title alone decides.
    const QString ownProfile = profiles->value(QStringLiteral("defaultBrowserContextId")).toString();
    if (!front || (!ownProfile.isEmpty() && front->profile != ownProfile))
        return std::nullopt;
    return tabText(*front);
}

std::optional<DevToolsSession> DevToolsScriptRunner::connectTo(const Browser &browser, QDeadlineTimer deadline) const
{
    const qint32 process = browser.processIdentifier;
    const auto port = m_ports.portOf(process, profileFolders(browser.bundleIdentifier, m_ports.folders()));
    if (!port)
        return std::nullopt;
    // Looked at again with each connection in hand: nothing is sent to whoever took the port over in between.
    auto http = LoopbackSocket::connectTo(*port, deadline);
    if (!http || !m_ports.listensOn(process, *port))
        return std::nullopt;
    const auto version = httpGet(*http, *port, "/json/version");
    const auto path = version ? browserPath(*version) : std::nullopt;
    if (!path)
        return std::nullopt;
    auto connection = LoopbackSocket::connectTo(*port, deadline);
    if (!connection || !m_ports.listensOn(process, *port))
        return std::nullopt;
    auto socket = WebSocket::open(std::move(*connection), *port, *path);
    if (!socket)
        return std::nullopt;
    return DevToolsSession(std::move(*socket));
}

bool DevToolsScriptRunner::isResting(qint32 process)
{
    std::erase_if(m_restUntil, [now = m_now()](const auto &rest) { return rest.second <= now; });
    return m_restUntil.contains(process);
}

} // namespace ostrel
