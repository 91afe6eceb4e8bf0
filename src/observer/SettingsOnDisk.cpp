#include "observer/SettingsOnDisk.h"

#include "base/Fault.h"
#include "base/Files.h"
#include "observer/SettingsStore.h"

namespace ostrel {

namespace {

/// @param fault gets the reason when there is a file that can't be used
std::optional<ObserverSettings> readSettingsFile(const QString &path, std::optional<Error> &fault)
{
    const auto bytes = readFile(path);
    auto settings = bytes ? ObserverSettings::fromJson(*bytes) : std::unexpected(bytes.error());
    if (settings)
        return *std::move(settings);
    if (!isFault(settings.error(), Fault::NoSuchFile))
        fault = settings.error();
    return std::nullopt;
}

} // namespace

SettingsOnDisk readSettingsOnDisk()
{
    using Source = SettingsOnDisk::Source;
    SettingsOnDisk found;
    if (const auto primary = readSettingsFile(SettingsStore::primaryFile(), found.primaryFault)) {
        found.settings = primary->migratingLegacyDefaultDirectories();
        found.source = Source::PrimaryFile;
    } else if (const auto legacy = readSettingsFile(SettingsStore::legacyFile(), found.legacyFault)) {
        found.settings = legacy->migratingLegacyDefaultDirectories();
        found.source = Source::LegacyFile;
    } else {
        found.settings = ObserverSettings::defaults();
    }
    return found;
}

} // namespace ostrel
