#include "CommandFixture.h"

#include "app/RecorderLock.h"
#include "base/Files.h"
#include "observer/SettingsStore.h"
#include "observer/TokenStore.h"
#include "observer/WireRecords.h"
#include "support/FreePort.h"
#include "support/HttpTestServer.h"
#include "support/Printers.h"

#include <QDate>
#include <QDir>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>

#include <csignal>

#include <fcntl.h>
#include <sys/stat.h>

using namespace ostrel;
using testing::HasSubstr;
using testing::Not;

namespace {

const QByteArray prepare = "POST /api/archive/prepare";
const QByteArray enable = "POST /api/archive/enable";
const QByteArray disable = "POST /api/archive/disable";
const QByteArray recover = "POST /api/archive/recover";
const QByteArray getArchive = "GET /api/archive/status";
const QByteArray estimate = "POST /api/archive/export/estimate";
const QByteArray startExport = "POST /api/archive/export";
const QByteArray getExport = "GET /api/archive/export/status";
const QByteArray cancelExport = "POST /api/archive/export/cancel";
const QByteArray getStatus = "GET /api/status";
const QByteArray recoveryKey = "ostrel-vault_1qqqsyq5xzvm";

QByteArray archive(bool enabled, const char *vault, const QByteArray &key = {})
{
    return ArchiveStatus{.archiveEnabled = enabled,
                         .archiveVaultId = QString::fromLatin1(vault),
                         .hasRecoveryKey = true,
                         .recoveryKey = key.isEmpty() ? std::nullopt : std::optional(QString::fromLatin1(key))}
        .toJson();
}

QByteArray exporting(const char *state, qint64 exported = 0, qint64 skipped = 0)
{
    return ArchiveExportStatus{.state = QString::fromLatin1(state),
                               .exported = exported,
                               .total = 10,
                               .skipped = skipped,
                               .currentDay = QStringLiteral("2026-11-20"),
                               .error = {}}
        .toJson();
}

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

/// `ostrel archive` in this process, with an observer by script. A request that nothing was scripted for is answered
/// with 501, and fails the test unless it was expected to.
class ArchiveCommand : public CommandFixture
{
protected:
    ArchiveCommand()
    {
        m_secrets.put(localApiTokenService, QStringLiteral("token"));
        writePort(m_server.port());
        script(getStatus, ObserverStatus().toJson());
    }

    static void writePort(int port)
    {
        ASSERT_TRUE(
            writeFileAtomically(SettingsStore::primaryFile(), R"({"localPort": )" + QByteArray::number(port) + "}")
                .has_value());
    }
    /// Answers an endpoint so from now on.
    void script(const QByteArray &endpoint, const QByteArray &body, int status = 200)
    {
        m_answers[endpoint] = HttpTestServer::response(status, body);
    }
    void refuse(const QByteArray &endpoint) { script(endpoint, "{}", 501); }
    /// Something happens when a request comes, before it is answered.
    void when(const QByteArray &endpoint, std::function<void()> act) { m_acts[endpoint] = std::move(act); }

    CommandResult archiveDoes(const QStringList &words, const QByteArray &input = {})
    {
        return run(QStringList(QStringLiteral("archive")) + words, input);
    }
    CommandResult does(const char *action, const QByteArray &input = {})
    {
        return archiveDoes({QString::fromLatin1(action)}, input);
    }
    CommandResult exports(const QStringList &further = {})
    {
        return archiveDoes(
            QStringList({QStringLiteral("export"), QStringLiteral("--into"), QStringLiteral("/srv/out")}) + further);
    }
    /// What was asked, less the waiting.
    QList<QByteArray> asked() const
    {
        QList<QByteArray> endpoints;
        for (const auto &request : m_server.requests())
            endpoints.append(endpointOf(request));
        endpoints.removeAll(getStatus);
        return endpoints;
    }
    QByteArray bodyOf(const QByteArray &endpoint) const
    {
        for (const auto &request : m_server.requests()) {
            if (endpointOf(request) == endpoint)
                return request.body;
        }
        return "not asked";
    }
    /// A vault in use, from which something can be exported.
    void haveVault()
    {
        script(getArchive, archive(true, "vault-1"));
        script(getExport, exporting("idle"));
        script(estimate, ArchiveExportEstimate{.clips = 10, .bytes = 12'300'000}.toJson());
    }

    static QByteArray endpointOf(const HttpTestServer::Request &request)
    {
        return request.line.left(request.line.lastIndexOf(' '));
    }

