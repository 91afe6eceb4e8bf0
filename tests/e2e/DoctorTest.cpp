#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/Printers.h"
#include "support/StrangersListener.h"
#include "support/TestHome.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gmock/gmock.h>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

const QStringList doctor{QStringLiteral("doctor")};

struct Examination {
    int status = -1;
    QJsonArray rows;
    std::chrono::milliseconds duration{};

    QJsonObject row(const char *check) const
    {
        for (const QJsonValue &row : rows) {
            if (row.toObject().value(QStringLiteral("check")) == QLatin1String(check))
                return row.toObject();
        }
        ADD_FAILURE() << "there is no check " << check;
        return {};
    }
    bool isOk(const char *check) const { return row(check).value(QStringLiteral("ok")).toBool(); }
    std::string detail(const char *check) const { return text(check, "detail"); }
    std::string fix(const char *check) const { return text(check, "fix"); }

private:
    std::string text(const char *check, const char *key) const
    {
        return row(check).value(QLatin1String(key)).toString().toStdString();
    }
};

Examination examine(const OstrelProgram &ostrel)
{
    QElapsedTimer clock;
    clock.start();
    const auto outcome = ostrel.run(doctor + QStringList(QStringLiteral("--json")));
    EXPECT_EQ(outcome.messages, QByteArray());
    return {.status = outcome.status,
            .rows = QJsonDocument::fromJson(outcome.output).array(),
            .duration = std::chrono::milliseconds(clock.elapsed())};
}

QStringList everythingBelow(const QString &folder)
{
    QStringList paths;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        paths.append(it.next());
    paths.sort();
    return paths;
}

class Doctor : public testing::Test
{
protected:
    /// A whole desktop: window manager, bus and accessibility, with consent.
    void startAccessibility()
    {
        m_desktop.startAccessibility();
        EXPECT_EQ(
            m_ostrel.run({QStringLiteral("permissions"), QStringLiteral("allow"), QStringLiteral("recordingContext")})
                .status,
            0);
    }

    /// All that a desktop which hangs may cost.
    static constexpr std::chrono::seconds longest{10};

    VirtualDesktop m_desktop{{.size = {1280, 800}, .windowManager = true}};
    OstrelProgram m_ostrel{m_desktop.environment()};
};

TEST_F(Doctor, wholeDesktop_isOkAndCanBeRecorded)
{
    startAccessibility();
    m_ostrel.writeSettings();
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 0);
    EXPECT_EQ(found.rows.size(), 24);
    for (const char *check : {"session",
                              "displays",
                              "pictures",
                              "sharedMemory",
                              "changeTracking",
                              "pointer",
                              "monitors",
                              "frontWindow",
                              "windowFacts",
                              "sessionBus",
                              "accessibilityService",
                              "accessibilityGrant",
                              "browserTabs",
                              "observerProgram",
                              "node",
                              "settingsFile",
                              "privacy",
                              "secretFile",
                              "journalFolder",
                              "stateFolder",
                              "port",
                              "recorder"}) {
        EXPECT_TRUE(found.isOk(check)) << check << ": " << found.detail(check);
        EXPECT_TRUE(found.row(check).value(QStringLiteral("fix")).isNull()) << check;
    }
    EXPECT_THAT(found.detail("displays"), HasSubstr("1280x800 (main)"));
    EXPECT_THAT(found.detail("frontWindow"), HasSubstr("Openbox"));
}

