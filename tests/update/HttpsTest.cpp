#include "PromptClock.h"
#include "support/Printers.h"
#include "support/RunTask.h"
#include "update/HttpClient.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <QTemporaryDir>
#include <QThread>

#include <gmock/gmock.h>

using namespace ostrel;
using testing::HasSubstr;

namespace {

struct Identity {
    QSslKey key;
    QSslCertificate certificate;
};

/// An authority of the test's own, made by openssl, and what it signs.
class TestAuthority
{
public:
    TestAuthority()
    {
        makeKey(QStringLiteral("ca"), QStringLiteral("/CN=Test authority"),
                {QStringLiteral("-x509"), QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-out"),
                 path("ca.pem")});
    }

    QSslCertificate certificate() const { return QSslCertificate(read("ca.pem")); }

    /// @param names as a certificate has them, as in "DNS:localhost,IP:127.0.0.1"
    /// @param days  from now on; below 0 its time is over already
    Identity sign(const QByteArray &names, int days = 2)
    {
        makeKey(QStringLiteral("server"), QStringLiteral("/CN=server"), {QStringLiteral("-out"), path("server.csr")});
        QFile extensions(path("extensions"));
        EXPECT_TRUE(extensions.open(QIODevice::WriteOnly));
        extensions.write("subjectAltName=" + names + "\n");
        extensions.close();
        openssl({QStringLiteral("x509"), QStringLiteral("-req"), QStringLiteral("-in"), path("server.csr"),
                 QStringLiteral("-CA"), path("ca.pem"), QStringLiteral("-CAkey"), path("ca.key"),
                 QStringLiteral("-CAcreateserial"), QStringLiteral("-days"), QString::number(days),
                 QStringLiteral("-extfile"), path("extensions"), QStringLiteral("-out"), path("server.pem")});
        return {.key = QSslKey(read("server.key"), QSsl::Ec), .certificate = QSslCertificate(read("server.pem"))};
    }

private:
    QString path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)); }
    QByteArray read(const char *name) const
    {
        QFile file(path(name));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name;
        return file.readAll();
    }
    void makeKey(const QString &name, const QString &subject, const QStringList &further)
    {
        openssl(QStringList{QStringLiteral("req"), QStringLiteral("-newkey"), QStringLiteral("ec"),
                            QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:prime256v1"),
                            QStringLiteral("-nodes"), QStringLiteral("-keyout"),
                            m_folder.filePath(name + QStringLiteral(".key")), QStringLiteral("-subj"), subject} +
                further);
    }
    static void openssl(const QStringList &arguments)
    {
        QProcess process;
        process.start(QStringLiteral("openssl"), arguments);
        EXPECT_TRUE(process.waitForFinished(20'000) && process.exitCode() == 0)
            << process.readAllStandardError().toStdString();
    }

    QTemporaryDir m_folder;
};

/// Answers every request over TLS with "the feed", as whoever it was told to be.
class HttpsServer
{
public:
    explicit HttpsServer(const Identity &identity)
    {
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setPrivateKey(identity.key);
        configuration.setLocalCertificate(identity.certificate);
        m_server.setSslConfiguration(configuration);
        QObject::connect(&m_server, &QTcpServer::pendingConnectionAvailable, &m_server, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection())
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    ++m_requests;
                    socket->readAll();
                    socket->write("HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\nthe feed");
                });
        });
        EXPECT_TRUE(m_server.listen(QHostAddress::LocalHost));
    }

    QUrl url() const { return QUrl(QStringLiteral("https://127.0.0.1:%1/feed").arg(m_server.serverPort())); }
    int requests() const { return m_requests; }

private:
    QSslServer m_server;
    int m_requests = 0;
};

/// While this lives, the program trusts the system's authorities and one more.
class TrustedAuthority
{
public:
    explicit TrustedAuthority(const QSslCertificate &certificate)
    {
        QSslConfiguration trusting = m_before;
        trusting.addCaCertificate(certificate);
        QSslConfiguration::setDefaultConfiguration(trusting);
    }
    TrustedAuthority(const TrustedAuthority &) = delete;
    TrustedAuthority &operator=(const TrustedAuthority &) = delete;
    ~TrustedAuthority() { QSslConfiguration::setDefaultConfiguration(m_before); }

private:
    const QSslConfiguration m_before = QSslConfiguration::defaultConfiguration();
};

Task<Result<HttpBytes>> firstBytes(HttpClient *client, QUrl address, std::stop_token stop)
{
    auto answer = co_await client->get(address, {}, stop);
    if (!answer)
        co_return std::unexpected(answer.error());
    co_return co_await answer->piece(stop);
}

/// Outlives a client and waits until the threads that its requests had are gone. Qt takes them for ended before OpenSSL
/// has freed what it keeps for each thread, which is then missing once the program has ended in between.
class ThreadsOfRequests
{
public:
    ThreadsOfRequests() = default;
    ThreadsOfRequests(const ThreadsOfRequests &) = delete;
    ThreadsOfRequests &operator=(const ThreadsOfRequests &) = delete;
    ~ThreadsOfRequests()
    {
        const QDeadlineTimer deadline(20'000);
        while (threads() > m_before && !deadline.hasExpired())
            QThread::msleep(1);
        EXPECT_EQ(threads(), m_before);
    }

private:
    static qsizetype threads()
    {
        return QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
    }

    const qsizetype m_before = threads();
};

class Https : public testing::Test
{
protected:
    Result<HttpBytes> get(const HttpsServer &server)
    {
        const auto outcome =
            runTask<Result<HttpBytes>>([&](std::stop_token stop) { return firstBytes(&m_client, server.url(), stop); });
        return outcome.value();
    }
    void expectRefused(const HttpsServer &server, const char *why)
    {
        const auto outcome = get(server);
        ASSERT_FALSE(outcome.has_value());
        EXPECT_THAT(outcome.error().localizedDescription.toStdString(), HasSubstr(why));
        EXPECT_EQ(server.requests(), 0) << "nothing is asked of a server that is not who it says";
    }

    ThreadsOfRequests m_threads;
    PromptClock m_clock;
    HttpClient m_client{m_clock};
    TestAuthority m_authority;
};

const QByteArray ownName = "IP:127.0.0.1";

TEST_F(Https, certificateOfATrustedAuthority_isBelieved)
{
    const TrustedAuthority trusted(m_authority.certificate());
    const HttpsServer server(m_authority.sign(ownName));
    const auto outcome = get(server);
    ASSERT_TRUE(outcome.has_value()) << outcome.error().localizedDescription.toStdString();
    EXPECT_EQ(outcome->bytes, "the feed");
}

TEST_F(Https, unknownAuthority_isRefusedAndSaid)
{
    expectRefused(HttpsServer(m_authority.sign(ownName)), "The issuer certificate");
}

TEST_F(Https, certificateOfAnotherHost_isRefusedAndSaid)
{
    const TrustedAuthority trusted(m_authority.certificate());
    expectRefused(HttpsServer(m_authority.sign("DNS:updates.example.org")), "host name did not match");
}

TEST_F(Https, expiredCertificate_isRefusedAndSaid)
{
    const TrustedAuthority trusted(m_authority.certificate());
    expectRefused(HttpsServer(m_authority.sign(ownName, -1)), "expired");
}

} // namespace
