#include "context/ActiveApplicationContext.h"

#include "base/Text.h"
#include "context/AccessibilityAccess.h"
#include "context/ActiveDisplayResolver.h"
#include "context/ForegroundSource.h"

#include <QUrl>

#include <algorithm>

namespace ostrel {

namespace {

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

ActiveApplicationContext::ActiveApplicationContext(ForegroundSource &foreground, AccessibilityAccess &accessibility)
    : m_foreground(foreground), m_accessibility(accessibility)
{}

ActiveRecordingContext ActiveApplicationContext::currentRecordingContext(const QList<ActiveDisplayCandidate> &displays)
{
    ActiveApplicationContextDetails details;
    const auto application = m_foreground.frontmostApplication();
    if (application)
        details.appName = application->localizedName;
    // Without the user's consent to window and site names, nothing of the window is even asked for.
    if (application && m_accessibility.isTrusted())
        readFocusedWindow(details);
    return {.appContextText = promptText(details),
            .activeDisplay =
                ActiveDisplayResolver::resolve(details.windowFrame, m_foreground.mouseLocation(), displays)};
}

void ActiveApplicationContext::readFocusedWindow(ActiveApplicationContextDetails &details)
{
    const auto window = m_foreground.focusedWindow();
    if (!window)
        return;
    details.windowTitle = normalize(window->title);
    details.windowFrame = window->frame;
}

std::optional<QString> ActiveApplicationContext::promptText(const ActiveApplicationContextDetails &details)
{
    auto app = normalize(details.appName);
    if (!app)
        return std::nullopt;
    const auto website = normalize(details.website);
    const auto page = normalize(details.pageTitle);
    const auto window = normalize(details.windowTitle);
    const auto focus = normalize(details.focusedElement);
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
