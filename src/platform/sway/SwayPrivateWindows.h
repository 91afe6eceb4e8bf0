#pragma once

#include "context/PrivacyRules.h"

#include <QByteArray>
#include <QList>
#include <QRect>

#include <functional>
#include <optional>

namespace ostrel {

/// Finds the places of private windows, by one question to sway. Menus that hang over the edge of their window are
/// unknown to sway's tree, and so are the menus of X programs.
class SwayPrivateWindows
{
public:
    /// By the rules as they stand at the time of asking. Called on the thread that asks for `places`.
    using Rules = std::function<bool(const WindowIdentity &)>;
    /// The bundle identifier of a window with this class, as far as it is known. Called on the same thread.
    using BundleIdentifierLookup = std::function<std::optional<QString>(const QString &windowClass)>;

    /// @param socketPath as in $SWAYSOCK; empty means that $SWAYSOCK decides, at each question
    SwayPrivateWindows(QByteArray socketPath, Rules excludes, BundleIdentifierLookup bundleIdentifierOf);

    /// Blocks for 250 ms at the most.
    /// @param processes whose windows are private whatever the rules say
    /// @return logical pixels on sway's desktop, windows with their titles; absent when sway can't be asked
    std::optional<QList<QRect>> places(const QList<qint32> &processes) const;

private:
    const QByteArray m_socketPath;
    const Rules m_excludes;
    const BundleIdentifierLookup m_bundleIdentifierOf;
};

} // namespace ostrel
