#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/Printers.h"
#include "support/RunTask.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gmock/gmock.h>

using namespace ostrel;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

/// The commands that need no desktop.
class CommandsWithoutDisplay : public testing::Test
{
protected:
    CommandsWithoutDisplay() : m_ostrel(makeEnvironment(m_home)) {}

    static QProcessEnvironment makeEnvironment(const QTemporaryDir &home)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char *variable : {"DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "MORAVEL_REPO_ROOT"})
            environment.remove(QString::fromLatin1(variable));
        environment.insert(QStringLiteral("HOME"), home.path());
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), home.path());
        return environment;
    }

    void writeJournal(const QString &name, const QByteArray &text)
    {
        ASSERT_TRUE(writeFileAtomically(m_ostrel.path(QStringLiteral("ostrel/journal/") + name), text).has_value());
    }

    QTemporaryDir m_home;
    OstrelProgram m_ostrel;
};

TEST_F(CommandsWithoutDisplay, version_isPrinted)
{
    const auto outcome = m_ostrel.run(words("--version"));
    EXPECT_EQ(outcome.output, QByteArray("ostrel 0.1.0\n"));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(CommandsWithoutDisplay, panelOnADisplayThatIsNotThere_saysSoInOneLine)
{
    m_ostrel.environment().insert(QStringLiteral("DISPLAY"), QStringLiteral(":64999"));
    const auto outcome = m_ostrel.run({});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages,
              QByteArray("ostrel: No X display can be reached (DISPLAY is \":64999\"). Start this in a "
                         "graphical session, or set DISPLAY to a display that you may use.\n"));
    EXPECT_EQ(outcome.output, QByteArray());
}

TEST_F(CommandsWithoutDisplay, version_isTheBundles)
{
    const auto info = readFile(QStringLiteral(OSTREL_BUILD_DIR "/share/ostrel/Info.json"));
    ASSERT_TRUE(info.has_value());
    const QJsonObject bundle = QJsonDocument::fromJson(*info).object();
    const QString version = bundle.value(QStringLiteral("CFBundleShortVersionString")).toString();
    EXPECT_EQ(m_ostrel.run(words("--version")).output, "ostrel " + version.toUtf8() + '\n');
}

TEST_F(CommandsWithoutDisplay, updateCheckOfABuildWithoutAFeed_saysSo)
{
    const auto outcome = m_ostrel.run(words("update check"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, QByteArray());
    EXPECT_THAT(outcome.messages.toStdString(),
                HasSubstr("This build does not look for updates: it has no update feed."));
}

TEST_F(CommandsWithoutDisplay, everyCommand_hasHelp)
{
    for (const char *command :
         {"record", "journal", "displays", "context", "permissions", "settings", "status", "doctor", "update"}) {
        const auto outcome = m_ostrel.run({QString::fromLatin1(command), QStringLiteral("--help")});
        EXPECT_EQ(outcome.status, 0) << command;
        EXPECT_THAT(outcome.output.toStdString(), HasSubstr(command));
        EXPECT_EQ(outcome.messages, QByteArray()) << command;
    }
}

TEST_F(CommandsWithoutDisplay, outputThatCannotBeWritten_isStatus1AndSaysWhy)
{
    QProcess process;
    process.setProcessEnvironment(m_ostrel.environment());
    process.setStandardOutputFile(QStringLiteral("/dev/full"));
    process.start(OstrelProgram::file(), words("settings show"), QIODevice::ReadOnly);
    ASSERT_TRUE(process.waitForFinished());
    EXPECT_EQ(process.exitCode(), 1);
    EXPECT_EQ(process.readAllStandardError(), QByteArray("ostrel: The disk that holds \"standard output\" is full.\n"));
}

TEST_F(CommandsWithoutDisplay, wrongUsage_isStatus2WithOneMessage)
{
    for (const char *line :
         {"nonsense", "record --nonsense", "record --help-all", "record --seconds x", "record --seconds 0",
          "record more", "journal --limit x", "journal --day yesterday", "permissions allow", "permissions allow x",
          "permissions grant fileAccess", "settings", "settings hide", "displays x"}) {
        const auto outcome = m_ostrel.run(words(line));
        EXPECT_EQ(outcome.status, 2) << line;
        EXPECT_EQ(outcome.output, QByteArray()) << line;
        EXPECT_THAT(outcome.messages.toStdString(), StartsWith("ostrel: ")) << line;
    }
}

TEST_F(CommandsWithoutDisplay, recordWithoutDisplay_saysWhatIsMissingAndHowToGetIt)
{
    for (const char *line : {"record", "displays", "context"}) {
        const auto outcome = m_ostrel.run(words(line));
        EXPECT_EQ(outcome.status, 1) << line;
        EXPECT_EQ(outcome.output, QByteArray()) << line;
        EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("no display")) << line;
        EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("--demo")) << line;
        EXPECT_EQ(outcome.messages.count('\n'), 1) << line;
    }
    EXPECT_FALSE(QFile::exists(m_ostrel.path(QStringLiteral(".ostrel/helper.log")))) << "no observer was started";
}

