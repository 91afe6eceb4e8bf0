#include "ProcessUsage.h"

#include <QDir>
#include <QFile>
#include <QString>

#include <ctime>
#include <unistd.h>

namespace ostrel {

namespace {

QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void waitUntilAsleep(qint64 pid)
{
    constexpr int attempts = 1'000;
    constexpr int pauseMicroseconds = 50;
    const QString path = QStringLiteral("/proc/%1/stat").arg(pid);
    for (int i = 0; i < attempts; ++i) {
        const QByteArray stat = contentsOf(path);
        if (stat.mid(stat.lastIndexOf(')') + 2, 1) == "S")
            return;
        usleep(pauseMicroseconds);
    }
}

} // namespace

double ownCpuMs()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

double cpuMsOf(qint64 pid)
{
    waitUntilAsleep(pid);
    double nanoseconds = 0;
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        nanoseconds += contentsOf(tasks.filePath(task + QStringLiteral("/schedstat"))).split(' ').value(0).toDouble();
    return nanoseconds / 1e6;
}

qint64 proportionalBytesOf(qint64 pid)
{
    for (const QByteArray &line : contentsOf(QStringLiteral("/proc/%1/smaps_rollup").arg(pid)).split('\n')) {
        if (line.startsWith("Pss:"))
            return line.mid(4).simplified().split(' ').value(0).toLongLong() * 1024;
    }
    return 0;
}

} // namespace ostrel
