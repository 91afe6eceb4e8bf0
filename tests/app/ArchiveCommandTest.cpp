#include "ArchiveCommandFixture.h"
#include "support/FreePort.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <fcntl.h>
#include <sys/stat.h>

using namespace ostrel;
using testing::HasSubstr;
using testing::Not;

namespace {

/// What is written to standard output until the end of the scope, which may be refused.
class CapturedOutput
{
public:
    explicit CapturedOutput(const char *device = nullptr) : m_before(::dup(STDOUT_FILENO))
    {
        std::fflush(stdout);
        m_file = device ? ::open(device, O_WRONLY | O_CLOEXEC) : ::memfd_create("output", MFD_CLOEXEC);
        EXPECT_GE(::dup2(m_file, STDOUT_FILENO), 0);
    }
    CapturedOutput(const CapturedOutput &) = delete;
    CapturedOutput &operator=(const CapturedOutput &) = delete;
    ~CapturedOutput()
    {
        std::fflush(stdout);
        std::clearerr(stdout);
        ::dup2(m_before, STDOUT_FILENO);
        ::close(m_before);
        ::close(m_file);
    }

    QByteArray text() const
    {
        QByteArray text(4096, '\0');
        return text.left(qMax<ssize_t>(::pread(m_file, text.data(), size_t(text.size()), 0), 0));
    }

private:
    int m_before;
    int m_file = -1;
};

class ArchiveCommand : public ArchiveCommandFixture
{};

TEST_F(ArchiveCommand, status_tellsWhatThereIsAndNeverTheKey)
{
    script(getArchive, archive(true, "vault-1", recoveryKey));
    script(getExport, exporting("running", 3));
    const auto outcome = does("status");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, QStringLiteral("archive      on\n"
                                             "vault        vault-1\n"
                                             "recovery key exists\n"
                                             "export       running, 3 of 10 clips (2026-11-20)\n"));
    const auto json =
        QJsonDocument::fromJson(archiveDoes({QStringLiteral("status"), QStringLiteral("--json")}).output.toUtf8());
    EXPECT_EQ(json.object().keys(), QStringList({QStringLiteral("archiveEnabled"), QStringLiteral("archiveVaultId"),
                                                 QStringLiteral("export"), QStringLiteral("hasRecoveryKey")}));
    EXPECT_EQ(json[QStringLiteral("export")][QStringLiteral("exported")], 3);
    EXPECT_FALSE(json[QStringLiteral("export")].toObject().isEmpty());
    EXPECT_EQ(m_secrets.calls().filter(QStringLiteral("write")), QStringList());
}

TEST_F(ArchiveCommand, status_ofAPausedVaultAndOfNone)
{
    refuse(getExport);
    script(getArchive, archive(false, "vault-1"));
    EXPECT_THAT(does("status").output.toStdString(), HasSubstr("archive      paused\n"));
    script(getArchive, R"({"archiveEnabled":false,"archiveVaultId":"","hasRecoveryKey":false})");
    const auto outcome = does("status");
    EXPECT_EQ(outcome.output, QStringLiteral("archive      off\n"
                                             "vault        none\n"
                                             "recovery key none\n"
                                             "export       not known\n"));
    const auto json = archiveDoes({QStringLiteral("status"), QStringLiteral("--json")}).output;
    EXPECT_TRUE(QJsonDocument::fromJson(json.toUtf8())[QStringLiteral("export")].isNull());
}

TEST_F(ArchiveCommand, statusWithoutAnObserver_isStatus1AndStartsNone)
{
    writePort(freePort());
    const QByteArray settings = readFile(SettingsStore::primaryFile()).value();
    const auto outcome = does("status");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("The observer is not running"));
    EXPECT_EQ(m_launcher.children().size(), 0);
    EXPECT_EQ(readFile(SettingsStore::primaryFile()), settings);
}

TEST_F(ArchiveCommand, observerWithoutAnArchive_isItsErrorAndNothingChanges)
{
    refuse(getArchive);
    refuse(disable);
    refuse(recover);
    for (const char *action : {"status", "enable", "disable"}) {
        const auto outcome = does(action);
        EXPECT_EQ(outcome.status, 1) << action;
        EXPECT_EQ(outcome.output, QString());
        EXPECT_EQ(outcome.messages, QStringLiteral("ostrel: The server gave an answer that could not be used.\n"));
    }
    EXPECT_EQ(does("recover", recoveryKey).status, 1);
    EXPECT_EQ(exports().status, 1);
    EXPECT_FALSE(asked().contains(prepare));
    EXPECT_FALSE(asked().contains(startExport));
}