    QHash<QByteArray, QByteArray> m_answers;
    QHash<QByteArray, std::function<void()>> m_acts;
    HttpTestServer m_server{[this](const HttpTestServer::Request &request, QTcpSocket &socket) {
        const QByteArray endpoint = endpointOf(request);
        EXPECT_EQ(request.header("x-ostrel-local-token"), QList<QByteArray>{"token"});
        EXPECT_TRUE(m_answers.contains(endpoint)) << "unexpected request " << endpoint.toStdString();
        if (const auto act = m_acts.value(endpoint))
            act();
        socket.write(m_answers.value(endpoint, HttpTestServer::response(501, "{}")));
    }};
};

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
    script(disable, archive(false, "vault-1"));
    const auto outcome = does("disable");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, QStringLiteral("Archive uploads paused.\n"));
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

TEST_F(ArchiveCommand, export_sendsTheRangeAndFollowsItToTheEnd)
{
    haveVault();
    script(startExport, exporting("running"));
    when(startExport, [this] { script(getExport, exporting("done", 9, 1)); });
    const auto outcome = exports({QStringLiteral("--from"), QStringLiteral("2026-11-21"), QStringLiteral("--to"),
                                  QStringLiteral("2026-11-01"), QStringLiteral("--json")});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, QStringLiteral("Export complete: 9 clips, 1 skipped.\n"));
    EXPECT_EQ(bodyOf(startExport),
              QByteArray(R"({"destinationDirectory":"/srv/out","fromDate":"2026-11-21","toDate":"2026-11-01"})"));
    const auto json = QJsonDocument::fromJson(outcome.output.toUtf8());
    EXPECT_EQ(json[QStringLiteral("exported")], 9);
    EXPECT_EQ(json[QStringLiteral("state")], QStringLiteral("done"));
}

TEST_F(ArchiveCommand, exportIntoARelativeFolder_isThatOfTheTerminal)
{
    haveVault();
    script(startExport, exporting("running"));
    when(startExport, [this] { script(getExport, exporting("done", 10)); });
    EXPECT_EQ(archiveDoes({QStringLiteral("export"), QStringLiteral("--into"), QStringLiteral("here/../out")}).status,
              0);
    EXPECT_THAT(bodyOf(startExport).toStdString(),
                HasSubstr("\"destinationDirectory\":\"" + QDir::currentPath().toStdString() + "/out\""));
}

TEST_F(ArchiveCommand, exportThatFails_isStatus1WithTheReason)
{
    haveVault();
    script(startExport, exporting("running"));
    when(startExport, [this] {
        script(getExport, R"({"state":"failed","exported":3,"total":10,"skipped":0,"error":"The disk is full."})");
    });
    const auto outcome = exports();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages, QStringLiteral("ostrel: Export failed: The disk is full.\n"));
    EXPECT_EQ(outcome.output, QString());
}

TEST_F(ArchiveCommand, exportInterrupted_cancelsItOnTheObserver)
{
    haveVault();
    script(startExport, exporting("running"));
    script(cancelExport, exporting("cancelled", 3));
    when(startExport, [this] {
        script(getExport, exporting("running", 3));
        ::raise(SIGINT);
    });
    when(cancelExport, [this] { script(getExport, exporting("cancelled", 3)); });
    const auto outcome = exports();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages, QStringLiteral("ostrel: Export cancelled after 3 of 10 clips (2026-11-20).\n"));
    EXPECT_EQ(asked().count(cancelExport), 1);
}

TEST_F(ArchiveCommand, exportThatTheObserverForgets_isStatus1)
{
    haveVault();
    script(startExport, exporting("running"));
    const auto outcome = exports();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("knows of no export any more"));
}

TEST_F(ArchiveCommand, exportWhileOneRuns_isStatus1AndStartsNone)
{
    haveVault();
    script(getExport, exporting("running", 3));
    const auto outcome = exports();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("under way already: 3 of 10 clips"));
    EXPECT_FALSE(asked().contains(startExport));
}

TEST_F(ArchiveCommand, exportThatIsRefused_isStatus1WithItsWords)
{
    haveVault();
    refuse(startExport);
    const auto outcome = exports();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages, QStringLiteral("ostrel: The server gave an answer that could not be used.\n"));
}

TEST_F(ArchiveCommand, exportWithoutAVault_isStatus1)
{
    haveVault();
    script(getArchive, archive(false, ""));
    const auto outcome = exports();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages, QStringLiteral("ostrel: Archive vault not configured\n"));
    EXPECT_FALSE(asked().contains(startExport));
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
