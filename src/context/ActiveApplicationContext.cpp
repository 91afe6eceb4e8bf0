#include "context/ActiveApplicationContext.h"

#include "base/Text.h"
#include "context/AccessibilityAccess.h"
#include "context/AccessibilityContextReader.h"
#include "context/AccessibilityTree.h"
#include "context/ActiveDisplayResolver.h"
#include "context/BrowserTabContextReader.h"
#include "context/ForegroundSource.h"

#include <QTextBoundaryFinder>
#include <QUrl>

#include <algorithm>
#include <chrono>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

/// All of a sample's questions to other programs together, so that samples keep coming twice a second.
constexpr auto sampleLimit = 400ms;
/// What one fact may take of a text that goes with every frame; in UTF-16 units. Real titles are far shorter.
constexpr qsizetype longestFact = 1000;
/// The longest name that DNS knows. What is longer is no host, and cut it would be another one.
constexpr qsizetype longestHost = 253;

/// The beginning of a long text, up to a character's end, with a mark that there was more.
QString shortened(const QString &text)
{
    if (text.size() <= longestFact)
        return text;
    const QString start = text.left(longestFact);
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, start);
    finder.setPosition(longestFact - 1);
    if (!finder.isAtBoundary())
        finder.toPreviousBoundary();
    // A base letter with a thousand accents has no boundary but its own; half a surrogate pair is still not left.
    qsizetype end = finder.position() > 0 ? finder.position() : longestFact - 1;
    if (start[end - 1].isHighSurrogate())
        --end;
    return trimmedBlanks(start.left(end)) + QChar(0x2026);
}

/// A fact as the text may show it: on one line of bounded length, and without characters that drive a terminal.
std::optional<QString> shownText(std::optional<QString> fact)
{
    if (!fact)
        return std::nullopt;
    std::ranges::replace_if(*fact, [](QChar c) { return c.category() == QChar::Other_Control; }, u' ');
    fact = ActiveApplicationContext::normalize(fact);
    return fact ? std::optional(shortened(*fact)) : std::nullopt;
}

/// The host of a valid address as it is written there: QUrl's own is lower-cased, decoded from its ASCII form, and an
/// IPv6 host has lost its brackets, while the user knows the site as the address shows it.
QString writtenHost(const QString &address)
{
    const QString slashes = QStringLiteral("//");
    const qsizetype start = address.indexOf(slashes) + slashes.size();
    const auto isEnd = [](QChar c) { return c == u'/' || c == u'?' || c == u'#'; };
    const auto end = std::find_if(address.begin() + start, address.end(), isEnd);
    const QString authority = address.mid(start, end - address.begin() - start);
    const QString hostAndPort = authority.mid(authority.lastIndexOf(u'@') + 1);
    const qsizetype bracket = hostAndPort.indexOf(u']');
    const QString host = bracket >= 0 ? hostAndPort.left(bracket + 1) : hostAndPort.left(hostAndPort.indexOf(u':'));
    return QUrl::fromPercentEncoding(host.toUtf8());
}

} // namespace

ActiveApplicationContext::ActiveApplicationContext(Sources sources) : m_sources(std::move(sources)) {}

ActiveRecordingContext ActiveApplicationContext::currentRecordingContext(const QList<ActiveDisplayCandidate> &displays)
{
    const QDeadlineTimer deadline(sampleLimit);
    ActiveApplicationContextDetails details;
    bool isOwnInFront = false;
    if (const auto application = m_sources.foreground.frontmostApplication()) {
        details.appName = application->localizedName;
        // Without the user's consent to window and site names, nothing of the window is even asked for.
        if (m_sources.accessibility.isTrusted())
            details = readWindow(*application, details, deadline);
        else
            details.isPrivate = isExcluded(*application, std::nullopt);
        isOwnInFront = isOurs(*application);
    }
    return {.appContextText = promptText(details),
            .activeDisplay = findActiveDisplay(details.windowFrame, displays),
            .isPrivateInFront = details.isPrivate || isOwnInFront,
            .isPrivatePageInFront = details.isPrivatePage};
}

std::optional<ActiveDisplaySelection>
ActiveApplicationContext::findActiveDisplay(const std::optional<QRectF> &windowFrame,
                                            const QList<ActiveDisplayCandidate> &displays) const
{
    // Where the window decides, nobody need be asked for the pointer.
    if (auto display = ActiveDisplayResolver::resolve(windowFrame, std::nullopt, displays))
        return display;
    return ActiveDisplayResolver::resolve(windowFrame, m_sources.foreground.mouseLocation(), displays);
}

void ActiveApplicationContext::endSampling()
{
    m_sources.tree.endSampling();
}

