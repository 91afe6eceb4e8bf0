#include "platform/devtools/BrowserProfiles.h"

#include "base/Files.h"
#include "base/Paths.h"

#include <QList>

namespace ostrel {

namespace {

struct ProfilePlaces {
    QString bundleIdentifier;
    QStringList inConfig;  ///< below the folder of settings
    QStringList elsewhere; ///< below the home folder
};

const QList<ProfilePlaces> &knownPlaces()
{
    static const QList<ProfilePlaces> places = {
        {QStringLiteral("com.google.Chrome"),
         {QStringLiteral("chromium"), QStringLiteral("google-chrome")},
         {QStringLiteral(".var/app/org.chromium.Chromium/config/chromium"),
          QStringLiteral(".var/app/com.google.Chrome/config/google-chrome"),
          QStringLiteral("snap/chromium/common/chromium")}},
        {QStringLiteral("com.google.Chrome.beta"), {QStringLiteral("google-chrome-beta")}, {}},
        {QStringLiteral("com.google.Chrome.canary"),
         {QStringLiteral("google-chrome-unstable"), QStringLiteral("google-chrome-canary")},
         {QStringLiteral(".var/app/com.google.ChromeDev/config/google-chrome-unstable")}},
        {QStringLiteral("com.brave.Browser"),
         {QStringLiteral("BraveSoftware/Brave-Browser"), QStringLiteral("BraveSoftware/Brave-Browser-Beta"),
          QStringLiteral("BraveSoftware/Brave-Browser-Nightly")},
         {QStringLiteral(".var/app/com.brave.Browser/config/BraveSoftware/Brave-Browser"),
          QStringLiteral("snap/brave/current/.config/BraveSoftware/Brave-Browser")}},
        {QStringLiteral("com.microsoft.edgemac"),
         {QStringLiteral("microsoft-edge"), QStringLiteral("microsoft-edge-beta"),
          QStringLiteral("microsoft-edge-dev")},
         {QStringLiteral(".var/app/com.microsoft.Edge/config/microsoft-edge"),
          QStringLiteral(".var/app/com.microsoft.EdgeDev/config/microsoft-edge-dev")}},
        {QStringLiteral("com.operasoftware.Opera"),
         {QStringLiteral("opera"), QStringLiteral("opera-beta"), QStringLiteral("opera-developer")},
         {QStringLiteral(".var/app/com.opera.Opera/config/opera"), QStringLiteral("snap/opera/current/.config/opera")}},
        {QStringLiteral("com.vivaldi.Vivaldi"),
         {QStringLiteral("vivaldi"), QStringLiteral("vivaldi-snapshot")},
         {QStringLiteral(".var/app/com.vivaldi.Vivaldi/config/vivaldi"),
          QStringLiteral("snap/vivaldi/current/.config/vivaldi")}},
    };
    return places;
}

QStringList foldersOf(const ProfilePlaces &places, const UserFolders &user)
{
    QStringList folders;
    for (const QString &place : places.inConfig)
        folders.append(user.config + u'/' + place);
    for (const QString &place : places.elsewhere)
        folders.append(user.home + u'/' + place);
    return folders;
}

} // namespace

UserFolders UserFolders::ofThisUser()
{
    const QString home = homeDirectory();
    const QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    return {.home = home, .config = config.startsWith(u'/') ? config : home + QLatin1String("/.config")};
}

QStringList profileFolders(const QString &bundleIdentifier, const UserFolders &user)
{
    for (const ProfilePlaces &places : knownPlaces()) {
        if (places.bundleIdentifier == bundleIdentifier)
            return foldersOf(places, user);
    }
    return {};
}

QStringList allProfileFolders(const UserFolders &user)
{
    QStringList folders;
    for (const ProfilePlaces &places : knownPlaces())
        folders += foldersOf(places, user);
    return folders;
}

std::optional<quint16> portInNote(const QByteArray &note)
{
    bool isNumber = false;
    const quint16 port = note.first(std::max<qsizetype>(note.indexOf('\n'), 0)).toUShort(&isNumber);
    return isNumber && port != 0 ? std::optional(port) : std::nullopt;
}

std::optional<quint16> notedPort(const QString &profileFolder)
{
    const auto note = readFile(profileFolder + QLatin1String("/DevToolsActivePort"));
    return note ? portInNote(*note) : std::nullopt;
}

} // namespace ostrel
