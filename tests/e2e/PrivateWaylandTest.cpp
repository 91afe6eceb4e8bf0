#include "../desktop/atspi/FakeProgram.h"
#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/SessionBus.h"
#include "support/WaylandDesktop.h"

#include <QJsonObject>

#include <gmock/gmock.h>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

// As the accessibility bus numbers them.
constexpr quint32 applicationRole = 75;
constexpr quint32 frameRole = 23;
constexpr int activeState = 1;

/// A Wayland session that doesn't tell others which windows there are, as most don't: programs say themselves which of
/// theirs is in front. Windows with "salary" in their title are private.
class SecretiveCompositor : public testing::Test
{
protected:
    SecretiveCompositor()
    {
        m_environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QString::fromLatin1(m_bus.address()));
        m_environment.insert(QStringLiteral("GSETTINGS_BACKEND"), QStringLiteral("memory"));
        m_ostrel.environment() = m_environment;
        m_ostrel.environment().remove(QStringLiteral("SWAYSOCK"));
        m_ostrel.writeSettings(QByteArray("\"frameFps\": 10, \"chunkSizeMs\": 500, ") + OstrelProgram::keepAnalysed);
        m_ostrel.tellOfCapture();
        writeFile(QStringLiteral(".ostrel/privacy.json"), R"({"excludedTitlePatterns": ["salary"]})");
        m_accessibility =
            start(QStringLiteral("/usr/libexec/at-spi-bus-launcher"), {QStringLiteral("--launch-immediately")});
        waitUntil(QStringLiteral("the consent"), 20s, [this] {
            return m_ostrel
                       .run(
                           {QStringLiteral("permissions"), QStringLiteral("allow"), QStringLiteral("recordingContext")})
                       .status == 0;
        });
        m_program = std::make_unique<FakeProgram>();
    }

    void writeFile(const QString &name, const QByteArray &bytes) const
    {
        if (!writeFileAtomically(m_ostrel.path(name), bytes))
            failTest(QStringLiteral("\"%1\" could not be written").arg(name));
    }

    std::unique_ptr<TestProcess> start(const QString &program, const QStringList &arguments) const
    {
        return std::make_unique<TestProcess>(TestProcess::Command{.program = program,
                                                                  .arguments = arguments,
                                                                  .environment = m_environment,
                                                                  .logFile = m_screens.path(QStringLiteral("log"))});
    }

    /// The program in front shows a window of that title.
    void show(const char *title)
    {
        m_program->set("root", {.role = applicationRole, .name = QStringLiteral("editor"), .children = {"window"}});
        m_program->set("window", {.role = frameRole, .name = QString::fromUtf8(title), .states = {activeState}});
    }

    std::string contextText() const
    {
        return m_ostrel.json({QStringLiteral("context")})
            .object()[QStringLiteral("appContextText")]
            .toString()
            .toStdString();
    }

    SessionBus m_bus; ///< before the screens: theirs is the runtime folder
    WaylandDesktop m_screens{{{.pixels = {640, 400}, .corner = {0, 0}}}};
    QProcessEnvironment m_environment = m_screens.environment();
    OstrelProgram m_ostrel{m_environment};
    std::unique_ptr<TestProcess> m_accessibility;
    std::unique_ptr<FakeProgram> m_program;
};

TEST_F(SecretiveCompositor, privateWindowInFront_keepsPicturesAwayAndItsTitleOutOfTheTextUntilItHasGone)
{
    show("salary of everybody.txt");
    EXPECT_THAT(contextText(), AllOf(HasSubstr("editor"), Not(HasSubstr("salary"))));
    m_ostrel.start({QStringLiteral("record")});
    m_ostrel.waitForMessage("screen capture takes no picture while a private window is in front");
    m_screens.startTerminal(QStringLiteral("work"), QStringLiteral("Work"), "20a040"); // there would be a new picture
    m_ostrel.waitForMessage("screen capture flush empty", 3);
    EXPECT_EQ(m_ostrel.spooled(), QStringList());

    show("minutes.txt");
    m_ostrel.waitForMessage("screen capture submitting frames=");
    EXPECT_THAT(contextText(), HasSubstr("minutes.txt"));
    m_ostrel.terminate();
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("jpegFailed=0"));
    EXPECT_EQ(m_ostrel.analysedFrames().size(), OstrelProgram::framesHandedOver(outcome.messages));
    EXPECT_THAT(m_ostrel.journal().toStdString(), Not(HasSubstr("salary")));
    m_ostrel.expectNoObserverStays();
}

} // namespace
