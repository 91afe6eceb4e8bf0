#include "platform/secretfile/FileSecretStore.h"

#include "base/Fault.h"
#include "base/Files.h"
#include "base/Log.h"
#include "base/Paths.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ostrel {

namespace {

constexpr mode_t everybodyElse = S_IRWXG | S_IRWXO;

/// Holds the lock file. The kernel lets it go when its process ends, however that happens.
class FileLock
{
public:
    explicit FileLock(const QString &path)
        : m_descriptor(::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR)),
          m_openError(m_descriptor < 0 ? errno : 0)
    {}
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;
    ~FileLock()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }

    /// @return 0, or the error number; ETIMEDOUT when somebody else kept it
    int acquire(std::chrono::milliseconds patience) const
    {
        if (m_descriptor < 0)
            return m_openError;
        // A holder that was stopped must not stop us too, so this polls instead of blocking.
        const QDeadlineTimer deadline(patience);
        while (::flock(m_descriptor, LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK && errno != EINTR)
                return errno;
            if (deadline.hasExpired())
                return ETIMEDOUT;
            QThread::msleep(5);
        }
        return 0;
    }

private:
    const int m_descriptor;
    const int m_openError;
};

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

/// Makes the folder, or closes an existing one, and waits for the lock.
Result<> prepare(const QString &file, const FileLock &lock, std::chrono::milliseconds patience)
{
    closeToOthers(QFileInfo(file).path());
    const int failure = lock.acquire(patience);
    if (failure == ETIMEDOUT)
        return std::unexpected(
            faultError(Fault::FileFailed, file + QLatin1String(" (another program holds its lock)")));
    if (failure != 0)
        return std::unexpected(fileError(failure, file));
    return {};
}

QString lockFile(const QString &file)
{
    makePrivateDirectory(QFileInfo(file).path());
    return file + QLatin1String(".lock");
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
        if (errno == ENOENT)
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
    Content content{.secrets = {}, .damaged = !bytes->isEmpty() && !document.isObject()};
    const QJsonObject services = document.object();
    for (auto service = services.begin(); service != services.end(); ++service) {
        const QJsonObject accounts = service->toObject();
        content.damaged = content.damaged || !service->isObject();
        for (auto account = accounts.begin(); account != accounts.end(); ++account) {
            content.damaged = content.damaged || !account->isString();
            if (account->isString())
                content.secrets[service.key()][account.key()] = account->toString();
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
    for (auto service = content.secrets.begin(); service != content.secrets.end(); ++service) {
        QJsonObject accounts;
        for (auto account = service->begin(); account != service->end(); ++account)
            accounts.insert(account.key(), account.value());
        services.insert(service.key(), accounts);
    }
    return writeFileAtomically(m_file, QJsonDocument(services).toJson());
}

std::optional<QString> FileSecretStore::read(const QString &service, const QString &account)
{
    const Result<Content> content = readContent();
    if (!content) {
        qCWarning(logPlatform, "secrets can't be read: %ls", qUtf16Printable(content.error().localizedDescription));
        return std::nullopt;
    }
    const auto accounts = content->secrets.value(service);
    const auto found = accounts.find(account);
    return found == accounts.end() ? std::nullopt : std::optional(*found);
}

Result<> FileSecretStore::write(const QString &service, const QString &account, const QString &value)
{
    return change([&](Secrets &secrets) {
        secrets[service][account] = value;
        return true;
    });
}

Result<> FileSecretStore::remove(const QString &service, const QString &account)
{
    if (!QFileInfo::exists(m_file))
        return {};
    return change([&](Secrets &secrets) {
        const auto accounts = secrets.find(service);
        if (accounts == secrets.end() || accounts->remove(account) == 0)
            return false;
        if (accounts->isEmpty())
            secrets.erase(accounts);
        return true;
    });
}

Result<> FileSecretStore::change(const std::function<bool(Secrets &)> &edit) const
{
    const FileLock lock(lockFile(m_file));
    if (const Result<> ready = prepare(m_file, lock, m_lockPatience); !ready)
        return ready;
    Result<Content> content = readContent();
    if (!content)
        return std::unexpected(content.error());
    return edit(content->secrets) ? writeContent(*content) : Result<>();
}

} // namespace ostrel
