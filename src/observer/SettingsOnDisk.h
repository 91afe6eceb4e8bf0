#pragma once

#include "base/Error.h"
#include "observer/ObserverSettings.h"

#include <QString>
#include <optional>

namespace ostrel {

/// The settings as they lie on the disk, for whoever may change nothing. Loading them by `SettingsStore` moves secrets
/// from the file to the secret store; this doesn't, and it asks no store for any.
struct SettingsOnDisk {
    enum class Source { PrimaryFile, LegacyFile, Defaults };

    ObserverSettings settings;
    Source source = Source::Defaults;
    /// Why a file that is there was left aside.
    std::optional<Error> primaryFault;
    std::optional<Error> legacyFault;
};

/// Reads the same files in the same order as `SettingsStore::load`. Any thread; blocks on the disk.
SettingsOnDisk readSettingsOnDisk();

} // namespace ostrel
