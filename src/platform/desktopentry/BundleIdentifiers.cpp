#include "platform/desktopentry/BundleIdentifiers.h"

#include <QHash>

namespace ostrel {

namespace {

/// Ids as distributions, the makers' own packages, Flatpak and Snap give them, in lower case.
const QHash<QString, QString> &chromiumFamily()
{
    static const auto table = [] {
        const auto arc = QStringLiteral("company.thebrowser.Browser");
        const auto brave = QStringLiteral("com.brave.Browser");
        const auto chrome = QStringLiteral("com.google.Chrome");
        const auto chromeBeta = QStringLiteral("com.google.Chrome.beta");
        const auto chromeCanary = QStringLiteral("com.google.Chrome.canary");
        const auto edge = QStringLiteral("com.microsoft.edgemac");
        const auto opera = QStringLiteral("com.operasoftware.Opera");
        const auto vivaldi = QStringLiteral("com.vivaldi.Vivaldi");
        return QHash<QString, QString>{
            {QStringLiteral("company.thebrowser.browser"), arc},
            {QStringLiteral("brave"), brave},
            {QStringLiteral("brave-browser"), brave},
            {QStringLiteral("brave-browser-beta"), brave},
            {QStringLiteral("brave-browser-nightly"), brave},
            {QStringLiteral("brave_brave"), brave},
            {QStringLiteral("com.brave.browser"), brave},
            {QStringLiteral("chromium"), chrome},
            {QStringLiteral("chromium-browser"), chrome},
            {QStringLiteral("chromium_chromium"), chrome},
            {QStringLiteral("org.chromium.chromium"), chrome},
            {QStringLiteral("google-chrome"), chrome},
            {QStringLiteral("google-chrome-stable"), chrome},
            {QStringLiteral("com.google.chrome"), chrome},
            {QStringLiteral("google-chrome-beta"), chromeBeta},
            {QStringLiteral("com.google.chrome.beta"), chromeBeta},
            {QStringLiteral("google-chrome-canary"), chromeCanary},
            {QStringLiteral("google-chrome-unstable"), chromeCanary},
            {QStringLiteral("com.google.chrome.canary"), chromeCanary},
            {QStringLiteral("com.google.chromedev"), chromeCanary},
            {QStringLiteral("microsoft-edge"), edge},
            {QStringLiteral("microsoft-edge-beta"), edge},
            {QStringLiteral("microsoft-edge-dev"), edge},
            {QStringLiteral("com.microsoft.edge"), edge},
            {QStringLiteral("com.microsoft.edgedev"), edge},
            {QStringLiteral("com.microsoft.edgemac"), edge},
            {QStringLiteral("opera"), opera},
            {QStringLiteral("opera-beta"), opera},
            {QStringLiteral("opera-developer"), opera},
            {QStringLiteral("opera_opera"), opera},
            {QStringLiteral("com.opera.opera"), opera},
            {QStringLiteral("com.operasoftware.opera"), opera},
            {QStringLiteral("vivaldi"), vivaldi},
            {QStringLiteral("vivaldi-stable"), vivaldi},
            {QStringLiteral("vivaldi-snapshot"), vivaldi},
            {QStringLiteral("vivaldi_vivaldi"), vivaldi},
            {QStringLiteral("com.vivaldi.vivaldi"), vivaldi},
        };
    }();
    return table;
}

} // namespace

QString bundleIdentifierOf(const QString &desktopFileId)
{
    return chromiumFamily().value(desktopFileId.toLower(), desktopFileId);
}

} // namespace ostrel
