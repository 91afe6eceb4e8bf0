#include "platform/desktopentry/BundleIdentifiers.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

QString identifierOf(const char *id)
{
    return bundleIdentifierOf(QString::fromUtf8(id));
}

TEST(BundleIdentifiers, chromiumFamily_isOneOfTheEight)
{
    EXPECT_EQ(identifierOf("company.thebrowser.Browser"), QStringLiteral("company.thebrowser.Browser"));
    EXPECT_EQ(identifierOf("brave-browser"), QStringLiteral("com.brave.Browser"));
    EXPECT_EQ(identifierOf("chromium"), QStringLiteral("com.google.Chrome"));
    EXPECT_EQ(identifierOf("org.chromium.Chromium"), QStringLiteral("com.google.Chrome"));
    EXPECT_EQ(identifierOf("google-chrome"), QStringLiteral("com.google.Chrome"));
    EXPECT_EQ(identifierOf("com.google.Chrome"), QStringLiteral("com.google.Chrome"));
    EXPECT_EQ(identifierOf("google-chrome-beta"), QStringLiteral("com.google.Chrome.beta"));
    EXPECT_EQ(identifierOf("google-chrome-unstable"), QStringLiteral("com.google.Chrome.canary"));
    EXPECT_EQ(identifierOf("microsoft-edge"), QStringLiteral("com.microsoft.edgemac"));
    EXPECT_EQ(identifierOf("opera"), QStringLiteral("com.operasoftware.Opera"));
    EXPECT_EQ(identifierOf("vivaldi-stable"), QStringLiteral("com.vivaldi.Vivaldi"));
    EXPECT_EQ(identifierOf("Vivaldi-Stable"), QStringLiteral("com.vivaldi.Vivaldi"));
}

TEST(BundleIdentifiers, otherApplications_keepTheirId)
{
    for (const char *id : {"org.xfce.mousepad", "firefox", "Chromium-extras", "com.tamsk.ostrel", ""})
        EXPECT_EQ(identifierOf(id), QString::fromUtf8(id));
}

} // namespace
} // namespace ostrel
