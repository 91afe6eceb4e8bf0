#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

namespace ostrel {

/// The user's folders that programs keep their settings in.
struct UserFolders {
    QString home;
    QString config; ///< $XDG_CONFIG_HOME, or ~/.config

    static UserFolders ofThisUser();
};

/// Where a browser of the Chromium family keeps its profiles unless told otherwise: as its maker's package, a
/// distribution's, a Flatpak and a Snap. Empty for every other program.
QStringList profileFolders(const QString &bundleIdentifier, const UserFolders &user);

/// The folders of all of them.
QStringList allProfileFolders(const UserFolders &user);

/// The port in a profile's note of where it listens for debuggers. Nobody removes the note: the browser may have ended,
/// and somebody else may listen there.
/// @param note the content of "DevToolsActivePort": port, line feed, path
std::optional<quint16> portInNote(const QByteArray &note);

/// The same, of the profiles in a folder. Blocks on the disk.
std::optional<quint16> notedPort(const QString &profileFolder);

} // namespace ostrel
