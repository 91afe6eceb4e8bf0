#include "update/UpdateInstaller.h"

#include "base/Fault.h"
#include "base/Files.h"
#include "base/SerialQueue.h"
#include "update/ArchiveCheck.h"
#include "update/ArchiveUnpacker.h"
#include "update/BundleInfo.h"
#include "update/UpdateFault.h"

#include <QFile>

namespace ostrel {

namespace {

/// Whether a folder holds a program of that version. The signature is one over an archive that its makers have packed,
/// and people who pack make mistakes.
Result<> checkVersionFolder(const QString &folder, const Version &version)
{
    const QString program = QStringLiteral("bin/ostrel");
    if (!isExecutableFile(folder + QLatin1Char('/') + program))
        return std::unexpected(
            updateError(UpdateFault::ArchiveIncomplete, QStringLiteral("%1 is missing").arg(program)));
    const auto told = BundleInfo::read(folder).shortVersion;
    if (told != version.text())
        return std::unexpected(
            updateError(UpdateFault::ArchiveIncomplete,
                        QStringLiteral("it says that it is version %1").arg(told.value_or(QStringLiteral("\"\"")))));
    return {};
}

Result<> stageArchive(const Installation &installation, const QString &archive, const Release &release,
                      const UpdateKey &key)
{
    if (auto checked = checkArchive(archive, release, key); !checked) {
        // What is wrong now would be wrong at the next attempt as well.
        static_cast<void>(PartFile(archive).remove());
        return checked;
    }
    return installation.stage(release.version, [&](const QString &folder) -> Result<> {
        if (auto unpacked = unpackArchive(archive, folder); !unpacked)
            return unpacked;
        return checkVersionFolder(folder, release.version);
    });
}

} // namespace

UpdateInstaller::UpdateInstaller(Installation installation, HttpClient &http, Clock &clock, SerialQueue &worker)
    : m_installation(std::move(installation)), m_download(http, clock, worker), m_worker(worker)
{}

Task<Result<>> UpdateInstaller::stage(Release release, UpdateKey key, Progress progress, std::stop_token stop)
{
    progress(Phase::Downloading, 0);
    const auto received = [&progress](qint64 bytes) { progress(Phase::Downloading, bytes); };
    const auto archive = co_await m_download.fetch(release, m_installation.downloadFolder(), received, stop);
    if (!archive)
        co_return std::unexpected(archive.error());
    progress(Phase::Unpacking, release.size);
    const auto job = [installation = m_installation, archive = archive->path(), release, key] {
        return stageArchive(installation, archive, release, key);
    };
    const auto staged = co_await m_worker.run(stop, job);
    co_return staged ? *staged : std::unexpected(faultError(Fault::Cancelled));
}

Task<Result<>> UpdateInstaller::activate(Version version, std::stop_token stop)
{
    const auto activated = co_await m_worker.run(
        stop, [installation = m_installation, version] { return installation.activate(version); });
    co_return activated ? *activated : std::unexpected(faultError(Fault::Cancelled));
}

} // namespace ostrel
