#include "app/RecorderLock.h"

#include "base/Fault.h"
#include "base/Paths.h"

#include <QDateTime>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace ostrel {

namespace {

const QByteArray commandWord = "command";

QString lockDomain()
{
    return QStringLiteral("TamskOstrel.RecorderLock");
}

struct Signature {
    RecorderLock::Holder holder;
    RecorderLock::Purpose purpose = RecorderLock::Purpose::Recording;
};

/// What its holder has written into the lock file.
std::optional<Signature> readSignature(int descriptor)
{
    QByteArray text(128, '\0');
    const ssize_t length = ::pread(descriptor, text.data(), size_t(text.size()), 0);
    const QList<QByteArray> words = text.left(qMax(length, ssize_t(0))).simplified().split(' ');
    const bool isCommand = words.size() == 3 && words[2] == commandWord;
    if (words.size() != 2 && !isCommand)
        return std::nullopt;
    return Signature{.holder = {.processId = words[0].toLongLong(), .since = QString::fromLatin1(words[1])},
                     .purpose = isCommand ? RecorderLock::Purpose::Command : RecorderLock::Purpose::Recording};
}

/// Whether the process holds a lock on the file, by the kernel's list: "1: FLOCK ADVISORY WRITE 4711 08:01:1234 0 EOF".
/// The device in it is not compared: some file systems tell programs another one.
bool holdsLock(const QString &kernelLocks, qint64 processId, quint64 inode)
{
    constexpr qsizetype kindColumn = 1, processColumn = 4, fileColumn = 5;
    std::ifstream list(QFile::encodeName(kernelLocks).toStdString());
    for (std::string line; std::getline(list, line);) {
        const QList<QByteArray> columns = QByteArray::fromStdString(line).simplified().split(' ');
        if (columns.size() > fileColumn && columns[kindColumn] == "FLOCK" &&
            columns[processColumn].toLongLong() == processId &&
            columns[fileColumn].split(':').last().toULongLong() == inode)
            return true;
    }
    return false;
}

Error heldByAnother(int descriptor)
{
    const auto signature = readSignature(descriptor);
    const QString holder =
        signature ? QStringLiteral("process %1, since %2").arg(signature->holder.processId).arg(signature->holder.since)
                  : QStringLiteral("a process that has just started");
    const bool isCommand = signature && signature->purpose == RecorderLock::Purpose::Command;
    const QString words =
        isCommand
            ? QStringLiteral("Another command of Tamsk Ostrel is at work (%1). Wait until it is done, or stop it.")
            : QStringLiteral("Tamsk Ostrel is recording already (%1). Stop that one first.");
    return {.domain = lockDomain(), .code = 1, .localizedDescription = words.arg(holder)};
}

} // namespace

RecorderLock::RecorderLock(RecorderLock &&other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

RecorderLock::~RecorderLock()
{
    if (m_descriptor < 0)
        return;
    // The file stays: removing it would let a third process lock a name that the second one no longer sees.
    if (::ftruncate(m_descriptor, 0) != 0)
        qWarning("the recorder's lock file could not be emptied");
    ::close(m_descriptor);
}

QString RecorderLock::file()
{
    return stateDirectory() + QLatin1String("/lock");
}

std::optional<RecorderLock::Holder> RecorderLock::holder(const QString &kernelLocks)
{
    const int descriptor = ::open(QFile::encodeName(file()).constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return std::nullopt;
    const auto signature = readSignature(descriptor);
    struct stat info{};
    const bool known = ::fstat(descriptor, &info) == 0;
    ::close(descriptor);
    // A recorder that was killed leaves its signature behind.
    if (!known || !signature || signature->purpose != Purpose::Recording ||
        !holdsLock(kernelLocks, signature->holder.processId, info.st_ino))
        return std::nullopt;
    return signature->holder;
}

bool RecorderLock::isHeldByAnother(const Error &error)
{
    return error.domain == lockDomain();
}

Result<RecorderLock> RecorderLock::acquire(Purpose purpose)
{
    if (!makePrivateDirectory(stateDirectory()))
        return std::unexpected(fileError(errno != 0 ? errno : EACCES, stateDirectory()));
    const int descriptor = ::open(QFile::encodeName(file()).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0)
        return std::unexpected(fileError(errno, file()));
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        const Error error = errno == EWOULDBLOCK ? heldByAnother(descriptor) : fileError(errno, file());
        ::close(descriptor);
        return std::unexpected(error);
    }
    const QByteArray text = QByteArray::number(qint64(::getpid())) + ' ' +
                            QDateTime::currentDateTime().toString(Qt::ISODate).toLatin1() +
                            (purpose == Purpose::Command ? ' ' + commandWord : QByteArray()) + '\n';
    if (::ftruncate(descriptor, 0) != 0 ||
        ::pwrite(descriptor, text.constData(), size_t(text.size()), 0) != text.size())
        qWarning("the recorder's lock file could not be written");
    return RecorderLock(descriptor);
}

} // namespace ostrel
