#include "platform/sway/SwayPrivateWindows.h"

#include "platform/sway/SwayConnection.h"
#include "platform/sway/SwayWindows.h"

#include <utility>

namespace ostrel {

namespace {

constexpr std::chrono::milliseconds patience{250};

} // namespace

SwayPrivateWindows::SwayPrivateWindows(QByteArray socketPath, Rules excludes, BundleIdentifierLookup bundleIdentifierOf)
    : m_socketPath(std::move(socketPath)), m_excludes(std::move(excludes)),
      m_bundleIdentifierOf(std::move(bundleIdentifierOf))
{}

std::optional<QList<QRect>> SwayPrivateWindows::places(const QList<qint32> &processes) const
{
    const auto tree =
        askSway(m_socketPath.isEmpty() ? qgetenv("SWAYSOCK") : m_socketPath, SwayQuestion::Tree, patience);
    const auto windows = tree ? windowsShownIn(*tree) : std::nullopt;
    if (!windows)
        return std::nullopt;
    QList<QRect> places;
    for (const SwayWindow &window : *windows) {
        const WindowIdentity identity{
            .bundleIdentifier = window.windowClass.isEmpty() ? std::nullopt : m_bundleIdentifierOf(window.windowClass),
            .windowClass = window.windowClass,
            .title = window.title};
        if (processes.contains(window.pid) || m_excludes(identity))
            places += window.places;
    }
    return places;
}

} // namespace ostrel
