#include "platform/secretfile/FileSecretStore.h"

#include "base/Fault.h"
#include "base/FileLock.h"
#include "base/Files.h"
#include "base/Log.h"
#include "base/Paths.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace ostrel {

namespace {

constexpr mode_t everybodyElse = S_IRWXG | S_IRWXO;

/// Takes the rights of everybody else away.
void closeToOthers(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat info{};
    if (::stat(name.constData(), &info) != 0 || info.st_uid != ::geteuid() || (info.st_mode & everybodyElse) == 0)
        return;
    qCWarning(logPlatform, "%s could be read by others; it is closed to them now", name.constData());
    ::chmod(name.constData(), info.st_mode & ~everybodyElse & 07777);
}

/// Closes the folder to others, and waits for the lock.
Result<> prepare(const QString &file, FileLock &lock, std::chrono::milliseconds patience)
{
    closeToOthers(QFileInfo(file).path());
    switch (lock.acquire(patience)) {
    case FileLock::Outcome::Acquired:
        return {};
    case FileLock::Outcome::HeldByAnother:
        return std::unexpected(
            faultError(Fault::FileFailed, file + QLatin1String(" (another program holds its lock)")));
    case FileLock::Outcome::NoFile:
        break;
    }
    return std::unexpected(lock.error());
}

} // namespace

FileSecretStore::FileSecretStore(QString file, std::chrono::milliseconds lockPatience)
    : m_file(std::move(file)), m_lockPatience(lockPatience)
{}

QString FileSecretStore::defaultFile()
{
    return stateDirectory() + QLatin1String("/secrets.json");
}

Result<FileSecretStore::Content> FileSecretStore::readContent() const
{
    struct stat info{};
    if (::stat(QFile::encodeName(m_file).constData(), &info) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return Content{};
        return std::unexpected(fileError(errno, m_file));
    }
    if (info.st_uid != ::geteuid())
        return std::unexpected(faultError(Fault::PermissionDenied, m_file));
    closeToOthers(m_file);

    const auto bytes = readFile(m_file);
    if (!bytes)
        return std::unexpected(bytes.error());
    const QJsonDocument document = QJsonDocument::fromJson(*bytes);
    Content content{.entries = {}, .damaged = !bytes->isEmpty() && !document.isObject()};
    const QJsonObject services = document.object();
    for (auto service = services.begin(); service != services.end(); ++service) {
        const QJsonObject accounts = service->toObject();
        content.damaged = content.damaged || !service->isObject();
        for (auto account = accounts.begin(); account != accounts.end(); ++account) {
            content.damaged = content.damaged || (!account->isString() && !account->isNull());
            if (account->isString())
                content.entries[service.key()][account.key()] = {.value = account->toString()};
            else if (account->isNull())
                content.entries[service.key()][account.key()] = {};
        }
    }
    return content;
}

Result<> FileSecretStore::writeContent(const Content &content) const
{
    if (content.damaged) {
        if (const auto kept = keepDamagedFile(m_file); !kept)
            return std::unexpected(kept.error());
    }
    QJsonObject services;
    for (auto service = content.entries.begin(); service != content.entries.end(); ++service) {
        QJsonObject accounts;
        for (auto account = service->begin(); account != service->end(); ++account)
            accounts.insert(account.key(), account->value ? QJsonValue(*account->value) : QJsonValue());
        services.insert(service.key(), accounts);
    }
    return writeFileAtomically(m_file, QJsonDocument(services).toJson());
}

Result<std::optional<SecretEntry>> FileSecretStore::entry(const QString &service, const QString &account) const
{
    const Result<Content> content = readContent();
    if (!content)
        return std::unexpected(content.error());
    const auto accounts = content->entries.value(service);
    const auto found = accounts.find(account);
    return found == accounts.end() ? std::nullopt : std::optional(*found);
}

Result<> FileSecretStore::put(const QString &service, const QString &account, const SecretEntry &entry)
{
    return change([&](Entries &entries) {
        entries[service][account] = entry;
        return true;
    });
}

Result<> FileSecretStore::erase(const QString &service, const QString &account,
                                const std::optional<SecretEntry> &expected)
{
    if (!QFileInfo::exists(m_file))
        return {};
    return change([&](Entries &entries) {
        const auto accounts = entries.find(service);
        if (accounts == entries.end() || !accounts->contains(account))
            return false;
        if (expected && accounts->value(account) != *expected)
            return false;
        accounts->remove(account);
        if (accounts->isEmpty())
            entries.erase(accounts);
        return true;
    });
}

Result<std::optional<QString>> FileSecretStore::lookUp(const QString &service, const QString &account)
{
    const auto found = entry(service, account);
    if (!found)
        return std::unexpected(found.error());
    return *found ? (*found)->value : std::nullopt;
}

Result<> FileSecretStore::write(const QString &service, const QString &account, const QString &value)
{
    return put(service, account, {.value = value});
}

Result<> FileSecretStore::remove(const QString &service, const QString &account)
{
    return erase(service, account);
}

Result<> FileSecretStore::change(const std::function<bool(Entries &)> &edit) const
{
    FileLock lock(m_file + QLatin1String(".lock"));
    if (const Result<> ready = prepare(m_file, lock, m_lockPatience); !ready)
        return ready;
    Result<Content> content = readContent();
    if (!content)
        return std::unexpected(content.error());
    return edit(content->entries) ? writeContent(*content) : Result<>();
}

} // namespace ostrel
