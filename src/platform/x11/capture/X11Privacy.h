#pragma once

#include "context/PrivacyRules.h"

#include <functional>
#include <optional>

namespace ostrel {

/// Which windows stay out of the pictures of an X screen, besides our own.
struct X11Privacy {
    /// The rules in force; asked for with each picture. Called on the capturing thread.
    std::function<PrivacyRules()> rules = [] { return PrivacyRules(); };
    /// The bundle identifier of a window with this class, as far as it is known. Called on the capturing thread.
    std::function<std::optional<QString>(const QString &windowClass)> bundleIdentifierOf = [](const QString &) {
        return std::nullopt;
    };
};

} // namespace ostrel
