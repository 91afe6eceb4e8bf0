#include "base/FileLock.h"

#include "base/Fault.h"
#include "base/Paths.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ostrel {

namespace {

int openLockFile(const QString &path)
{
    makePrivateDirectory(QFileInfo(path).path());
    return ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
}

} // namespace

FileLock::FileLock(const QString &path)
    : m_path(path), m_descriptor(openLockFile(path)), m_errorNumber(m_descriptor < 0 ? errno : 0)
{}

FileLock::~FileLock()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

FileLock::Outcome FileLock::acquire(std::chrono::milliseconds patience)
{
    if (m_descriptor < 0)
        return Outcome::NoFile;
    // A holder that was stopped must not stop us too, so this polls instead of blocking.
    const QDeadlineTimer deadline(patience);
    while (::flock(m_descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            m_errorNumber = errno;
            return Outcome::NoFile;
        }
        if (deadline.hasExpired())
            return Outcome::HeldByAnother;
        QThread::msleep(5);
    }
    return Outcome::Acquired;
}

Error FileLock::error() const
{
    return fileError(m_errorNumber, m_path);
}

} // namespace ostrel
