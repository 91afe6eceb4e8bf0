#include "CommandFixture.h"
#include "support/Printers.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>

namespace ostrel {
namespace {

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

/// `ostrel context` in this process, on a desktop with one display.
class ContextCommandTest : public CommandFixture
{
protected:
    ContextCommandTest()
    {
        m_displays.show({7});
        m_foreground.onMouseLocation = [] { return QPointF(1, 1); };
        m_foreground.onUnavailableFacts = [] { return QList<UnavailableFact>(); };
        m_contextAccessibility.onIsTrusted = [] { return true; };
        m_foreground.onFrontmostApplication = [] {
            return ForegroundApplication{.localizedName = text("Editor"), .bundleIdentifier = {}};
        };
        m_foreground.onFocusedWindow = [] { return FocusedWindow{.title = text("Notes"), .frame = {}}; };
    }

    void lackPointer()
    {
        m_foreground.onMouseLocation = [] { return std::nullopt; };
        m_foreground.onUnavailableFacts = [] {
            return QList<UnavailableFact>{{.fact = text("pointer position"), .reason = text("nobody tells it")}};
        };
    }
    /// Displays answer only on their own queue.
    CommandResult context(const QStringList &options = {})
    {
        return m_samples.sync([&] { return run(QStringList(text("context")) + options); });
    }
    QJsonObject json() { return QJsonDocument::fromJson(context({text("--json")}).output.toUtf8()).object(); }
};

TEST_F(ContextCommandTest, sample_isPrintedAsAFrameWouldCarryIt)
{
    const auto outcome = context();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, text("Active context:\n- App: Editor\n- Window: Notes\n"
                                   "Active display: Display 1 (main), by the mouse\n"));
    EXPECT_EQ(outcome.messages, QString());
}

TEST_F(ContextCommandTest, desktopThatWouldAskTheUser_isStatus1WithTheWayToGrantAndNoDialog)
{
    m_displays.asksUser = true;
    m_displays.onShareableContent = nullptr; // would be the question
    for (const char *command : {"context", "displays"}) {
        SCOPED_TRACE(command);
        const auto outcome = m_samples.sync([&] { return run({text(command)}); });
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.output, QString());
        EXPECT_EQ(outcome.messages,
                  text("ostrel: The desktop has not been asked whether its screens may be seen, or keeps no answer. "
                       "`ostrel permissions allow screenRecording` has it ask; so does a recording.\n"));
    }
}

TEST_F(ContextCommandTest, displaysWhosePlaceNobodyTells_areNotSaidToBeInTheCorner)
{
    m_displays.onShareableContent = [] {
        ShareableContent content;
        content.mainDisplayId = 7;
        content.displays.append({.displayId = 7, .width = 64, .height = 36, .bounds = {}});
        return Result<ShareableContent>(content);
    };
    const auto displays = [this](const QStringList &options) {
        return m_samples.sync([&] { return run(QStringList(text("displays")) + options); }).output;
    };
    EXPECT_EQ(displays({}), text("Display 1 (main)    64x36 place unknown  id 7\n"));
    const auto listed = QJsonDocument::fromJson(displays({text("--json")}).toUtf8()).array();
    EXPECT_TRUE(listed[0].toObject()[text("bounds")].isNull());
}

TEST_F(ContextCommandTest, factThatTheDesktopCannotGive_isNamedWithItsReason)
{
    lackPointer();
    EXPECT_EQ(context().output, text("Active context:\n- App: Editor\n- Window: Notes\n"
                                     "pointer position: not available on this desktop, because nobody tells it\n"));
}

TEST_F(ContextCommandTest, json_listsUnavailableFacts)
{
    EXPECT_EQ(json().value(text("unavailable")), QJsonArray());
    lackPointer();
    const QJsonObject expected = {
        {text("appContextText"), text("Active context:\n- App: Editor\n- Window: Notes")},
        {text("activeDisplay"), QJsonValue::Null},
        {text("unavailable"),
         QJsonArray{QJsonObject{{text("fact"), text("pointer position")}, {text("reason"), text("nobody tells it")}}}}};
    EXPECT_EQ(json(), expected);
}

TEST_F(ContextCommandTest, withoutTheGrant_messageSaysHowToGetIt)
{
    m_contextAccessibility.onIsTrusted = [] { return false; };
    const auto outcome = context();
    EXPECT_EQ(outcome.output, text("Editor\nActive display: Display 1 (main), by the mouse\n"));
    EXPECT_THAT(outcome.messages.toStdString(), testing::HasSubstr("ostrel permissions allow recordingContext"));
}

} // namespace
} // namespace ostrel
