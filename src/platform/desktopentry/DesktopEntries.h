#pragma once

#include "context/ForegroundSource.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <optional>

namespace ostrel {

/// The installed applications, as their .desktop files describe them. Read at the first question and again whenever an
/// application folder has changed; otherwise a question costs a few file system calls, and nothing where it is the one
/// before: that is answered alike for five seconds. One thread at a time.
class DesktopEntries
{
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    /// @param folders application folders, those that win first
    explicit DesktopEntries(QStringList folders, Clock now = std::chrono::steady_clock::now);

    /// The folders of the running session: "applications" in XDG_DATA_HOME, then in XDG_DATA_DIRS.
    static QStringList sessionFolders();

    /// The application of a window with this class (X11: the class part of WM_CLASS; Wayland: the app id), or of the
    /// program with this file name: its name in the user's language and its bundle identifier. Where no entry claims
    /// the class, it is itself the name, and there is no identifier. The process identifier is left 0.
    ForegroundApplication applicationFor(const QString &windowClass);

private:
    struct Entry {
        QString id;
        QString name;
        QString startupWmClass;
        QString program;
        bool visible = false;
    };
    struct Folder {
        QString path;
        qint64 changedNs = 0; ///< 0 where it does not exist
    };

    struct Answer {
        QString windowClass;
        ForegroundApplication application;
        std::chrono::steady_clock::time_point at;
    };

    ForegroundApplication lookUp(const QString &windowClass);
    bool isFresh() const;
    void read();
    void readFolder(const QString &root, const QString &folder, QHash<QString, Entry> &entries, QStringList &order);
    void makeIndex(const QHash<QString, Entry> &entries, const QStringList &order);
    const Entry *find(const QString &windowClass) const;

    const Clock m_now;
    std::optional<Answer> m_lastAnswer;
    QStringList m_roots;
    QList<Folder> m_folders; ///< all that were read or missed, subfolders too
    bool m_isSettled = false;
    QHash<QString, Entry> m_byClass;         ///< by StartupWMClass, case-folded
    QHash<QString, Entry> m_byId;            ///< as written
    QHash<QString, Entry> m_byLastComponent; ///< of a reverse-DNS id, case-folded
    QHash<QString, Entry> m_byProgram;       ///< that menus start by one entry alone, as written
};

} // namespace ostrel
