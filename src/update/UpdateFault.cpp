#include "update/UpdateFault.h"

namespace ostrel {

namespace {

/// About what the server sent.
QString feedSentence(UpdateFault fault, const QString &detail)
{
    switch (fault) {
    case UpdateFault::AddressRefused:
        return QStringLiteral("Updates are only fetched over https, not from \"%1\".").arg(detail);
    case UpdateFault::RedirectRefused:
        return QStringLiteral("The update server leads to \"%1\", where updates are not fetched from.").arg(detail);
    case UpdateFault::TooManyRedirects:
        return QStringLiteral("The update server leads from one address to the next without end.");
    case UpdateFault::ServerRefused:
        return QStringLiteral("The update server answered with status %1. Try again later.").arg(detail);
    case UpdateFault::FeedTooLong:
        return QStringLiteral("The update server sent far more than a list of versions.");
    case UpdateFault::FeedUnsigned:
        return QStringLiteral("The list of versions is not signed, so it is not trusted. A network that asks you to "
                              "log in sends such pages: log in, then try again.");
    case UpdateFault::FeedSignatureWrong:
        return QStringLiteral("The list of versions is not signed by the makers of this program, so it is not "
                              "trusted.");
    case UpdateFault::FeedNotUnderstood:
        return QStringLiteral("The list of versions could not be understood: %1").arg(detail);
    case UpdateFault::FeedReplayed:
        return QStringLiteral("The update server sent an older list of versions than before, so it is not trusted. "
                              "Try again later.");
    case UpdateFault::FeedExpired:
        return QStringLiteral("The list of versions was only good until %1, so nothing newer can be told from it. "
                              "Check this machine's date; if it is right, try again later.")
            .arg(detail);
    default:
        return {};
    }
}

/// About a version that is fetched and installed.
QString archiveSentence(UpdateFault fault, const QString &detail)
{
    switch (fault) {
    case UpdateFault::DownloadInterrupted:
        return QStringLiteral("The download of version %1 was interrupted too often. It goes on where it stopped at "
                              "the next check.")
            .arg(detail);
    case UpdateFault::ArchiveSizeWrong:
        return QStringLiteral("The new version on the server is not as long as announced, so it was not installed.");
    case UpdateFault::ArchiveHashWrong:
        return QStringLiteral("What was downloaded is not the new version that was announced, so it was not installed. "
                              "The next check downloads it anew.");
    case UpdateFault::ArchiveSignatureWrong:
        return QStringLiteral("The new version is not signed by the makers of this program, so it was not installed.");
    case UpdateFault::ArchiveNotUnderstood:
        return QStringLiteral("The new version could not be unpacked: %1").arg(detail);
    case UpdateFault::ArchiveUnsafe:
        return QStringLiteral("The new version holds what no version may (%1), so it was not installed.").arg(detail);
    case UpdateFault::ArchiveIncomplete:
        return QStringLiteral("The new version is not a complete program (%1), so it was not installed.").arg(detail);
    case UpdateFault::ArchiveDoesNotStart:
        return QStringLiteral("The new version does not start on this machine, so it was not installed. %1")
            .arg(detail)
            .trimmed();
    default:
        return {};
    }
}

/// About this installation.
QString ownSentence(UpdateFault fault, const QString &detail)
{
    switch (fault) {
    case UpdateFault::NoFeed:
        return QStringLiteral("This build does not look for updates: it has no update feed. New versions come the way "
                              "this one came.");
    case UpdateFault::NoVersion:
        return QStringLiteral("This build does not know its own version, so it can't tell what is newer.");
    case UpdateFault::NoPublicKey:
        return QStringLiteral("This build has an update feed but no key to check it with, so it takes no updates.");
    case UpdateFault::InstallationBusy:
        return QStringLiteral("Another ostrel is changing this installation. Try again when it is done.");
    case UpdateFault::NotOurInstallation:
        return QStringLiteral("This installation does not update itself. Install new versions the way this one was "
                              "installed, for instance with the package manager.");
    case UpdateFault::NoPreviousVersion:
        return QStringLiteral("There is no previous version to go back to.");
    case UpdateFault::NewerThere:
        return QStringLiteral("Another ostrel has installed the newer version %1 meanwhile, and that one stays.")
            .arg(detail);
    default:
        return {};
    }
}

} // namespace

QString updateFaultDomain()
{
    return QStringLiteral("TamskOstrel.Update");
}

Error updateError(UpdateFault fault, const QString &detail)
{
    QString words = feedSentence(fault, detail);
    if (words.isEmpty())
        words = archiveSentence(fault, detail);
    if (words.isEmpty())
        words = ownSentence(fault, detail);
    return {.domain = updateFaultDomain(), .code = int(fault), .localizedDescription = words};
}

bool isUpdateFault(const Error &error, UpdateFault fault)
{
    return error.code == int(fault) && error.domain == updateFaultDomain();
}

} // namespace ostrel