TEST_F(ArchiveCommand, refusalWithAReason_saysTheObserversWords)
{
    refuse(recover);
    when(recover, [this] {
        ObserverStatus status;
        status.lastError = QStringLiteral("The recovery key is mistyped.");
        script(getStatus, status.toJson());
    });
    const auto outcome = does("recover", recoveryKey);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages, QStringLiteral("ostrel: The recovery key is mistyped.\n"));
}

TEST_F(ArchiveCommand, enable_printsTheKeyOnceAndTurnsOnWhenItsEndIsTyped)
{
    script(getArchive, archive(false, ""));
    script(prepare, archive(false, "", recoveryKey));
    script(enable, archive(true, "vault-1"));
    const CapturedOutput output;
    const auto outcome = does("enable", "wrong\n" + recoveryKey.right(6) + "\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(output.text(), recoveryKey + "\n");
    EXPECT_EQ(outcome.messages, QStringLiteral("The archive is on.\n"));
    EXPECT_EQ(asked(), (QList<QByteArray>{getArchive, prepare, enable}));
    EXPECT_FALSE(readFile(SettingsStore::primaryFile()).value().contains(recoveryKey));
    EXPECT_EQ(m_launcher.children().size(), 0) << "the observer that runs is used";
}

TEST_F(ArchiveCommand, enableThatIsNotConfirmed_turnsNothingOn)
{
    script(getArchive, archive(false, ""));
    script(prepare, archive(false, "", recoveryKey));
    for (const QByteArray &typed : {QByteArray(), QByteArray("\n\n\n"), QByteArray("a\nb\nc\n" + recoveryKey.right(6)),
                                    QByteArray(recoveryKey.right(5))}) {
        const CapturedOutput output;
        const auto outcome = does("enable", typed);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("was not turned on, and this key opens nothing"));
        EXPECT_THAT(outcome.messages.toStdString(), Not(HasSubstr(recoveryKey.toStdString())));
    }
    EXPECT_FALSE(asked().contains(enable));
}

TEST_F(ArchiveCommand, enableIntoAKeyFile_writesItForTheUserAloneAndPrintsNoKey)
{
    script(getArchive, archive(false, ""));
    script(prepare, archive(false, "", recoveryKey));
    script(enable, archive(true, "vault-1"));
    const QString file = m_home.path(QStringLiteral("key"));
    const QStringList words{QStringLiteral("enable"), QStringLiteral("--key-file"), file};
    const CapturedOutput output;
    EXPECT_EQ(archiveDoes(words, recoveryKey.right(6)).status, 0);
    EXPECT_EQ(output.text(), QByteArray());
    EXPECT_EQ(readFile(file), recoveryKey + "\n");
    struct stat info = {};
    ASSERT_EQ(::stat(qPrintable(file), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST_F(ArchiveCommand, enableIntoAFileThatExists_isStatus2AndAsksNothing)
{
    const QString file = m_home.path(QStringLiteral("key"));
    ASSERT_TRUE(writeFileAtomically(file, "precious").has_value());
    const auto outcome = archiveDoes({QStringLiteral("enable"), QStringLiteral("--key-file"), file});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(readFile(file), QByteArray("precious"));
    EXPECT_EQ(asked(), QList<QByteArray>());
}

TEST_F(ArchiveCommand, keyThatCannotBeHandedOver_turnsNothingOn)
{
    script(getArchive, archive(false, ""));
    script(prepare, archive(false, "", recoveryKey));
    const CapturedOutput full("/dev/full");
    const auto outcome = does("enable", recoveryKey.right(6));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(),
                HasSubstr("\"standard output\" is full. The archive was not turned on."));
    EXPECT_FALSE(asked().contains(enable));
}

TEST_F(ArchiveCommand, enableThatFailsAtTheEnd_tellsToKeepTheKey)
{
    script(getArchive, archive(false, ""));
    script(prepare, archive(false, "", recoveryKey));
    refuse(enable);
    const CapturedOutput output;
    const auto outcome = does("enable", recoveryKey.right(6));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("keep the key until then"));
}

TEST_F(ArchiveCommand, enableOfAPausedVault_goesOnWithItsKey)
{
    script(getArchive, archive(false, "vault-1"));
    script(enable, archive(true, "vault-1"));
    const CapturedOutput output;
    const auto outcome = does("enable");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("Archive uploads resumed."));
    EXPECT_EQ(output.text(), QByteArray());
    EXPECT_EQ(asked(), (QList<QByteArray>{getArchive, enable}));
}

