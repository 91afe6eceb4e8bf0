#include "platform/desktopentry/DesktopEntries.h"

#include "base/Paths.h"
#include "platform/desktopentry/BundleIdentifiers.h"
#include "platform/desktopentry/DesktopEntryFile.h"

#include <QDir>
#include <QFile>
#include <QSet>

#include <algorithm>
#include <ctime>
#include <sys/stat.h>
#include <utility>

namespace ostrel {

namespace {

constexpr QLatin1String extension(".desktop");
/// While the same program stays in front, one sample after the other asks for it.
constexpr std::chrono::seconds answerLifetime{5};
constexpr qint64 nsPerSecond = 1'000'000'000;

/// When the folder last got or lost a file, on the clock of the file system; 0 where there is no such folder.
qint64 changedNs(const QString &folder)
{
    struct stat info = {};
    if (::stat(QFile::encodeName(folder).constData(), &info) != 0 || !S_ISDIR(info.st_mode))
        return 0;
    return info.st_mtim.tv_sec * nsPerSecond + info.st_mtim.tv_nsec;
}

qint64 nowNs()
{
    struct timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * nsPerSecond + now.tv_nsec;
}

QString variableOr(const char *variable, const QString &otherwise)
{
    const QString value = qEnvironmentVariable(variable);
    return value.isEmpty() ? otherwise : value;
}

/// "org.example.Editor" is "editor"; an id without dots has no such part.
QString lastComponent(const QString &id)
{
    return id.contains(u'.') ? id.section(u'.', -1).toCaseFolded() : QString();
}

template <class Key, class Value>
void insertIfAbsent(QHash<Key, Value> &table, const Key &key, const Value &value)
{
    if (!key.isEmpty() && !table.contains(key))
        table.insert(key, value);
}

} // namespace

DesktopEntries::DesktopEntries(QStringList folders, Clock now) : m_now(std::move(now)), m_roots(std::move(folders)) {}

QStringList DesktopEntries::sessionFolders()
{
    const QString home = variableOr("XDG_DATA_HOME", homeDirectory() + QStringLiteral("/.local/share"));
    const QString system = variableOr("XDG_DATA_DIRS", QStringLiteral("/usr/local/share:/usr/share"));
    QStringList folders;
    for (const QString &data : QStringList{home} + system.split(u':', Qt::SkipEmptyParts))
        folders.append(QDir(data).filePath(QStringLiteral("applications")));
    return folders;
}

ForegroundApplication DesktopEntries::applicationFor(const QString &windowClass)
{
    const auto now = m_now();
    if (!m_lastAnswer || m_lastAnswer->windowClass != windowClass || now - m_lastAnswer->at >= answerLifetime)
        m_lastAnswer = Answer{.windowClass = windowClass, .application = lookUp(windowClass), .at = now};
    return m_lastAnswer->application;
}

ForegroundApplication DesktopEntries::lookUp(const QString &windowClass)
{
    if (!isFresh())
        read();
    ForegroundApplication application;
    if (const Entry *entry = find(windowClass)) {
        application.localizedName = entry->name.isEmpty() ? windowClass : entry->name;
        application.bundleIdentifier = bundleIdentifierOf(entry->id);
    } else if (!windowClass.isEmpty()) {
        application.localizedName = windowClass;
    }
    return application;
}

const DesktopEntries::Entry *DesktopEntries::find(const QString &windowClass) const
{
    const auto lookUp = [](const QHash<QString, Entry> &table, const QString &key) {
        const auto found = table.constFind(key);
        return found == table.cend() ? nullptr : &*found;
    };
    if (const Entry *entry = lookUp(m_byClass, windowClass.toCaseFolded()))
        return entry;
    if (const Entry *entry = lookUp(m_byId, windowClass))
        return entry;
    if (const Entry *entry = lookUp(m_byId, windowClass.toLower()))
        return entry;
    if (const Entry *entry = lookUp(m_byLastComponent, windowClass.toCaseFolded()))
        return entry;
    // Programs that are named otherwise than their entries tell the accessibility bus nothing but their own name.
    return lookUp(m_byProgram, windowClass);
}

bool DesktopEntries::isFresh() const
{
    return m_isSettled && std::all_of(m_folders.begin(), m_folders.end(),
                                      [](const Folder &folder) { return changedNs(folder.path) == folder.changedNs; });
}

void DesktopEntries::read()
{
    m_folders.clear();
    QHash<QString, Entry> entries;
    QStringList order;
    for (const QString &root : std::as_const(m_roots))
        readFolder(root, root, entries, order);
    makeIndex(entries, order);
    // A folder's time has the grain of a clock tick: what changes in the tick in which it was read would go unseen.
    constexpr qint64 settledAfterNs = nsPerSecond / 10;
    const qint64 now = nowNs();
    m_isSettled = std::none_of(m_folders.begin(), m_folders.end(),
                               [now](const Folder &folder) { return now - folder.changedNs < settledAfterNs; });
}

void DesktopEntries::readFolder(const QString &root, const QString &folder, QHash<QString, Entry> &entries,
                                QStringList &order)
{
    // The time is taken before the list, so that a change in between is a change.
    m_folders.append({.path = folder, .changedNs = changedNs(folder)});
    const QDir directory(folder);
    for (const QFileInfo &item : directory.entryInfoList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        if (item.isDir() && !item.isSymLink()) {
            readFolder(root, item.filePath(), entries, order);
            continue;
        }
        if (!item.fileName().endsWith(extension))
            continue;
        const QString id = QDir(root).relativeFilePath(item.filePath()).chopped(extension.size()).replace(u'/', u'-');
        const auto file = entries.contains(id) ? std::nullopt : readDesktopEntryFile(item.filePath());
        if (!file)
            continue;
        entries.insert(id, {.id = id,
                            .name = file->name,
                            .startupWmClass = file->startupWmClass,
                            .program = file->program,
                            .visible = file->visible});
        if (!file->hidden)
            order.append(id);
    }
}

void DesktopEntries::makeIndex(const QHash<QString, Entry> &entries, const QStringList &order)
{
    m_byClass.clear();
    m_byId.clear();
    m_byLastComponent.clear();
    m_byProgram.clear();
    QSet<QString> programsOfSeveral;
    // Of several entries for one class the one that the user sees in menus names it best.
    for (const bool visible : {true, false}) {
        for (const QString &id : order) {
            const Entry entry = entries.value(id);
            if (entry.visible != visible)
                continue;
            insertIfAbsent(m_byClass, entry.startupWmClass.toCaseFolded(), entry);
            insertIfAbsent(m_byId, id, entry);
            insertIfAbsent(m_byLastComponent, lastComponent(id), entry);
            if (visible && m_byProgram.contains(entry.program))
                programsOfSeveral.insert(entry.program);
            if (visible)
                insertIfAbsent(m_byProgram, entry.program, entry);
        }
    }
    for (const QString &program : std::as_const(programsOfSeveral))
        m_byProgram.remove(program);
}

} // namespace ostrel
