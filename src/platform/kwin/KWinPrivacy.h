#pragma once

#include "context/PrivacyRules.h"
#include "platform/kwin/KWinNews.h"

#include <functional>

namespace ostrel {

/// Which windows are private.
struct KWinPrivacy {
    /// By the rules as they stand at the time of asking.
    using Rules = std::function<bool(const WindowIdentity &)>;
    /// The bundle identifier of a window with this class, as far as it is known.
    using BundleIdentifierLookup = std::function<std::optional<QString>(const QString &windowClass)>;

    Rules excludes;
    BundleIdentifierLookup bundleIdentifierOf;

    struct Found {
        QList<QRect> places;        ///< each once
        bool mayBeAnywhere = false; ///< one of these windows is flying
    };
    /// The frames of windows that the rules or the processes make private, of those that stay above such a window, and
    /// of its program's menus, which may be anybody's by what they say of themselves.
    /// @param processes whose windows are private whatever the rules say
    Found placesIn(const QList<KWinWindow> &windows, const QList<qint32> &processes) const;

private:
    bool excludesByItself(const KWinWindow &window) const;
};

} // namespace ostrel
