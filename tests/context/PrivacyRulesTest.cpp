#include "context/PrivacyRules.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace ostrel;

namespace {

bool isTitleExcluded(const char *title)
{
    return PrivacyRules::builtIn().excludes({.bundleIdentifier = {},
                                             .windowClass = QStringLiteral("Navigator firefox"),
                                             .title = QString::fromUtf8(title)});
}

TEST(PrivacyRules, withoutAny_excludeNothing)
{
    EXPECT_FALSE(PrivacyRules().excludes({.bundleIdentifier = QStringLiteral("org.keepassxc.KeePassXC"),
                                          .windowClass = QStringLiteral("keepassxc KeePassXC"),
                                          .title = QStringLiteral("Passwords")}));
    EXPECT_FALSE(PrivacyRules().excludes({})) << "nothing is known of the window";
    EXPECT_FALSE(PrivacyRules::builtIn().excludes({}));
}

TEST(PrivacyRules, applications_areKnownByIdentifierOrByClass)
{
    const PrivacyRules rules{
        .desktopIds = {QStringLiteral("org.keepassxc.KeePassXC")}, .windowClasses = {}, .titles = {}};
    const auto excludes = [&rules](std::optional<QString> id, const char *windowClass) {
        return rules.excludes({.bundleIdentifier = id, .windowClass = QString::fromLatin1(windowClass), .title = {}});
    };
    EXPECT_TRUE(excludes(QStringLiteral("org.keepassxc.keepassxc"), ""));
    EXPECT_TRUE(excludes(std::nullopt, "keepassxc KeePassXC")) << "no desktop entry is installed";
    EXPECT_TRUE(excludes(std::nullopt, "org.keepassxc.KeePassXC")) << "the app id of Wayland";
    EXPECT_FALSE(excludes(QStringLiteral("org.keepassxc.KeePassXC.other"), "xterm XTerm"));
    EXPECT_FALSE(excludes(std::nullopt, "KeePassXC-like")) << "a part is a whole part";
}

TEST(PrivacyRules, windowClasses_areComparedWithEachPartWithoutCase)
{
    const PrivacyRules rules{.desktopIds = {}, .windowClasses = {QStringLiteral("Proton Pass")}, .titles = {}};
    const auto excludes = [&rules](const char *windowClass) {
        return rules.excludes({.bundleIdentifier = {}, .windowClass = QString::fromLatin1(windowClass), .title = {}});
    };
    EXPECT_TRUE(excludes("proton pass Proton Pass"));
    EXPECT_TRUE(excludes("main PROTON PASS"));
    EXPECT_FALSE(excludes("proton Proton"));
    EXPECT_FALSE(excludes(""));
}

TEST(PrivacyRules, privateBrowserWindows_areKnownByTheirTitles)
{
    EXPECT_TRUE(isTitleExcluded("Bank — Mozilla Firefox Private Browsing"));
    EXPECT_TRUE(isTitleExcluded("Mozilla Firefox Private Browsing"));
    EXPECT_TRUE(isTitleExcluded("Bank - Mozilla Firefox (Private Browsing)"));
    EXPECT_TRUE(isTitleExcluded("Bank — Mozilla Firefox Privater Modus"));
    EXPECT_TRUE(isTitleExcluded("Bank and 2 more pages - [InPrivate] - Microsoft\u200b Edge"));
    EXPECT_TRUE(isTitleExcluded("New InPrivate tab - [InPrivate] - Microsoft Edge"));
    EXPECT_TRUE(isTitleExcluded("New Tab - Google Chrome (Incognito)"));
    EXPECT_TRUE(isTitleExcluded("New Tab - Chromium (Incognito)"));
}

TEST(PrivacyRules, pagesThatMentionPrivateBrowsing_areNotExcluded)
{
    EXPECT_FALSE(isTitleExcluded("How Private Browsing works — Mozilla Firefox"));
    EXPECT_FALSE(isTitleExcluded("Mozilla Firefox Private Browsing — Mozilla Firefox"));
    EXPECT_FALSE(isTitleExcluded("[InPrivate] explained - Chromium"));
    EXPECT_FALSE(isTitleExcluded("Google Chrome (Incognito) - Wikipedia - Google Chrome"));
    EXPECT_FALSE(isTitleExcluded("notes about Private Browsing - Mousepad"));
}

TEST(PrivacyRules, endlessTitle_isSearchedAtBothEnds)
{
    const QString page(1'000'000, QLatin1Char('x'));
    const PrivacyRules rules = PrivacyRules::builtIn();
    EXPECT_TRUE(rules.excludes({.bundleIdentifier = {},
                                .windowClass = {},
                                .title = page + QStringLiteral(" — Mozilla Firefox Private Browsing")}));
    EXPECT_FALSE(rules.excludes({.bundleIdentifier = {}, .windowClass = {}, .title = page}));
}

TEST(PrivacyRules, patternThatSearchesForEver_isGivenUpAndExcludes)
{
    const PrivacyRules rules{
        .desktopIds = {}, .windowClasses = {}, .titles = {titlePattern(QStringLiteral("^(a+)+$"))}};
    QElapsedTimer timer;
    timer.start();
    const QString undecidable = QString(2'000, QLatin1Char('a')) + QLatin1Char('!');
    EXPECT_TRUE(rules.excludes({.bundleIdentifier = {}, .windowClass = {}, .title = undecidable}));
    EXPECT_LT(timer.elapsed(), 5'000) << "without a limit it would take longer than the universe has";
}

TEST(PrivacyRules, titlePattern_ofTheFixture_isFoundWhereTheObserverFindsIt)
{
    QFile file(QStringLiteral(OSTREL_FIXTURES "/title-patterns.json"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonArray cases = QJsonDocument::fromJson(file.readAll()).array();
    ASSERT_GT(cases.size(), 30);
    for (const QJsonValue one : cases) {
        const QString pattern = one[QStringLiteral("pattern")].toString();
        const QString title = one[QStringLiteral("title")].toString();
        const PrivacyRules rules{.desktopIds = {}, .windowClasses = {}, .titles = {titlePattern(pattern)}};
        EXPECT_EQ(rules.excludes({.bundleIdentifier = {}, .windowClass = {}, .title = title}),
                  one[QStringLiteral("found")].toBool())
            << pattern.toStdString() << " in " << title.toStdString();
    }
}

TEST(PrivacyRules, joined_excludeWhatEitherDoes)
{
    const PrivacyRules mine{.desktopIds = {}, .windowClasses = {QStringLiteral("Mine")}, .titles = {}};
    const PrivacyRules both = mine.joinedWith(PrivacyRules::builtIn());
    EXPECT_TRUE(both.excludes({.bundleIdentifier = {}, .windowClass = QStringLiteral("mine"), .title = {}}));
    EXPECT_TRUE(both.excludes({.bundleIdentifier = {}, .windowClass = QStringLiteral("KeePassXC"), .title = {}}));
    EXPECT_EQ(both.joinedWith(PrivacyRules::builtIn()), both) << "nothing is in it twice";
}

bool isSiteExcluded(const char *site, const char *address)
{
    PrivacyRules rules;
    rules.sites = {QString::fromUtf8(site)};
    return rules.excludes(
        {.bundleIdentifier = {}, .windowClass = {}, .title = {}, .pageAddress = QString::fromUtf8(address)});
}

TEST(PrivacyRules, sites_areHostsWithTheirSubdomains)
{
    EXPECT_TRUE(isSiteExcluded("bank.example", "https://bank.example/"));
    EXPECT_TRUE(isSiteExcluded("Bank.example", "https://www.bank.example:8443/accounts?id=1"));
    EXPECT_TRUE(isSiteExcluded("https://www.bank.example", "http://my.bank.example/x"));
    EXPECT_TRUE(isSiteExcluded("bank.example", "bank.example/x")) << "an address as a browser shows it";
    EXPECT_TRUE(isSiteExcluded("m\u00fcller.example", "https://xn--mller-kva.example/"));
    EXPECT_FALSE(isSiteExcluded("bank.example", "https://notbank.example/"));
    EXPECT_FALSE(isSiteExcluded("bank.example", "https://bank.example.org/"));
    EXPECT_FALSE(isSiteExcluded("bank.example", "about:blank"));
}

TEST(PrivacyRules, sitesWithAPath_areTheirPagesAlone)
{
    EXPECT_TRUE(isSiteExcluded("example.org/private", "https://example.org/private"));
    EXPECT_TRUE(isSiteExcluded("example.org/private/", "https://www.example.org/private/diary#today"));
    EXPECT_FALSE(isSiteExcluded("example.org/private", "https://example.org/privateer"));
    EXPECT_FALSE(isSiteExcluded("example.org/private", "https://example.org/"));
}

TEST(PrivacyRules, sites_sayNothingOfWindowsWithoutAPage)
{
    PrivacyRules rules;
    rules.sites = {QStringLiteral("bank.example")};
    EXPECT_FALSE(rules.excludes({.bundleIdentifier = {}, .windowClass = {}, .title = QStringLiteral("bank.example")}));
    EXPECT_EQ(PrivacyRules().joinedWith(rules), rules);
}

} // namespace
