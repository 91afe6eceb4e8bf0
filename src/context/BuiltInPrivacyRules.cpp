#include "context/BuiltInPrivacyRules.h"

namespace ostrel {

QStringList builtInApplications()
{
    return {
        QStringLiteral("org.keepassxc.KeePassXC"),
        QStringLiteral("keepass2"),
        QStringLiteral("keepassx"),
        QStringLiteral("bitwarden"),
        QStringLiteral("com.bitwarden.desktop"),
        QStringLiteral("1password"),
        QStringLiteral("com.onepassword.OnePassword"),
        QStringLiteral("org.gnome.seahorse.Application"),
        QStringLiteral("org.gnome.World.Secrets"),
        QStringLiteral("enpass"),
        QStringLiteral("io.enpass.Enpass"),
        QStringLiteral("lastpass"),
        QStringLiteral("proton-pass"),
        QStringLiteral("me.proton.Pass"),
        QStringLiteral("dashlane"),
        QStringLiteral("org.kde.kwalletmanager5"),
        QStringLiteral("org.kde.kwalletmanager"),
        QStringLiteral("buttercup"),
        QStringLiteral("com.buttercup.desktop"),
        QStringLiteral("org.ijhack.QtPass"),
        QStringLiteral("qtpass"),
        QStringLiteral("org.gnome.Gcr.Prompter"),
        QStringLiteral("gcr-prompter"),
        QStringLiteral("torbrowser"),
        QStringLiteral("org.torproject.torbrowser-launcher"),
    };
}

QStringList builtInWindowClasses()
{
    return {
        QStringLiteral("KeePassXC"),       QStringLiteral("KeePass"),
        QStringLiteral("KeePass2"),        QStringLiteral("KeePassX"),
        QStringLiteral("Bitwarden"),       QStringLiteral("1Password"),
        QStringLiteral("Seahorse"),        QStringLiteral("gnome-passwordsafe"),
        QStringLiteral("Enpass"),          QStringLiteral("LastPass"),
        QStringLiteral("Proton Pass"),     QStringLiteral("Dashlane"),
        QStringLiteral("kwalletmanager5"), QStringLiteral("kwalletmanager"),
        QStringLiteral("kwalletd5"),       QStringLiteral("kwalletd6"),
        QStringLiteral("Buttercup"),       QStringLiteral("QtPass"),
        QStringLiteral("pinentry"),        QStringLiteral("Pinentry-gtk-2"),
        QStringLiteral("pinentry-qt"),     QStringLiteral("pinentry-gnome3"),
        QStringLiteral("Gcr-prompter"),    QStringLiteral("ssh-askpass"),
        QStringLiteral("Tor Browser"),
    };
}

QStringList builtInTitlePatterns()
{
    return {
        // "Page — Mozilla Firefox Private Browsing", and in earlier versions "Page - Mozilla Firefox (Private
        // Browsing)"
        QStringLiteral("(?:^|[-–—] )(?:Mozilla Firefox|Firefox Developer Edition|Firefox Nightly|Nightly|LibreWolf"
                       "|Waterfox) \\(?(?:Private Browsing|Private Window|Privater Modus|Privates Fenster"
                       "|Navigation privée|Navegación privada|Navigazione anonima|Navegação privada|Privénavigatie)"
                       "\\)?$"),
        // "Page - [InPrivate] - Microsoft Edge"; the browser's name may hold an invisible character
        QStringLiteral("\\[InPrivate\\] [-–—] (?:[^-–—]+ [-–—] )?Microsoft\\x{200b}? Edge(?: (?:Beta|Dev|Canary))?$"),
        // "Page - Google Chrome (Incognito)"; not every system shows the word
        QStringLiteral("[-–—] (?:Google Chrome|Chromium|Brave|Vivaldi|Opera)(?: (?:Beta|Dev|Unstable))? "
                       "\\((?:Incognito|Inkognito|Incógnito|Navigation privée|Private|Privat)\\)$"),
    };
}

} // namespace ostrel
