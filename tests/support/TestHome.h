#pragma once

#include <QByteArray>
#include <QTemporaryDir>

#include <functional>

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ostrel {

/// A home folder for one test.
class TestHome
{
public:
    TestHome() : m_before(qgetenv("HOME")) { qputenv("HOME", m_folder.path().toLocal8Bit()); }
    ~TestHome() { qputenv("HOME", m_before); }

    QString path(const QString &relative = {}) const { return m_folder.filePath(relative); }

private:
    const QByteArray m_before;
    QTemporaryDir m_folder;
};

/// Some user who is not the one of the tests; "nobody" on Debian.
constexpr uid_t unprivilegedUser = 65534;

/// Makes the calling process an ordinary user's, for whom permissions hold, where it is root.
inline bool dropPrivileges()
{
    return ::geteuid() != 0 ||
           (::setgroups(0, nullptr) == 0 && ::setgid(unprivilegedUser) == 0 && ::setuid(unprivilegedUser) == 0);
}

/// Runs something in a forked child. @return the wait status; -1 when there was no fork
inline int inForkedChild(const std::function<int()> &run)
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(run());
    int status = -1;
    if (child > 0)
        ::waitpid(child, &status, 0);
    return status;
}

} // namespace ostrel
