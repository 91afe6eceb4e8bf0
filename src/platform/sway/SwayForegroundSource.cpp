#include "platform/sway/SwayForegroundSource.h"

#include "platform/sway/SwayConnection.h"

#include <utility>

namespace ostrel {

namespace {

constexpr std::chrono::milliseconds patience{250};

} // namespace

SwayForegroundSource::SwayForegroundSource(QByteArray socketPath, ApplicationLookup lookup)
    : m_socketPath(std::move(socketPath)), m_lookup(std::move(lookup))
{}

std::optional<ForegroundApplication> SwayForegroundSource::frontmostApplication()
{
    m_focus.reset();
    const QByteArray path = m_socketPath.isEmpty() ? qgetenv("SWAYSOCK") : m_socketPath;
    if (const auto tree = askSway(path, SwayQuestion::Tree, patience))
        m_focus = focusIn(*tree);
    if (!m_focus)
        return std::nullopt;
    ForegroundApplication application;
    if (!m_focus->windowClass.isEmpty())
        application = m_lookup(m_focus->windowClass);
    application.processIdentifier = m_focus->pid;
    application.windowClass = m_focus->windowClass;
    return application;
}

std::optional<FocusedWindow> SwayForegroundSource::focusedWindow()
{
    if (!m_focus)
        return std::nullopt;
    FocusedWindow window;
    if (!m_focus->title.isEmpty())
        window.title = m_focus->title;
    window.frame = m_focus->frame;
    return window;
}

QList<UnavailableFact> SwayForegroundSource::unavailableFacts()
{
    return {{.fact = QStringLiteral("pointer position"),
             .reason = QStringLiteral("sway does not tell where the pointer is")}};
}

} // namespace ostrel
