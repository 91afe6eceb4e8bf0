#include "SettingsSetFixture.h"

#include "app/RecorderLock.h"
#include "app/StandardInput.h"
#include "observer/SettingRules.h"

#include <QDir>

#include <gmock/gmock.h>

#include <csignal>
#include <vector>

#include <sys/resource.h>

using namespace ostrel;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

using Outcome = SettingAnswer::Outcome;

TEST_F(SettingsSet, unknownKey_namesTheNearestAndHowToListThem)
{
    for (const auto &[mistyped, nearest] : {std::pair("frameFPS", "frameFps"), std::pair("port", "localPort"),
                                            std::pair("outputDir", "outputDirectory"), std::pair("", "model")}) {
        const auto outcome = set(mistyped, "1");
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.messages.toStdString(),
                    AllOf(HasSubstr("There is no setting \"" + std::string(mistyped) + "\""), HasSubstr(nearest),
                          HasSubstr("`ostrel settings show` lists them all")));
    }
    EXPECT_EQ(file(), QByteArray("no file"));
}

TEST_F(SettingsSet, unknownKey_isRepeatedShortAndWithoutWhatATerminalObeys)
{
    const auto escape = set("\x1b[2Jmodel\a\u2028\u202e", "1");
    EXPECT_EQ(escape.status, 2);
    EXPECT_THAT(escape.messages.toStdString(), HasSubstr(R"("\u{1b}[2Jmodel\u{7}\u{2028}\u{202e}")"));
    EXPECT_FALSE(escape.messages.contains(QChar(0x1b)));
    const auto endless = run(setWords(QString(100'000, u'x'), utf8("1")));
    EXPECT_THAT(endless.messages.toStdString(), HasSubstr('"' + std::string(60, 'x') + "...\""));
    EXPECT_LT(endless.messages.size(), 300);
    EXPECT_THAT(run(setWords(utf8("Größe😀"), utf8("1"))).messages.toStdString(), HasSubstr("\"Größe😀\""));
}

TEST_F(SettingsSet, keyAndValueInOneWord_sayHowItIsWrittenAndNeverRepeatTheValue)
{
    for (const auto &[word, words] :
         {std::pair("localPort=9001", "no \"=\": `ostrel settings set localPort VALUE`"),
          std::pair("analysisApiToken=9001", "`ostrel settings set analysisApiToken - < FILE`"),
          std::pair("analysisToken=9001=", "There is no setting \"analysisToken\"; the nearest is analysisApiToken")}) {
        const auto outcome = run({utf8("settings"), utf8("set"), utf8(word)});
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.messages.toStdString(), AllOf(HasSubstr(words), Not(HasSubstr("9001"))));
    }
    EXPECT_EQ(m_secrets.calls(), QStringList());
}

TEST_F(SettingsSet, argumentThatIsNoText_isStatus2AndTheFileIsAsItWas)
{
    const QByteArray before = R"({"model": "kept"})";
    writeFile(before);
    const auto broken = run(setWords(utf8("model"), QString::fromLocal8Bit("a\xff")));
    EXPECT_EQ(broken.status, 2);
    EXPECT_THAT(broken.messages.toStdString(), HasSubstr("The value of model is not valid UTF-8"));
    const auto tooLong = run(setWords(utf8("instructions"), QString(longestInput / 2 + 1, QChar(0xe4))));
    EXPECT_EQ(tooLong.status, 2);
    EXPECT_THAT(tooLong.messages.toStdString(), HasSubstr("more than the 65536 bytes"));
    EXPECT_EQ(file(), before);
    EXPECT_EQ(run(setWords(utf8("instructions"), QString(longestInput / 2, QChar(0xe4)))).status, 0);
}

TEST_F(SettingsSet, wordsMissingOrTooMany_areStatus2)
{
    EXPECT_EQ(run({utf8("settings"), utf8("set")}).status, 2);
    const auto noValue = run({utf8("settings"), utf8("set"), utf8("localPort")});
    EXPECT_EQ(noValue.status, 2);
    EXPECT_THAT(noValue.messages.toStdString(), HasSubstr("localPort takes a whole number from 1 to 65535"));
    EXPECT_EQ(run({utf8("settings"), utf8("set"), utf8("model"), utf8("a"), utf8("b")}).status, 2);
    EXPECT_EQ(run({utf8("settings"), utf8("show"), utf8("model")}).status, 2);
    EXPECT_EQ(file(), QByteArray("no file"));
}

TEST_F(SettingsSet, valueThatLooksLikeAnOption_isAValueUnlessItAsksForHelp)
{
    EXPECT_EQ(set("instructions", "--be brief").status, 0);
    EXPECT_EQ(saved().instructions, utf8("--be brief"));
    EXPECT_EQ(set("model", "--json").status, 0);
    EXPECT_EQ(saved().model, utf8("--json"));
    const auto help = set("model", "--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output.toStdString(), HasSubstr("Usage"));
    EXPECT_EQ(run({utf8("settings"), utf8("set"), utf8("model"), utf8("--"), utf8("--help")}).status, 0);
    EXPECT_EQ(saved().model, utf8("--help"));
}

TEST_F(SettingsSet, textOfSeveralLines_comesFromStandardInputWithoutItsLastLineBreaks)
{
    EXPECT_EQ(setFromInput("instructions", "- one\n- zwölf\r\n\n").status, 0);
    EXPECT_EQ(saved().instructions, utf8("- one\n- zwölf"));
    EXPECT_EQ(setFromInput("localPort", "9001\n").status, 0);
    EXPECT_EQ(saved().localPort, 9001);
}

TEST_F(SettingsSet, inputThatIsNoText_isStatus2AndTheFileIsAsItWas)
{
    EXPECT_THAT(setFromInput("instructions", "\xff\xfe").messages.toStdString(), HasSubstr("no text in UTF-8"));
    EXPECT_EQ(setFromInput("instructions", "\xff\xfe").status, 2);
    const auto tooLong = setFromInput("instructions", QByteArray(longestInput + 1, 'x'));
    EXPECT_EQ(tooLong.status, 2);
    EXPECT_THAT(tooLong.messages.toStdString(), HasSubstr("65536 bytes"));
    EXPECT_EQ(setFromInput("instructions", QByteArray(longestInput, 'x')).status, 0);
    for (const char *key : {"instructions", "model", "outputDirectory"}) {
        const auto withNul = setFromInput(key, QByteArray("/\0b", 3));
        EXPECT_EQ(withNul.status, 2);
        EXPECT_THAT(withNul.messages.toStdString(),
                    HasSubstr(std::string(key) + " takes a text without NUL characters."));
    }
}

TEST_F(SettingsSet, secretFromStandardInput_isTrimmedIntoTheStoreAndNotIntoTheFile)
{
    const auto outcome = setFromInput("byokGoogleVertexApiKey", "  geheim\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, utf8("byokGoogleVertexApiKey is saved.\n"));
    EXPECT_EQ(vertexKey(), utf8("geheim"));
    EXPECT_FALSE(file().contains("geheim"));
}

TEST_F(SettingsSet, emptySecret_isRemovedAndSaidSo)
{
    m_secrets.put(vertexApiKeyService, utf8("old"));
    for (const char *nothing : {"", "\n", " \t\n"}) {
        const auto outcome = setFromInput("byokGoogleVertexApiKey", nothing);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.messages, utf8("byokGoogleVertexApiKey is removed.\n"));
        EXPECT_EQ(vertexKey(), std::nullopt);
    }
}

TEST_F(SettingsSet, secretThatCannotBeRemoved_isStatus1)
{
    m_secrets.put(vertexApiKeyService, utf8("old"));
    m_secrets.setFaults({.removals = true});
    const auto outcome = setFromInput("byokGoogleVertexApiKey", "");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("byokGoogleVertexApiKey could not be removed"));
}

TEST_F(SettingsSet, secretAsAnArgument_isRefusedWithTheWayAndNeverEchoed)
{
    const QString key = utf8("byokGoogleVertexApiKey");
    for (const QStringList &values : {QStringList{utf8("geheim")}, QStringList{utf8("-geheim")},
                                      QStringList{utf8("--geheim=x")}, QStringList{utf8("my"), utf8("geheim")},
                                      QStringList{utf8("-"), utf8("geheim")}, QStringList{utf8("<redacted>")}}) {
        const auto outcome = run(QStringList{utf8("settings"), utf8("set"), key} + values);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(
            outcome.messages.toStdString(),
            AllOf(HasSubstr("`ostrel settings set byokGoogleVertexApiKey - < FILE`"), Not(HasSubstr("geheim"))));
        EXPECT_EQ(outcome.output, QString());
    }
    EXPECT_EQ(m_secrets.calls(), QStringList());
}

TEST_F(SettingsSet, secretThatIsNone_isRefusedWithoutAnEcho)
{
    m_secrets.put(analysisApiTokenService, utf8("old"));
    const auto placeholder = setFromInput("analysisApiToken", " <redacted>\n");
    EXPECT_EQ(placeholder.status, 2);
    EXPECT_THAT(placeholder.messages.toStdString(), HasSubstr("\"<redacted>\" only stands for the secret"));
    const auto lines = setFromInput("analysisApiToken", "geheim\nzwei\n");
    EXPECT_EQ(lines.status, 2);
    EXPECT_THAT(lines.messages.toStdString(), Not(HasSubstr("geheim")));
    EXPECT_EQ(m_secrets.item(analysisApiTokenService), utf8("old"));
}

TEST_F(SettingsSet, otherKeyWhileTheStoreCannotBeRead_leavesTheSecretAlone)
{
    m_secrets.put(vertexApiKeyService, utf8("kept"));
    m_secrets.setFaults({.reads = true});
    EXPECT_EQ(set("localPort", "9001").status, 0);
    m_secrets.setFaults({});
    EXPECT_EQ(vertexKey(), utf8("kept"));
}

TEST_F(SettingsSet, legacyFileOnly_isTakenOverIntoThePrimaryOne)
{
    const QByteArray legacy = R"({"localPort": 9001, "outputDirectory": "~/Moravel/journal"})";
    ASSERT_TRUE(writeFileAtomically(SettingsStore::legacyFile(), legacy).has_value());
    EXPECT_EQ(set("frameFps", "1").status, 0);
    EXPECT_EQ(saved().localPort, 9001);
    EXPECT_EQ(saved().outputDirectory, utf8("~/ostrel/journal"));
    EXPECT_EQ(saved().frameFps, 1);
    EXPECT_EQ(readFile(SettingsStore::legacyFile()), legacy);
}

TEST_F(SettingsSet, damagedFile_isKeptBesideAndSaidSo)
{
    const QByteArray damaged = R"({"localPort": "soon")";
    writeFile(damaged);
    const auto outcome = set("frameFps", "1");
    EXPECT_EQ(outcome.status, 0);
    const QString keptAs = SettingsStore::primaryFile() + utf8(".damaged");
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("The old one is kept as \"" + keptAs.toStdString() + "\""));
    EXPECT_EQ(readFile(keptAs), damaged);
    EXPECT_EQ(saved().frameFps, 1);
    EXPECT_EQ(saved().localPort, 8799);
}

TEST_F(SettingsSet, fileThatCannotBeWritten_isStatus1WithTheFaultAndAsItWas)
{
    const QByteArray before = R"({"localPort": 9001})";
    writeFile(before);
    // A limit on the size of files is how a process meets a full disk without one. Only a child may have it.
    const int status = inForkedChild([this] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit nothing{.rlim_cur = 16, .rlim_max = 16};
        if (::setrlimit(RLIMIT_FSIZE, &nothing) != 0)
            return 100;
        const auto outcome = set("frameFps", "1");
        const bool named = outcome.messages.contains(QLatin1String("settings.json"));
        return outcome.status == 1 && named ? 0 : 101;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(file(), before);
    EXPECT_EQ(QDir(m_home.path(utf8(".ostrel"))).entryList(QDir::Files).filter(utf8("settings.json.")),
              QStringList{utf8("settings.json.lock")})
        << "no half-written file stays";
}

TEST_F(SettingsSet, folderOfAnotherUser_isStatus1WithTheFault)
{
    ASSERT_EQ(::geteuid(), 0U) << "only root can be another user for a test";
    ASSERT_EQ(::chmod(m_home.path().toLocal8Bit().constData(), 0755), 0);
    const int status = inForkedChild([this] {
        if (!dropPrivileges())
            return 100;
        const auto outcome = set("frameFps", "1");
        return outcome.status == 1 && outcome.messages.contains(QLatin1String("There is no permission to use")) ? 0
                                                                                                                : 101;
    });
    EXPECT_EQ(status, 0);
}

TEST_F(SettingsSet, manyCommandsAtTheSameTime_loseNothing)
{
    const std::vector<std::pair<const char *, const char *>> changes{
        {"localPort", "9001"},      {"frameFps", "1"},        {"chunkSizeMs", "5000"},
        {"chunkOverlapMs", "1"},    {"model", "m"},           {"thinkingLevel", "HIGH"},
        {"saveRawInputs", "true"},  {"journalTailSize", "9"}, {"outputDirectory", "/out"},
        {"maxOutputTokens", "2048"}};
    std::vector<pid_t> children;
    for (const auto &[key, value] : changes) {
        const pid_t child = ::fork();
        if (child == 0)
            ::_exit(set(key, value).status);
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    ObserverSettings expected = ObserverSettings::defaults();
    for (const auto &[key, value] : changes)
        ASSERT_TRUE(SettingRules::assign(expected, utf8(key), utf8(value)).has_value());
    EXPECT_EQ(saved().toPrettyJson(), expected.toPrettyJson());
}

/// While this process records, as far as the lock tells.
class SettingsSetWhileRecording : public SettingsSet
{
protected:
    SettingsSetWhileRecording() { writeFile(m_before); }

    const QByteArray m_before = R"({"localPort": 9001})";
    std::optional<RecorderLock> m_lock{RecorderLock::acquire().value()};
};

TEST_F(SettingsSetWhileRecording, change_goesThroughTheRecorderAlone)
{
    m_recorder.expect(SettingAnswer{.outcome = Outcome::AtOnce, .words = {}});
    const auto outcome = set("outputDirectory", "~/elsewhere");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, utf8("outputDirectory is saved.\n"));
    ASSERT_EQ(m_recorder.requests().size(), 1);
    const auto &request = m_recorder.requests()[0];
    EXPECT_EQ(request.processId, ::getpid());
    EXPECT_EQ(request.change.key, utf8("outputDirectory"));
    EXPECT_EQ(request.change.value, utf8("~/elsewhere"));
    EXPECT_EQ(file(), m_before) << "saving is the recorder's";
    EXPECT_EQ(m_secrets.calls(), QStringList());
}

TEST_F(SettingsSetWhileRecording, success_saysWhenItApplies)
{
    m_recorder.expect(SettingAnswer{.outcome = Outcome::NextRecording, .words = {}});
    EXPECT_THAT(set("frameFps", "1").messages.toStdString(), HasSubstr("applies from the next one on"));
    m_recorder.expect(SettingAnswer{.outcome = Outcome::RecordingEnds, .words = utf8("Remark.")});
    const auto moved = set("localPort", "9002");
    EXPECT_EQ(moved.status, 0);
    EXPECT_THAT(moved.messages.toStdString(), AllOf(HasSubstr("ends the recording under way"), HasSubstr("Remark.\n")));
}

TEST_F(SettingsSetWhileRecording, recordersRefusal_isItsExitStatus)
{
    m_recorder.expect(SettingAnswer{.outcome = Outcome::Refused, .words = utf8("Not that one.")});
    EXPECT_EQ(set("model", "m").status, 2);
    m_recorder.expect(SettingAnswer{.outcome = Outcome::NotSaved, .words = utf8("The disk is full.")});
    const auto outcome = set("model", "m");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages, utf8("ostrel: The disk is full.\n"));
}

TEST_F(SettingsSetWhileRecording, wrongValue_isNotSentAtAll)
{
    EXPECT_EQ(set("localPort", "0").status, 2);
    EXPECT_EQ(m_recorder.requests().size(), 0);
}

TEST_F(SettingsSetWhileRecording, recorderOutOfReach_isStatus1NamesItAndChangesNothing)
{
    const std::string pid = std::to_string(::getpid());
    for (const auto &[failure, words] :
         {std::pair(RemoteFailure::NoBus, "Without a session bus"), std::pair(RemoteFailure::NotThere, "not on this"),
          std::pair(RemoteFailure::NotTheRecorder, "Another program poses as it"),
          std::pair(RemoteFailure::Silent, "not answered in time"), std::pair(RemoteFailure::Broken, "no answer")}) {
        m_recorder.expect(std::unexpected(failure));
        const auto outcome = set("model", "m");
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.messages.toStdString(), AllOf(HasSubstr("Process " + pid + " records"), HasSubstr(words)));
        EXPECT_EQ(outcome.messages.count(u'\n'), 1);
        EXPECT_EQ(file(), m_before);
    }
}

TEST_F(SettingsSetWhileRecording, recorderThatEndsMeanwhile_leavesTheSavingToTheCommand)
{
    m_recorder.expect(std::unexpected(RemoteFailure::NotThere), [this] { m_lock.reset(); });
    EXPECT_EQ(set("model", "m").status, 0);
    EXPECT_EQ(saved().model, utf8("m"));
    EXPECT_EQ(saved().localPort, 9001);
}

} // namespace
