#pragma once

#include "base/Files.h"
#include "platform/devtools/DebuggingPorts.h"

#include <QDir>
#include <QHash>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>

namespace ostrel {

/// A machine of files: processes with command lines and open sockets, and the kernel's table of who listens where.
class FakeProcesses
{
public:
    static constexpr qint32 browser = 4000;
    static constexpr quint64 browserSocket = 77;

    /// Adds a process; its descriptors are a file, an unnamed pipe and these sockets.
    void add(qint32 process, const QStringList &commandLine, const QList<quint64> &sockets)
    {
        const QString folder = m_folder.filePath(QStringLiteral("proc/%1/").arg(process));
        EXPECT_TRUE(QDir().mkpath(folder + QStringLiteral("fd")));
        write(folder + QStringLiteral("cmdline"), commandLine.join(QChar(0)).toLocal8Bit() + '\0');
        QStringList targets{QStringLiteral("/dev/null"), QStringLiteral("pipe:[77]")};
        for (const quint64 socket : sockets)
            targets.append(QStringLiteral("socket:[%1]").arg(socket));
        for (qsizetype i = 0; i < targets.size(); ++i) {
            const QByteArray link = QFile::encodeName(folder + QStringLiteral("fd/%1").arg(i));
            EXPECT_EQ(::symlink(targets[i].toLatin1().constData(), link.constData()), 0);
        }
    }
    /// A browser that listens on that port, and has noted so in its profile unless the switches name the port.
    void addBrowser(quint16 port, const QStringList &switches = {QStringLiteral("--remote-debugging-port=0")})
    {
        add(browser, QStringList(QStringLiteral("/usr/lib/chromium/chromium")) + switches, {5, browserSocket});
        note(m_folder.filePath(QStringLiteral("home/.config/chromium")), port);
        listeners[port] = {browserSocket};
    }
    void note(const QString &profile, quint16 port) const
    {
        write(profile + QStringLiteral("/DevToolsActivePort"), QByteArray::number(port) + "\n/devtools/browser/noted");
    }

    DebuggingPorts ports(uid_t user = ::geteuid())
    {
        return DebuggingPorts({.sockets = [this](quint16 port) { return listenersOf(port); },
                               .folders = {.home = m_folder.filePath(QStringLiteral("home")),
                                           .config = m_folder.filePath(QStringLiteral("home/.config"))},
                               .user = user,
                               .proc = m_folder.filePath(QStringLiteral("proc"))});
    }
    QString path(const QString &name) const { return m_folder.filePath(name); }

    QHash<quint16, QList<quint64>> listeners; ///< by port
    /// After so many looks at the table, somebody else has taken the ports over.
    int looksUntilTakenOver = 1'000'000;

private:
    QList<quint64> listenersOf(quint16 port)
    {
        return looksUntilTakenOver-- > 0 ? listeners.value(port) : QList<quint64>{4711};
    }
    static void write(const QString &path, const QByteArray &bytes)
    {
        EXPECT_TRUE(writeFileAtomically(path, bytes).has_value());
    }

    QTemporaryDir m_folder;
};

} // namespace ostrel
