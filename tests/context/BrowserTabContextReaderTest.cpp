#include "context/BrowserTabContextReader.h"
#include "support/FakeBrowserScriptRunner.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

using std::nullopt;

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

ForegroundApplication application(const char *bundleIdentifier)
{
    return {.localizedName = text("Browser"), .bundleIdentifier = text(bundleIdentifier), .processIdentifier = 42};
}

const QDeadlineTimer never(QDeadlineTimer::Forever);

TEST(BrowserTab, supportedBrowsers_areTheEightOfTheChromiumFamily)
{
    const QSet<QString> expected = {text("company.thebrowser.Browser"), text("com.brave.Browser"),
                                    text("com.google.Chrome"),          text("com.google.Chrome.beta"),
                                    text("com.google.Chrome.canary"),   text("com.microsoft.edgemac"),
                                    text("com.operasoftware.Opera"),    text("com.vivaldi.Vivaldi")};
    EXPECT_EQ(BrowserTabContextReader::chromiumBundleIdentifiers(), expected);
}

TEST(BrowserTab, otherApplications_areNeverAsked)
{
    FakeBrowserScriptRunner runner; // fails when it is called
    BrowserTabContextReader reader(runner);
    for (const char *identifier : {"", "org.mozilla.firefox", "com.google.chrome", "com.google.Chrome "})
        EXPECT_EQ(reader.read(application(identifier), nullopt, never), nullopt) << identifier;
    EXPECT_EQ(reader.read({.localizedName = text("A"), .bundleIdentifier = nullopt}, nullopt, never), nullopt);
}

TEST(BrowserTab, runner_isToldWhoIsInFrontAndUntilWhen)
{
    FakeBrowserScriptRunner runner;
    const QDeadlineTimer limit(400);
    runner.onRun = [&](const BrowserScriptRunner::Browser &browser, const QString &script, QDeadlineTimer deadline) {
        EXPECT_EQ(browser.bundleIdentifier, text("com.google.Chrome"));
        EXPECT_EQ(browser.processIdentifier, 42);
        EXPECT_EQ(browser.windowTitle, text(" A  title "));
        EXPECT_EQ(script, BrowserTabContextReader::script(text("com.google.Chrome")));
        EXPECT_EQ(deadline, limit);
        return text("https://example.com/\nA title");
    };
    BrowserTabContextReader reader(runner);
    EXPECT_EQ(reader.read(application("com.google.Chrome"), text(" A  title "), limit),
              (ActiveBrowserTabContext{.url = text("https://example.com/"), .title = text("A title")}));
}

TEST(BrowserTab, browserThatCannotBeAsked_isNone)
{
    FakeBrowserScriptRunner runner;
    runner.onRun = [](const auto &, const QString &, QDeadlineTimer) { return nullopt; };
    EXPECT_EQ(BrowserTabContextReader(runner).read(application("com.vivaldi.Vivaldi"), nullopt, never), nullopt);
}

TEST(BrowserTab, script_isWrittenLineByLine)
{
    EXPECT_EQ(BrowserTabContextReader::script(text("com.brave.Browser")),
              text("tell application id \"com.brave.Browser\"\n"
                   "    if (count of windows) is 0 then return \"\"\n"
                   "    set tabURL to URL of active tab of front window\n"
                   "    set tabTitle to title of active tab of front window\n"
                   "    return tabURL & linefeed & tabTitle\n"
                   "end tell"));
}

TEST(BrowserTab, identifierInTheScript_hasBackslashesAndQuotesEscaped)
{
    EXPECT_TRUE(BrowserTabContextReader::script(text(R"(a\"b"\%1)"))
                    .startsWith(text(R"(tell application id "a\\\"b\"\\%1")") + u'\n'));
}

TEST(BrowserTab, emptyAnswerOfABrowserWithoutWindows_isNone)
{
    for (const char *output : {"", "\n", " \n\t\n", "\n\n"})
        EXPECT_EQ(BrowserTabContextReader::parse(text(output)), nullopt);
    EXPECT_EQ(BrowserTabContextReader::parse(nullopt), nullopt);
}

TEST(BrowserTab, addressAndTitle_areNormalised)
{
    EXPECT_EQ(BrowserTabContextReader::parse(text(" https://a.example \n  A \t title\r\nmore")),
              (ActiveBrowserTabContext{.url = text("https://a.example"), .title = text("A title")}));
}

TEST(BrowserTab, answerWithoutASecondLine_hasNoTitle)
{
    EXPECT_EQ(BrowserTabContextReader::parse(text("about:blank")),
              (ActiveBrowserTabContext{.url = text("about:blank"), .title = nullopt}));
}

TEST(BrowserTab, emptyFirstLine_hasNoAddress)
{
    EXPECT_EQ(BrowserTabContextReader::parse(text("\nA title")),
              (ActiveBrowserTabContext{.url = nullopt, .title = text("A title")}));
    EXPECT_EQ(BrowserTabContextReader::parse(text("\n\nmore")),
              (ActiveBrowserTabContext{.url = nullopt, .title = nullopt}));
}

} // namespace
} // namespace ostrel
