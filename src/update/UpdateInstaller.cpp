#include "update/UpdateInstaller.h"

#include "base/Fault.h"
#include "base/Files.h"
#include "base/SerialQueue.h"
#include "base/Text.h"
#include "update/ArchiveCheck.h"
#include "update/ArchiveUnpacker.h"
#include "update/BundleInfo.h"
#include "update/UpdateFault.h"

#include <QProcess>

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
        return std::unexpected(updateError(
            UpdateFault::ArchiveIncomplete,
            QStringLiteral("it says that it is version %1").arg(harmless(told.value_or(QStringLiteral("\"\""))))));
    return {};
}

/// Whether the program in a folder starts on this machine, which may lack what the new version needs. Once it is
/// current it is too late to find out: the way back would begin with a program that does not start.
Result<> checkThatItStarts(const QString &folder, const Version &version)
{
    QProcess program;
    program.setStandardInputFile(QProcess::nullDevice());
    program.start(folder + QLatin1String("/bin/ostrel"), {QStringLiteral("--version")});
    constexpr int patienceMs = 30'000;
    const bool ended = program.waitForFinished(patienceMs);
    const QStringList words = splitWords(QString::fromUtf8(program.readAllStandardOutput()));
    if (ended && program.exitStatus() == QProcess::NormalExit && program.exitCode() == 0 &&
        words.value(words.size() - 1) == version.text())
        return {};
    const QString complaint = QString::fromUtf8(program.readAllStandardError()).section(QLatin1Char('\n'), 0, 0);
    program.kill();
    program.waitForFinished(patienceMs);
    return std::unexpected(updateError(UpdateFault::ArchiveDoesNotStart, harmless(complaint)));
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
        if (auto checked = checkVersionFolder(folder, release.version); !checked)
            return checked;
        return checkThatItStarts(folder, release.version);
    });
}

} // namespace

UpdateInstaller::UpdateInstaller(Installation installation, HttpClient &http, Clock &clock, SerialQueue &worker)
    : m_installation(std::move(installation)), m_download(http, clock, worker), m_worker(worker)
{}

Task<Result<>> UpdateInstaller::stage(Release release, UpdateKey key, Progress progress, std::stop_token stop)
{
    // Until what was downloaded is unpacked: two programs that write the same file would spoil it for both.
    const auto reserved =
        co_await m_worker.run(stop, [installation = m_installation] { return installation.reserveDownloads(); });
    if (!reserved)
        co_return std::unexpected(faultError(Fault::Cancelled));
    if (!*reserved)
        co_return std::unexpected(reserved->error());
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