TEST_F(Doctor, anyDesktop_isLeftAsItWas)
{
    m_ostrel.writeSettings("\"byokGoogleVertexApiKey\": \"abc\"");
    const QString settings = m_ostrel.path(QStringLiteral(".ostrel/settings.json"));
    const QByteArray before = readFile(settings).value();
    const QStringList files = everythingBelow(m_ostrel.home());
    examine(m_ostrel);
    EXPECT_EQ(everythingBelow(m_ostrel.home()), files);
    EXPECT_EQ(readFile(settings).value(), before);
    const QByteArray names = m_desktop.run(QStringLiteral("dbus-send"),
                                           {QStringLiteral("--session"), QStringLiteral("--dest=org.freedesktop.DBus"),
                                            QStringLiteral("--print-reply"), QStringLiteral("/org/freedesktop/DBus"),
                                            QStringLiteral("org.freedesktop.DBus.ListNames")});
    EXPECT_FALSE(names.contains("org.a11y.Bus")) << "to ask for consent would have started it";
    EXPECT_FALSE(names.contains("org.freedesktop.secrets"));
}

TEST_F(Doctor, programsFolderOfAnotherUser_blocksThoughTheObserversCanBeWritten)
{
    ASSERT_EQ(::geteuid(), 0U) << "only root can be another user for a test";
    const QTemporaryDir home;
    const QString observers = home.filePath(QStringLiteral(".ostrel/observer"));
    ASSERT_TRUE(QDir().mkpath(observers));
    for (const QString &folder : {home.path(), home.filePath(QStringLiteral(".ostrel"))})
        ASSERT_EQ(::chmod(QFile::encodeName(folder).constData(), 0755), 0);
    ASSERT_EQ(::chown(QFile::encodeName(observers).constData(), unprivilegedUser, unprivilegedUser), 0);

    QProcess process;
    m_ostrel.environment().insert(QStringLiteral("HOME"), home.path());
    process.setProcessEnvironment(m_ostrel.environment());
    const QString user = QString::number(unprivilegedUser);
    process.start(QStringLiteral("setpriv"), {QStringLiteral("--reuid"), user, QStringLiteral("--clear-groups"),
                                              OstrelProgram::file(), doctor[0], QStringLiteral("--json")});
    ASSERT_TRUE(process.waitForFinished());
    const Examination found{.status = process.exitCode(),
                            .rows = QJsonDocument::fromJson(process.readAllStandardOutput()).array()};
    EXPECT_EQ(found.status, 1);
    EXPECT_FALSE(found.isOk("stateFolder"));
    EXPECT_THAT(found.detail("stateFolder"), HasSubstr("~/.ostrel cannot be written"));
    EXPECT_EQ(found.fix("stateFolder"), "sudo chown -R \"$USER\" ~/.ostrel");
}

TEST_F(Doctor, noDisplay_blocksAndTheRestIsStillTold)
{
    m_ostrel.environment().remove(QStringLiteral("DISPLAY"));
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 1);
    EXPECT_FALSE(found.isOk("session"));
    EXPECT_EQ(found.detail("pictures"), "not tried without a display");
    EXPECT_TRUE(found.isOk("sessionBus"));
    EXPECT_TRUE(found.isOk("node"));
}

TEST_F(Doctor, wayland_isNamedAndNothingOfItsTranslationLayerIsPraised)
{
    m_ostrel.environment().insert(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("wayland-0"));
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 1);
    EXPECT_THAT(found.detail("session"), HasSubstr("Wayland"));
    EXPECT_FALSE(found.isOk("displays"));
}

TEST_F(Doctor, displayThatIsNotThere_isNamed)
{
    m_ostrel.environment().insert(QStringLiteral("DISPLAY"), QStringLiteral(":4711"));
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 1);
    EXPECT_THAT(found.detail("session"), HasSubstr(":4711"));
}

TEST_F(Doctor, windowManagerThatHasGone_isMissed)
{
    m_desktop.windowManager().kill();
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 0);
    EXPECT_THAT(found.detail("frontWindow"), HasSubstr("no window manager"));
    EXPECT_THAT(found.fix("frontWindow"), HasSubstr("openbox"));
    EXPECT_TRUE(found.isOk("pictures"));
}

