#include "app/doctor/Checks.h"
#include "app/doctor/DoctorFacts.h"
#include "app/doctor/ShellWord.h"
#include "base/Fault.h"
#include "observer/SettingsStore.h"

#include <QLocale>

#include <cerrno>

namespace ostrel {

namespace {

/// Below this a recording soon stands still: it is a few days of pictures that wait, or years of a journal.
constexpr qint64 littleSpace = 200'000'000;

QString sizeText(qint64 bytes)
{
    return QLocale::c().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

/// Gives the user a folder that can be written.
QString mendedBy(const FolderFacts &folder, const QString &elsewhere)
{
    const bool isPermission = folder.errorNumber == EACCES || folder.errorNumber == EPERM;
    if (!isPermission)
        return elsewhere;
    if (folder.isOurs)
        return QStringLiteral("chmod u+rwx %1").arg(shellWord(folder.tried));
    if (folder.exists)
        return QStringLiteral("sudo chown \"$USER\" %1").arg(shellWord(folder.path));
    return QStringLiteral("sudo mkdir -p %1 && sudo chown \"$USER\" %1").arg(shellWord(folder.path));
}

/// The same for the program's own folder: whoever else made it has made what lies in it too.
QString ownFolderMendedBy(const FolderFacts &folder, const QString &elsewhere)
{
    const bool isPermission = folder.errorNumber == EACCES || folder.errorNumber == EPERM;
    if (isPermission && folder.exists && !folder.isOurs)
        return QStringLiteral("sudo chown -R \"$USER\" %1").arg(shellWord(folder.path));
    return mendedBy(folder, elsewhere);
}

/// Opens a file whose content is to be mended.
QString edit(const QString &file)
{
    return QStringLiteral("\"${EDITOR:-nano}\" %1").arg(shellWord(file));
}

/// Gives the user a file of the program's own that can be read. What is left aside for its content is mended in an
/// editor; the others no editor could open.
QString fileMendedBy(const QString &file, const Error &fault)
{
    const QString word = shellWord(file);
    if (isFault(fault, Fault::PermissionDenied))
        return QStringLiteral("sudo chown \"$USER\" %1 && chmod u+rw %1").arg(word);
    if (isFault(fault, Fault::IsDirectory) || isFault(fault, Fault::FileFailed))
        return QStringLiteral("mv %1 %2").arg(word, shellWord(file + QLatin1String(".aside")));
    return edit(file);
}

/// The first complaints about a file, and how many more there are.
QString shortened(const QStringList &complaints)
{
    constexpr qsizetype mostShown = 3;
    QString first = complaints.mid(0, mostShown).join(QLatin1String("; "));
    if (complaints.size() <= mostShown)
        return first;
    return QStringLiteral("%1; and %2 more").arg(first, QString::number(complaints.size() - mostShown));
}

QString usableText(const FolderFacts &folder)
{
    return QStringLiteral("%1, %2%3; %4 free")
        .arg(shownPath(folder.path),
             folder.writability == Writability::Tried ? QStringLiteral("can be written")
                                                      : QStringLiteral("may be written"),
             folder.exists ? QString() : QStringLiteral(" (it is made when it is needed)"), sizeText(folder.freeBytes));
}

QString refusedText(const FolderFacts &folder)
{
    return QStringLiteral("%1 cannot be written: %2")
        .arg(shownPath(folder.path), fileError(folder.errorNumber, shownPath(folder.tried)).localizedDescription);
}

} // namespace

Finding checkSettingsFile(const DoctorFacts &facts)
{
    const QString file = SettingsStore::primaryFile();
    const SettingsOnDisk &settings = facts.settings;
    const bool isLegacy = settings.source == SettingsOnDisk::Source::LegacyFile;
    if (settings.primaryFault)
        return Finding::missing(
            QStringLiteral("%1 is left aside: %2").arg(shownPath(file), settings.primaryFault->localizedDescription),
            fileMendedBy(file, *settings.primaryFault));
    if (settings.legacyFault)
        return Finding::missing(
            QStringLiteral("%1 is left aside: %2")
                .arg(shownPath(SettingsStore::legacyFile()), settings.legacyFault->localizedDescription),
            fileMendedBy(SettingsStore::legacyFile(), *settings.legacyFault));
    if (settings.source == SettingsOnDisk::Source::Defaults)
        return Finding::ok(QStringLiteral("there is none, so the defaults hold"));
    return Finding::ok(QStringLiteral("%1 can be read").arg(shownPath(isLegacy ? SettingsStore::legacyFile() : file)));
}

Finding checkPrivacyRules(const DoctorFacts &facts)
{
    const QString file = PrivacyRulesFile::primaryFile();
    const QString shown = shownPath(file);
    const auto &rules = facts.privacyRules;
    if (!rules)
        return Finding::ok(QStringLiteral("there is no file, so the built-in ones hold"));
    if (!*rules)
        return Finding::missing(QStringLiteral("%1 is left aside, the built-in rules hold: %2")
                                    .arg(shown, rules->error().localizedDescription),
                                fileMendedBy(file, rules->error()));
    if (const QStringList &complaints = (*rules)->complaints; !complaints.isEmpty())
        return Finding::missing(
            QStringLiteral("not all of %1 can be used, the other rules hold: %2").arg(shown, shortened(complaints)),
            edit(file));
    return Finding::ok(QStringLiteral("%1 can be read").arg(shown));
}

Finding checkSecretFile(const DoctorFacts &facts)
{
    const SecretFileFacts &file = facts.secretFile;
    const QString shown = shownPath(file.path);
    if (!file.exists)
        return Finding::ok(QStringLiteral("there is none"));
    if (!file.isOurs)
        return Finding::missing(QStringLiteral("%1 belongs to another user: it is not used").arg(shown),
                                QStringLiteral("sudo chown \"$USER\" %1").arg(shellWord(file.path)));
    if (!file.isClosedToOthers)
        return Finding::missing(QStringLiteral("%1 can be read by others").arg(shown),
                                QStringLiteral("chmod 600 %1").arg(shellWord(file.path)));
    return Finding::ok(QStringLiteral("%1 is readable by you alone").arg(shown));
}

Finding checkJournalFolder(const DoctorFacts &facts)
{
    const FolderFacts &folder = facts.journalFolder;
    const QString elsewhere = QStringLiteral("ostrel settings set outputDirectory ~/ostrel/journal");
    if (folder.path.isEmpty())
        return Finding::missing(QStringLiteral("the settings name none: what is recorded waits"), elsewhere);
    if (folder.writability == Writability::Refused)
        return Finding::missing(QStringLiteral("%1 What is recorded waits.").arg(refusedText(folder)),
                                mendedBy(folder, elsewhere));
    if (folder.freeBytes < littleSpace)
        return Finding::missing(QStringLiteral("%1: nearly full").arg(usableText(folder)),
                                QStringLiteral("make room on the disk of %1").arg(shellWord(folder.tried)));
    return Finding::ok(usableText(folder));
}

Finding checkStateFolder(const DoctorFacts &facts)
{
    const bool ownRefused = facts.ownFolder.writability == Writability::Refused;
    const FolderFacts &folder = ownRefused ? facts.ownFolder : facts.stateFolder;
    const QString remount = QStringLiteral("make the disk of %1 writable").arg(shellWord(folder.tried));
    const QString room = QStringLiteral("make room on the disk of %1").arg(shellWord(folder.tried));
    const QString elsewhere = folder.errorNumber == ENOSPC ? room : remount;
    if (folder.writability == Writability::Refused)
        return Finding::blocking(refusedText(folder),
                                 ownRefused ? ownFolderMendedBy(folder, elsewhere) : mendedBy(folder, elsewhere));
    if (folder.freeBytes == 0)
        return Finding::blocking(QStringLiteral("the disk of %1 is full").arg(shownPath(folder.path)), room);
    if (folder.freeBytes < littleSpace)
        return Finding::missing(QStringLiteral("%1: pictures may be lost").arg(usableText(folder)), room);
    return Finding::ok(usableText(folder));
}

} // namespace ostrel
