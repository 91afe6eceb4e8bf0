#pragma once

#include "update/BundleInfo.h"

namespace ostrel {

/// What the rest of the program asks of updates without having any.
struct UpdaterSupport {
    /// The version for people to read: the bundle's, or "dev" where it says none.
    static QString appVersion(const BundleInfo &bundle) { return bundle.shortVersion.value_or(QStringLiteral("dev")); }
};

} // namespace ostrel
