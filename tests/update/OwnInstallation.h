#pragma once

#include "base/Files.h"
#include "support/TarArchive.h"
#include "update/Installation.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace ostrel {

/// A folder with a program that prints its version in it, as a version's folder is.
inline Result<> fillWithProgram(const QString &folder, const QString &version)
{
    const QString program = folder + QStringLiteral("/bin/ostrel");
    if (auto written = writeFileAtomically(program, "#!/bin/sh\necho " + version.toUtf8() + '\n'); !written)
        return written;
    QFile::setPermissions(program, QFile::Permissions(0x7755));
    return writeFileAtomically(folder + QStringLiteral("/share/ostrel/Info.json"), bundleInfoJson(version));
}

/// An installation of version 0.1.0 in the user's own folder.
class OwnInstallation
{
public:
    OwnInstallation()
    {
        EXPECT_TRUE(fillWithProgram(path(QStringLiteral("versions/0.1.0")), QStringLiteral("0.1.0")).has_value());
        EXPECT_TRUE(QFile::link(QStringLiteral("versions/0.1.0"), path(QStringLiteral("current"))));
    }

    QString root() const { return m_folder.path(); }
    QString path(const QString &name) const { return m_folder.filePath(name); }

    std::optional<Installation> find(std::shared_ptr<Disk> disk = std::make_shared<SystemDisk>()) const
    {
        return Installation::around(path(QStringLiteral("versions/0.1.0")), std::move(disk));
    }

    /// What the installed program says of its version, when it is started as its user does.
    QString startedVersion() const
    {
        QProcess program;
        program.start(path(QStringLiteral("current/bin/ostrel")), QStringList());
        program.waitForFinished(20'000);
        return QString::fromUtf8(program.readAllStandardOutput()).trimmed();
    }

    /// What is in the folder of the versions, but for the locks.
    QStringList versions() const
    {
        QStringList names = QDir(path(QStringLiteral("versions")))
                                .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
        names.removeIf([](const QString &name) { return name.endsWith(QLatin1String(".lock")); });
        return names;
    }

private:
    QTemporaryDir m_folder;
};

} // namespace ostrel
