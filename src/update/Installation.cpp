#include "update/Installation.h"

#include "base/Fault.h"
#include "base/FileLock.h"
#include "update/RunningVersions.h"
#include "update/UpdateFault.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <array>
#include <climits>
#include <unistd.h>

namespace ostrel {

namespace {

const QString unpackingMark = QStringLiteral(".unpacking-");
const QString removingMark = QStringLiteral(".removing-");
const QString nextMark = QStringLiteral(".next");

/// Does one after the other, up to the first that fails.
Result<> inOrder(std::initializer_list<std::function<Result<>()>> steps)
{
    for (const auto &step : steps) {
        if (auto outcome = step(); !outcome)
            return outcome;
    }
    return {};
}

/// A folder that this user may change, and that is no link to elsewhere.
bool isOwn(const QString &folder)
{
    const QFileInfo info(folder);
    return info.isDir() && !info.isSymLink() && info.ownerId() == ::geteuid() && info.isWritable();
}

/// @return the lock, held; or InstallationBusy
Result<std::shared_ptr<FileLock>> takeLock(const QString &path)
{
    auto lock = std::make_shared<FileLock>(path);
    switch (lock->acquire(std::chrono::milliseconds(0))) {
    case FileLock::Outcome::HeldByAnother:
        return std::unexpected(updateError(UpdateFault::InstallationBusy));
    case FileLock::Outcome::NoFile:
        return std::unexpected(lock->error());
    case FileLock::Outcome::Acquired:
        break;
    }
    return lock;
}

QStringList allNames(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

} // namespace

Installation::Installation(QString root, Version running, std::shared_ptr<Disk> disk)
    : m_root(std::move(root)), m_running(std::move(running)), m_disk(std::move(disk))
{}

std::optional<Installation> Installation::around(const QString &prefix, std::shared_ptr<Disk> disk)
{
    const QFileInfo own(prefix);
    const QFileInfo versions(own.path());
    const auto running = Version::parse(own.fileName());
    if (!running || versions.fileName() != QLatin1String("versions") || !isOwn(prefix) || !isOwn(versions.filePath()) ||
        !isOwn(versions.path()))
        return std::nullopt;
    Installation found(versions.path(), *running, std::move(disk));
    if (!found.linked(QLatin1String("current")))
        return std::nullopt;
    return found;
}

std::optional<Version> Installation::linked(QLatin1String name) const
{
    // As it stands: where it leads need not exist.
    const QString path = m_root + QLatin1Char('/') + name;
    std::array<char, PATH_MAX> target{};
    const auto length = ::readlink(QFile::encodeName(path).constData(), target.data(), target.size());
    if (length <= 0)
        return std::nullopt;
    // Made by hand, it may be absolute, or end with a slash.
    const QString leadsTo =
        QDir::cleanPath(QDir(m_root).absoluteFilePath(QString::fromLocal8Bit(target.data(), qsizetype(length))));
    const QString start = versions() + QLatin1Char('/');
    return leadsTo.startsWith(start) ? Version::parse(leadsTo.mid(start.size())) : std::nullopt;
}

std::optional<Version> Installation::present(const std::optional<Version> &version) const
{
    return version && QFileInfo(folderOf(*version)).isDir() ? version : std::nullopt;
}

std::optional<Version> Installation::wayBack() const
{
    const auto now = current();
    if (const auto before = previous(); before && before != now)
        return before;
    std::optional<Version> highest;
    for (const QString &name : allNames(versions())) {
        const auto version = Version::parse(name);
        if (version && now && *version < *now && (!highest || *version > *highest))
            highest = version;
    }
    return highest;
}

bool Installation::isRejected(const Version &version) const
{
    const auto now = current();
    return now && version > *now && previous() == version;
}

Result<> Installation::locked(const Step &change) const
{
    const auto lock = takeLock(versions() + QLatin1String("/.lock"));
    if (!lock)
        return std::unexpected(lock.error());
    return inOrder({[this] { return removeLeftovers(); }, change});
}

Result<Installation::Reservation> Installation::reserveDownloads() const
{
    auto lock = takeLock(versions() + QLatin1String("/.download.lock"));
    if (!lock)
        return std::unexpected(lock.error());
    return Reservation{*std::move(lock)};
}

Result<> Installation::stage(const Version &version, const Fill &fill) const
{
    return locked([&]() -> Result<> {
        if (version == m_running || version == current())
            return {};
        return unpackBeside(version, fill);
    });
}

Result<> Installation::unpackBeside(const Version &version, const Fill &fill) const
{
    const QString unpacking = versions() + QLatin1Char('/') + unpackingMark + version.text();
    const QString removing = versions() + QLatin1Char('/') + removingMark + version.text();
    const QString final = folderOf(version);
    const auto outcome =
        inOrder({[&] { return m_disk->makeFolder(unpacking); }, [&] { return fill(unpacking); },
                 [&] { return m_disk->openFolder(unpacking); }, [&] { return m_disk->syncFolder(unpacking); },
                 // Left by an earlier switch that never came.
                 [&] { return QFileInfo::exists(final) ? m_disk->rename(final, removing) : Result<>(); },
                 [&] { return m_disk->rename(unpacking, final); }, [&] { return m_disk->syncFolder(versions()); },
                 [&] { return m_disk->remove(removing); }});
    // Perhaps the disk is full, and then this is what fills it.
    if (!outcome)
        static_cast<void>(m_disk->remove(unpacking));
    return outcome;
}

Result<> Installation::activate(const Version &version) const
{
    return locked([&]() -> Result<> {
        const auto now = current();
        if (version == now)
            return {};
        if (now && version < *now)
            return std::unexpected(updateError(UpdateFault::NewerThere, now->text()));
        if (!present(version))
            return std::unexpected(faultError(Fault::NoSuchFile, folderOf(version)));
        if (auto switched = makeCurrent(version); !switched)
            return switched;
        removeOtherVersions();
        return {};
    });
}

Result<Version> Installation::rollBack() const
{
    std::optional<Version> target;
    const auto outcome = locked([&]() -> Result<> {
        target = wayBack();
        if (!target)
            return std::unexpected(updateError(UpdateFault::NoPreviousVersion));
        return makeCurrent(*target);
    });
    if (!outcome)
        return std::unexpected(outcome.error());
    return *target;
}

Result<> Installation::makeCurrent(const Version &version) const
{
    const Version before = current().value_or(m_running);
    // In this order: what starts changes last, and only as a whole.
    return inOrder({[&] { return setLink(QStringLiteral("previous"), before); },
                    [&] { return setLink(QStringLiteral("current"), version); }});
}

Result<> Installation::setLink(const QString &name, const Version &version) const
{
    const QString path = m_root + QLatin1Char('/') + name;
    const QString next = path + nextMark;
    return inOrder({[&] { return m_disk->makeLink(QStringLiteral("versions/") + version.text(), next); },
                    [&] { return m_disk->syncFolder(m_root); }, [&] { return m_disk->rename(next, path); },
                    [&] { return m_disk->syncFolder(m_root); }});
}

Result<> Installation::removeLeftovers() const
{
    for (const QString &name : allNames(versions())) {
        if (!name.startsWith(unpackingMark) && !name.startsWith(removingMark))
            continue;
        if (auto removed = m_disk->remove(versions() + QLatin1Char('/') + name); !removed)
            return removed;
    }
    return inOrder({[this] { return m_disk->remove(m_root + QLatin1String("/current") + nextMark); },
                    [this] { return m_disk->remove(m_root + QLatin1String("/previous") + nextMark); }});
}

/// The switch is done by then: what can't be removed only takes up room until the next one.
void Installation::removeOtherVersions() const
{
    // Somebody else's program may still need its other files.
    const QStringList running = runningVersions(versions());
    for (const QString &name : allNames(versions())) {
        const auto version = Version::parse(name);
        if (!version || version == current() || version == previous() || version == m_running || running.contains(name))
            continue;
        // Under a name that no version has, so that half of one is never taken for a whole.
        const QString removing = versions() + QLatin1Char('/') + removingMark + name;
        if (m_disk->rename(folderOf(*version), removing))
            static_cast<void>(m_disk->remove(removing));
    }
    removeDownloads();
}

void Installation::removeDownloads() const
{
    if (reserveDownloads())
        static_cast<void>(m_disk->remove(downloadFolder()));
}

} // namespace ostrel