TEST_F(ArchiveCommand, enableOfOneThatIsOn_saysSo)
{
    script(getArchive, archive(true, "vault-1"));
    const auto outcome = does("enable");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, QStringLiteral("The archive is on already.\n"));
    EXPECT_EQ(asked(), QList<QByteArray>{getArchive});
}

TEST_F(ArchiveCommand, disable_pausesAndSaysSo)
{
    script(getArchive, archive(true, "vault-1"));
    script(disable, archive(false, "vault-1"));
    const auto outcome = does("disable");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, QStringLiteral("Archive uploads paused.\n"));
}

TEST_F(ArchiveCommand, disableWithoutAnArchive_saysThatThereIsNone)
{
    script(getArchive, archive(false, ""));
    const auto outcome = does("disable");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("There is no archive to pause."));
    EXPECT_EQ(asked(), QList<QByteArray>{getArchive});
}

TEST_F(ArchiveCommand, recover_takesTheKeyFromStandardInputOrAFileTrimmed)
{
    script(recover, archive(true, "vault-1"));
    const auto outcome = does("recover", "  " + recoveryKey + "\n\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, QStringLiteral("Archive vault recovered.\n"));
    EXPECT_EQ(bodyOf(recover), "{\"recoveryKey\":\"" + recoveryKey + "\"}");
    const QString file = m_home.path(QStringLiteral("key"));
    ASSERT_TRUE(writeFileAtomically(file, recoveryKey + "\n").has_value());
    EXPECT_EQ(archiveDoes({QStringLiteral("recover"), QStringLiteral("--key-file"), file}).status, 0);
    EXPECT_EQ(m_server.requests().constLast().body, "{\"recoveryKey\":\"" + recoveryKey + "\"}");
}

TEST_F(ArchiveCommand, recoverWithoutAKey_isStatus2AndAsksNothing)
{
    for (const QByteArray &nothing : {QByteArray(), QByteArray(" \n\n"), QByteArray("\xff")})
        EXPECT_EQ(does("recover", nothing).status, 2);
    EXPECT_EQ(does("recover", "\n").messages, QStringLiteral("ostrel: Recovery key is required\n"));
    const QString missing = m_home.path(QStringLiteral("missing"));
    EXPECT_EQ(archiveDoes({QStringLiteral("recover"), QStringLiteral("--key-file"), missing}).status, 2);
    EXPECT_EQ(m_server.requests().size(), 0);
}

TEST_F(ArchiveCommand, keyAsAnArgument_isRefusedWithTheWayAndNeverEchoed)
{
    const QString key = QString::fromLatin1(recoveryKey);
    for (const QStringList &words :
         {QStringList{QStringLiteral("recover"), key}, QStringList{key}, QStringList{QStringLiteral("disable"), key}}) {
        const auto outcome = archiveDoes(words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.messages.toStdString(), Not(HasSubstr(recoveryKey.toStdString())));
    }
    EXPECT_THAT(archiveDoes({QStringLiteral("recover"), key}).messages.toStdString(), HasSubstr("--key-file FILE"));
    EXPECT_EQ(m_server.requests().size(), 0);
}

TEST_F(ArchiveCommand, wrongUse_isStatus2AndAsksNothing)
{
    const auto words = [](const char *line) { return QString::fromLatin1(line).split(u' ', Qt::SkipEmptyParts); };
    for (const char *line :
         {"", "nonsense", "status more", "disable --json", "enable --into /srv", "status --from 2026-11-01", "export",
          "export --into", "export --into /srv --from 2026-02-30", "export --into /srv --to 21.11.2026",
          "export --into /srv --key-file x", "recover --key-file="}) {
        const auto outcome = archiveDoes(words(line));
        EXPECT_EQ(outcome.status, 2) << line;
        EXPECT_EQ(outcome.output, QString());
        EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("archive: ")) << line;
    }
    EXPECT_EQ(m_server.requests().size(), 0);
}

TEST_F(ArchiveCommand, strangerOnThePort_isNamedAndToldNothing)
{
    const HttpTestServer stranger(HttpTestServer::always(HttpTestServer::response(200, "<html>hello</html>")));
    writePort(stranger.port());
    const auto outcome = does("recover", recoveryKey);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("is not the observer"));
    for (const auto &request : stranger.requests())
        EXPECT_FALSE(request.body.contains(recoveryKey));
}

TEST_F(ArchiveCommand, help_namesEveryActionAndOption)
{
    const auto help = archiveDoes({QStringLiteral("--help")});
    EXPECT_EQ(help.status, 0);
    for (const char *word :
         {"status", "enable", "disable", "recover", "export", "--key-file", "--from", "--to", "--into", "--json"})
        EXPECT_THAT(help.output.toStdString(), HasSubstr(word));
}

} // namespace
