#pragma once

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace ostrel {

/// A folder that looks like the observer's: its bundle and a node of its own, both empty.
class ObserverRoot
{
public:
    ObserverRoot()
    {
        for (const QString &file : {QStringLiteral("dist/observer.mjs"), QStringLiteral("bin/node")}) {
            QDir(m_folder.path()).mkpath(QFileInfo(file).path());
            QFile empty(m_folder.filePath(file));
            if (empty.open(QIODevice::WriteOnly))
                empty.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        }
    }

    QString path() const { return m_folder.path(); }

private:
    QTemporaryDir m_folder;
};

} // namespace ostrel