TEST(DoctorWithoutWindowManager, factsOfTheWindowInFront_areSaidToBeUnavailableAndWhy)
{
    const VirtualDesktop desktop({});
    const OstrelProgram ostrel(desktop.environment());
    EXPECT_EQ(examine(ostrel).detail("windowFacts"),
              "foreground application, window title and window position: not available on this desktop, because no "
              "window manager says which window is active");
}

TEST_F(Doctor, noBus_isMissedAndNoneIsStarted)
{
    m_ostrel.environment().remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    m_ostrel.environment().insert(QStringLiteral("XDG_RUNTIME_DIR"), m_desktop.path(QStringLiteral("cache")));
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 0);
    EXPECT_EQ(found.detail("sessionBus"), "there is none: no window titles, no keyring");
    EXPECT_EQ(found.fix("sessionBus"), "dbus-run-session -- ostrel record");
    EXPECT_FALSE(found.isOk("keyring"));
}

TEST_F(Doctor, addressThatLeadsNowhere_isToldFromNone)
{
    m_ostrel.environment().insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                                  QStringLiteral("unix:path=/nowhere/at/all"));
    EXPECT_THAT(examine(m_ostrel).detail("sessionBus"), HasSubstr("nobody answers at its address"));
}

TEST_F(Doctor, consentNotGiven_namesTheCommand)
{
    m_desktop.startAccessibility();
    const Examination found = examine(m_ostrel);
    EXPECT_TRUE(found.isOk("accessibilityService"));
    EXPECT_FALSE(found.isOk("accessibilityGrant"));
    EXPECT_EQ(found.fix("accessibilityGrant"), "ostrel permissions allow recordingContext");
}

TEST_F(Doctor, accessibilityThatHangs_isMissed)
{
    TestProcess &launcher = m_desktop.startAccessibility();
    launcher.freeze();
    const Examination found = examine(m_ostrel);
    launcher.thaw();
    EXPECT_THAT(found.detail("accessibilityService"), HasSubstr("does not answer"));
    EXPECT_LT(found.duration, longest);
}

TEST_F(Doctor, busAndServerThatHang_costABoundedTimeAndHideNothing)
{
    m_desktop.server().freeze();
    m_desktop.bus().freeze();
    const Examination found = examine(m_ostrel);
    m_desktop.server().thaw();
    m_desktop.bus().thaw();
    EXPECT_EQ(found.status, 1);
    EXPECT_LT(found.duration, longest);
    EXPECT_THAT(found.detail("session"), HasSubstr("does not answer"));
    EXPECT_THAT(found.detail("sessionBus"), HasSubstr("does not answer"));
    EXPECT_TRUE(found.isOk("node"));
    EXPECT_TRUE(found.isOk("journalFolder"));
}

TEST_F(Doctor, serverWithoutExtensions_tellsWhatTheyCost)
{
    VirtualDesktop bare(
        {.size = {640, 400},
         .sessionBus = false,
         .serverArguments = {QStringLiteral("-extension"), QStringLiteral("MIT-SHM"), QStringLiteral("-extension"),
                             QStringLiteral("DAMAGE"), QStringLiteral("-extension"), QStringLiteral("RANDR")}});
    OstrelProgram ostrel{bare.environment()};
    const Examination found = examine(ostrel);
    EXPECT_EQ(found.status, 0) << "slower, and recordable all the same";
    EXPECT_TRUE(found.isOk("pictures")) << found.detail("pictures");
    for (const char *check : {"sharedMemory", "changeTracking", "monitors"})
        EXPECT_THAT(found.detail(check), HasSubstr("the X server has no ")) << check;
}

TEST_F(Doctor, screenThatCannotBeRecorded_blocks)
{
    VirtualDesktop sixteen({.size = {640, 400}, .depth = 16, .sessionBus = false});
    OstrelProgram ostrel{sixteen.environment()};
    const Examination found = examine(ostrel);
    EXPECT_EQ(found.status, 1);
    EXPECT_TRUE(found.isOk("session"));
    EXPECT_THAT(found.detail("pictures"), HasSubstr("colour depth of 24"));
}