TEST_F(CommandsWithoutDisplay, recordOnAnUnreachableDisplay_namesIt)
{
    m_ostrel.environment().insert(QStringLiteral("DISPLAY"), QStringLiteral(":4711"));
    const auto outcome = m_ostrel.run(words("record"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr(":4711"));
    EXPECT_EQ(outcome.messages.count('\n'), 1);
}

TEST_F(CommandsWithoutDisplay, recordUnderWayland_saysThatItCannot)
{
    m_ostrel.environment().insert(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("wayland-0"));
    const auto outcome = m_ostrel.run(words("record"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("Wayland"));
}

TEST_F(CommandsWithoutDisplay, journal_isPrintedInTheFilesGrammarWithoutKeys)
{
    writeJournal(QStringLiteral("2026-11-20.md"), "# Friday\n\n## Session a\nstart_time: 2026-11-20T09:00:00+01:00\n\n"
                                                  "- [09:05] [Terminal] View: one <!-- key:1-1-0 -->\n");
    writeJournal(QStringLiteral("2026-11-21.md"), "## Session b\n- [13:07] plain words\n");
    EXPECT_EQ(m_ostrel.run(words("journal")).output,
              QByteArray("# 2026-11-21\n\n## Session b\n\n- [13:07] plain words\n"
                         "\n# 2026-11-20\n\n## Session a\n"
                         "start_time: 2026-11-20T09:00:00+01:00\n\n"
                         "- [09:05] [Terminal] View: one\n"));
    EXPECT_THAT(m_ostrel.run(words("journal --limit 1")).output.toStdString(), testing::Not(HasSubstr("11-20")));
    EXPECT_THAT(m_ostrel.run(words("journal --day 2026-11-20")).output.toStdString(), StartsWith("# 2026-11-20"));
}

TEST_F(CommandsWithoutDisplay, journalOfAnUnknownDay_isAnEmptyAnswer)
{
    const auto outcome = m_ostrel.run(words("journal --day 2020-01-01"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, QByteArray());
    EXPECT_EQ(m_ostrel.json(words("journal --day 2020-01-01")).array(), QJsonArray());
}

TEST_F(CommandsWithoutDisplay, journalAsJson_hasTheDocumentedShape)
{
    writeJournal(QStringLiteral("2026-11-21.md"),
                 "## Session b\nstart_time: t\n- [13:07] [Terminal] Action: built it <!-- key:1 -->\n- [x] words\n");
    const QJsonObject day = m_ostrel.json(words("journal")).array().at(0).toObject();
    EXPECT_EQ(day.value(QStringLiteral("id")), QStringLiteral("2026-11-21"));
    EXPECT_EQ(day.value(QStringLiteral("dateKey")), QStringLiteral("2026-11-21"));
    const QJsonObject session = day.value(QStringLiteral("sessions")).toArray().at(0).toObject();
    EXPECT_EQ(session.value(QStringLiteral("startTime")), QStringLiteral("t"));
    const QJsonArray entries = session.value(QStringLiteral("entries")).toArray();
    const QJsonObject expected{{QStringLiteral("id"), QStringLiteral("b:13:07:[Terminal] Action: built it")},
                               {QStringLiteral("time"), QStringLiteral("13:07")},
                               {QStringLiteral("text"), QStringLiteral("[Terminal] Action: built it")},
                               {QStringLiteral("displayTime"), QStringLiteral("1:07 PM")},
                               {QStringLiteral("workspace"), QStringLiteral("Terminal")},
                               {QStringLiteral("action"), QStringLiteral("built it")}};
    EXPECT_EQ(entries.at(0).toObject(), expected);
    EXPECT_TRUE(entries.at(1).toObject().value(QStringLiteral("workspace")).isNull());
}

TEST_F(CommandsWithoutDisplay, settings_areShownWithSecretsRedacted)
{
    m_ostrel.writeSettings("\"byokGoogleVertexApiKey\": \" abc\\n\"", 9001);
    const QJsonObject shown = m_ostrel.json(words("settings show")).object();
    EXPECT_EQ(shown.size(), 23);
    EXPECT_EQ(shown.value(QStringLiteral("localPort")).toInteger(), 9001);
    EXPECT_EQ(shown.value(QStringLiteral("byokGoogleVertexApiKey")), QStringLiteral("<redacted>"));
    EXPECT_EQ(shown.value(QStringLiteral("analysisApiToken")), QString());
    const auto file = readFile(m_ostrel.path(QStringLiteral(".ostrel/settings.json")));
    EXPECT_THAT(file.value().toStdString(), testing::Not(HasSubstr("abc"))) << "it has moved to the secret store";
}

TEST_F(CommandsWithoutDisplay, settingsOfTheWrongType_fallBackToTheDefaults)
{
    m_ostrel.writeSettings("\"chunkSizeMs\": \"soon\"", 9001);
    const auto outcome = m_ostrel.run(words("settings show --json"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("settings.json is left aside: "));
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("chunkSizeMs"));
    EXPECT_EQ(outcome.messages.count('\n'), 1);
    const QJsonObject shown = QJsonDocument::fromJson(outcome.output).object();
    EXPECT_EQ(shown.value(QStringLiteral("localPort")).toInteger(), 8799);
    EXPECT_EQ(shown.value(QStringLiteral("chunkSizeMs")).toInteger(), 20000);
    EXPECT_THAT(readFile(m_ostrel.path(QStringLiteral(".ostrel/settings.json"))).value().toStdString(),
                HasSubstr("soon"))
        << "the file stays as it was";
}

TEST_F(CommandsWithoutDisplay, permissions_areThreeRows)
{
    const QJsonArray rows = m_ostrel.json(words("permissions")).array();
    ASSERT_EQ(rows.size(), 3);
    const QJsonObject first{{QStringLiteral("kind"), QStringLiteral("screenRecording")},
                            {QStringLiteral("title"), QStringLiteral("Screen Recording")},
                            {QStringLiteral("detail"), QStringLiteral("Needed to analyze your screen")},
                            {QStringLiteral("requirement"), QStringLiteral("required")},
                            {QStringLiteral("granted"), false}};
    EXPECT_EQ(rows.at(0).toObject(), first);
    EXPECT_EQ(rows.at(1).toObject().value(QStringLiteral("granted")), true);
    EXPECT_EQ(rows.at(2).toObject().value(QStringLiteral("requirement")), QStringLiteral("recommended"));
}

/// The commands that look at a desktop.
class CommandsOnADesktop : public testing::Test
{
protected:
    VirtualDesktop m_desktop{{.size = {1280, 800}, .windowManager = true}};
    OstrelProgram m_ostrel{m_desktop.environment()};
};

TEST_F(CommandsOnADesktop, displays_areOrderedAndLabelled)
{
    m_desktop.setMonitors(
        {{.name = QStringLiteral("B"), .pixels = {640, 0, 640, 800}},
         {.name = QStringLiteral("A"), .pixels = {0, 0, 640, 800}, .primary = true, .hasConnector = true}});
    const QJsonArray displays = m_ostrel.json(words("displays")).array();
    ASSERT_EQ(displays.size(), 2);
    EXPECT_EQ(displays.at(0).toObject().value(QStringLiteral("displayLabel")), QStringLiteral("Display 1 (main)"));
    EXPECT_EQ(displays.at(0).toObject().value(QStringLiteral("main")), true);
    EXPECT_EQ(displays.at(1).toObject().value(QStringLiteral("displayLabel")), QStringLiteral("Display 2"));
    const QJsonObject bounds = displays.at(1).toObject().value(QStringLiteral("bounds")).toObject();
    EXPECT_EQ(bounds.value(QStringLiteral("x")).toDouble(), 640);
    EXPECT_THAT(m_ostrel.run(words("displays")).output.toStdString(), HasSubstr("640x800 at 640,0"));
}

TEST_F(CommandsOnADesktop, context_withoutTheGrant_isTheNameAlone)
{
    m_desktop.startTerminal(QStringLiteral("Secret plans"));
    const auto outcome = m_ostrel.run(words("context"));
    EXPECT_THAT(outcome.output.toStdString(), StartsWith("XTerm\n"));
    EXPECT_THAT(outcome.output.toStdString(), testing::Not(HasSubstr("Secret plans")));
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("permissions allow recordingContext"));
}

TEST_F(CommandsOnADesktop, context_afterTheGrant_namesTheWindow)
{
    m_ostrel.environment().insert(QStringLiteral("GSETTINGS_BACKEND"), QStringLiteral("memory"));
    m_desktop.startTerminal(QStringLiteral("Release checklist"));
    EXPECT_EQ(m_ostrel.run(words("permissions allow recordingContext")).status, 0);
    const QJsonObject context = m_ostrel.json(words("context")).object();
    EXPECT_EQ(context.value(QStringLiteral("appContextText")),
              QStringLiteral("Active context:\n- App: XTerm\n- Window: Release checklist"));
    EXPECT_EQ(context.value(QStringLiteral("activeDisplay")).toObject().value(QStringLiteral("reason")),
              QStringLiteral("focusedWindow"));
}

TEST_F(CommandsOnADesktop, permissions_grantedAlready_opensWhatTellsOfThem)
{
    m_ostrel.environment().insert(QStringLiteral("GSETTINGS_BACKEND"), QStringLiteral("memory"));
    m_ostrel.environment().insert(QStringLiteral("XDG_CURRENT_DESKTOP"), QStringLiteral("none of them"));
    const QTemporaryDir folder;
    const QString program = folder.filePath(QStringLiteral("xdg-open"));
    const QString notes = folder.filePath(QStringLiteral("notes"));
    const QByteArray script =
        "#!/bin/sh\necho \"$*\" >" + notes.toUtf8() + ".new\nmv " + notes.toUtf8() + ".new " + notes.toUtf8() + "\n";
    ASSERT_TRUE(writeFileAtomically(program, script));
    ASSERT_TRUE(QFile::setPermissions(program, QFile::ReadOwner | QFile::ExeOwner));
    m_ostrel.environment().insert(QStringLiteral("PATH"),
                                  folder.path() + u':' + m_ostrel.environment().value(QStringLiteral("PATH")));
    EXPECT_EQ(m_ostrel.run(words("permissions allow recordingContext")).status, 0);
    EXPECT_EQ(m_ostrel.run(words("permissions allow recordingContext")).status, 0);
    ASSERT_TRUE(pumpUntil([&notes] { return QFileInfo::exists(notes); }));
    const QByteArray page = readFile(notes).value_or(QByteArray()).trimmed();
    EXPECT_THAT(page.toStdString(), testing::EndsWith("/share/ostrel/doc/permissions.html"));
    EXPECT_TRUE(QFileInfo(QString::fromUtf8(page)).isFile());
}

} // namespace
