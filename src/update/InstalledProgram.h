#pragma once

#include "update/BundleInfo.h"
#include "update/Installation.h"

#include <optional>

namespace ostrel {

/// What is to be kept up to date.
struct InstalledProgram {
    BundleInfo bundle;
    std::optional<Installation> installation; ///< nothing where it is not ours to change

    /// The running program. Blocks for a moment.
    static InstalledProgram ofThisProgram();

    /// What a version has to be newer than: the one that starts next, which may be newer than the one that runs; or the
    /// bundle's. Nothing where that isn't known.
    std::optional<Version> version() const;
};

} // namespace ostrel