TEST_F(Doctor, portOfAnotherUser_blocksWithACommandThatMovesOurs)
{
    ASSERT_EQ(::geteuid(), 0U) << "only root can be another user for a test";
    StrangersListener stranger;
    m_ostrel.writeSettings({}, stranger.port());
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 1);
    EXPECT_THAT(found.detail("port"), HasSubstr("of the user nobody"));
    EXPECT_THAT(found.fix("port"), HasSubstr("ostrel settings set localPort "));
    EXPECT_EQ(stranger.finish(), 0);
}

TEST_F(Doctor, nodeNotOnThePath_blocksAndNamesThePackage)
{
    ASSERT_FALSE(QFile::exists(QStringLiteral("/usr/local/bin/node"))) << "where the observer always looks";
    m_ostrel.environment().insert(QStringLiteral("PATH"), m_ostrel.home());
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 1);
    EXPECT_THAT(found.detail("node"), HasSubstr("not found"));
    EXPECT_THAT(found.fix("node"), HasSubstr("nodejs"));
}

TEST_F(Doctor, observerElsewhere_blocksAndNamesTheVariable)
{
    m_ostrel.environment().insert(QStringLiteral("MORAVEL_REPO_ROOT"), m_ostrel.home());
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 1);
    EXPECT_EQ(found.fix("observerProgram"), "unset MORAVEL_REPO_ROOT");
}

TEST_F(Doctor, journalFolderThatCannotBeWritten_isMissedAndDoesNotBlock)
{
    m_ostrel.writeSettings("\"outputDirectory\": \"/proc/journal\"");
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 0);
    EXPECT_THAT(found.detail("journalFolder"), HasSubstr("/proc/journal cannot be written"));
    EXPECT_EQ(found.fix("journalFolder"), "ostrel settings set outputDirectory ~/ostrel/journal");
}

TEST_F(Doctor, settingsThatCannotBeRead_sayTheComplaint)
{
    m_ostrel.writeSettings("\"chunkSizeMs\": \"soon\"");
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 0);
    EXPECT_THAT(found.detail("settingsFile"), HasSubstr("chunkSizeMs"));
    EXPECT_THAT(found.fix("settingsFile"), HasSubstr("~/.ostrel/settings.json"));
}

TEST_F(Doctor, privacyRulesInPartUnusable_areMissedAndTheFileIsNamed)
{
    ASSERT_TRUE(writeFileAtomically(m_ostrel.path(QStringLiteral(".ostrel/privacy.json")),
                                    R"({"excludedTitlePatterns": ["("]})")
                    .has_value());
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 0);
    EXPECT_FALSE(found.isOk("privacy"));
    EXPECT_THAT(found.detail("privacy"), HasSubstr("\"(\" of excludedTitlePatterns"));
    EXPECT_THAT(found.fix("privacy"), HasSubstr("~/.ostrel/privacy.json"));
}

TEST_F(Doctor, duringARecording_tellsItsProcessAndThatTheObserverAnswers)
{
    m_ostrel.writeSettings();
    m_ostrel.start({QStringLiteral("record")});
    m_ostrel.waitForMessage("Recording into");
    const Examination found = examine(m_ostrel);
    EXPECT_EQ(found.status, 0);
    EXPECT_THAT(found.detail("port"), HasSubstr("the observer answers"));
    EXPECT_THAT(found.detail("recorder"), HasSubstr("has been recording since"));
    EXPECT_TRUE(found.isOk("secretFile")) << found.detail("secretFile");
    m_ostrel.terminate();
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);
}

TEST_F(Doctor, text_endsWithWhatItMeans)
{
    const auto outcome = m_ostrel.run(doctor);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.output.startsWith("ok       session           X11, display :")) << outcome.output.toStdString();
    EXPECT_THAT(outcome.output.toStdString(), HasSubstr("\n\nRecording is possible"));
}

} // namespace