ActiveApplicationContextDetails ActiveApplicationContext::readWindow(const ForegroundApplication &application,
                                                                     ActiveApplicationContextDetails base,
                                                                     QDeadlineTimer deadline)
{
    const FocusedWindow window = m_sources.foreground.focusedWindow().value_or(FocusedWindow());
    base.windowFrame = window.frame;
    base.isPrivate = isExcluded(application, window.title);
    if (base.isPrivate)
        return base;

    ActiveApplicationContextDetails details = readTree(application, base, deadline);
    addBrowserTab(details, application, window.title, deadline);
    if (!details.windowTitle)
        details.windowTitle = normalize(window.title);
    if (window.frame)
        details.windowFrame = window.frame;
    // The tree may already be that of the next window, and a page may be excluded where its window isn't.
    base.isPrivatePage = isPageExcluded(details.pageAddress);
    base.isPrivate = base.isPrivatePage || isExcluded(application, details.windowTitle) ||
                     isExcluded(application, details.pageTitle);
    return base.isPrivate ? base : details;
}

ActiveApplicationContextDetails ActiveApplicationContext::readTree(const ForegroundApplication &application,
                                                                   const ActiveApplicationContextDetails &base,
                                                                   QDeadlineTimer deadline)
{
    // Whatever has the focus somewhere would otherwise be told of an application that may not even have a tree.
    if (application.processIdentifier == 0)
        return base;
    m_sources.tree.beginSample(deadline);
    return AccessibilityContextReader(m_sources.tree).read(application.processIdentifier, base);
}

void ActiveApplicationContext::addBrowserTab(ActiveApplicationContextDetails &details,
                                             const ForegroundApplication &application,
                                             const std::optional<QString> &windowTitle, QDeadlineTimer deadline)
{
    // What the tree told wins, so a browser that could add nothing isn't bothered.
    if (details.website && details.pageTitle)
        return;
    const auto tab = BrowserTabContextReader(m_sources.browserScripts).read(application, windowTitle, deadline);
    if (!tab)
        return;
    if (!details.website)
        details.website = domain(tab->url);
    if (!details.pageAddress)
        details.pageAddress = tab->url;
    if (!details.pageTitle)
        details.pageTitle = normalize(tab->title);
}

bool ActiveApplicationContext::isOurs(const ForegroundApplication &application) const
{
    return application.processIdentifier != 0 && application.processIdentifier == m_sources.ownProcess;
}

bool ActiveApplicationContext::isExcluded(const ForegroundApplication &application,
                                          const std::optional<QString> &title) const
{
    return m_sources.excludesWindow({.bundleIdentifier = application.bundleIdentifier,
                                     .windowClass = application.windowClass,
                                     .title = title.value_or(QString())});
}

bool ActiveApplicationContext::isPageExcluded(const std::optional<QString> &address) const
{
    return address && m_sources.excludesWindow(
                          {.bundleIdentifier = std::nullopt, .windowClass = {}, .title = {}, .pageAddress = address});
}

std::optional<QString> ActiveApplicationContext::promptText(const ActiveApplicationContextDetails &details)
{
    auto app = shownText(details.appName);
    if (!app)
        return std::nullopt;
    const auto website = shownText(details.website);
    const auto page = shownText(details.pageTitle);
    const auto window = shownText(details.windowTitle);
    const auto focus = shownText(details.focusedElement);
    if (!website && !page && !window && !focus)
        return app;

    QStringList lines = {QStringLiteral("Active context:")};
    appendLine(QStringLiteral("App"), app, lines);
    appendLine(QStringLiteral("Website"), website, lines);
    appendLine(QStringLiteral("Page"), page, lines);
    if (window != page)
        appendLine(QStringLiteral("Window"), window, lines);
    appendLine(QStringLiteral("Focus"), focus, lines);
    return lines.join(u'\n');
}

std::optional<QString> ActiveApplicationContext::domain(const std::optional<QString> &url)
{
    auto address = normalize(url);
    if (!address)
        return std::nullopt;
    if (!address->contains(QStringLiteral("://")))
        address->prepend(QStringLiteral("https://"));
    const QUrl parsed(*address);
    if (!parsed.isValid() || parsed.host().isEmpty())
        return std::nullopt;
    const QString host = writtenHost(*address);
    if (host.size() > longestHost)
        return std::nullopt;
    const QString www = QStringLiteral("www.");
    return normalize(host.startsWith(www) ? host.mid(www.size()) : host);
}

std::optional<QString> ActiveApplicationContext::normalize(const std::optional<QString> &text)
{
    const QStringList words = text ? splitWords(*text) : QStringList();
    return words.isEmpty() ? std::nullopt : std::optional(words.join(u' '));
}

void ActiveApplicationContext::appendLine(const QString &label, const std::optional<QString> &value, QStringList &lines)
{
    if (value)
        lines.append(QStringLiteral("- %1: ").arg(label) + *value);
}

} // namespace ostrel
