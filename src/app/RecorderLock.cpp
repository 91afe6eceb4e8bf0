#include "app/RecorderLock.h"

#include "base/Fault.h"
#include "base/Paths.h"

#include <QDateTime>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

namespace ostrel {

namespace {

Error heldByAnother(int descriptor)
{
    QByteArray text(128, '\0');
    const ssize_t length = ::pread(descriptor, text.data(), size_t(text.size()), 0);
    const QList<QByteArray> words = text.left(qMax(length, ssize_t(0))).simplified().split(' ');
    const QString holder =
        words.size() == 2
            ? QStringLiteral("process %1, since %2").arg(QString::fromLatin1(words[0]), QString::fromLatin1(words[1]))
            : QStringLiteral("a process that has just started");
    return {.domain = QStringLiteral("TamskOstrel.RecorderLock"),
            .code = 1,
            .localizedDescription =
                QStringLiteral("Tamsk Ostrel is recording already (%1). Stop that one first.").arg(holder)};
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

Result<RecorderLock> RecorderLock::acquire()
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
                            QDateTime::currentDateTime().toString(Qt::ISODate).toLatin1() + '\n';
    if (::ftruncate(descriptor, 0) != 0 ||
        ::pwrite(descriptor, text.constData(), size_t(text.size()), 0) != text.size())
        qWarning("the recorder's lock file could not be written");
    return RecorderLock(descriptor);
}

} // namespace ostrel
