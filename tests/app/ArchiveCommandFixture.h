#pragma once

#include "CommandFixture.h"
#include "base/Files.h"
#include "observer/SettingsStore.h"
#include "observer/TokenStore.h"
#include "observer/WireRecords.h"
#include "support/HttpTestServer.h"
#include "support/Printers.h"

#include <QHash>

#include <gmock/gmock.h>

#include <functional>

namespace ostrel {

inline const QByteArray prepare = "POST /api/archive/prepare";
inline const QByteArray enable = "POST /api/archive/enable";
inline const QByteArray disable = "POST /api/archive/disable";
inline const QByteArray recover = "POST /api/archive/recover";
inline const QByteArray getArchive = "GET /api/archive/status";
inline const QByteArray estimate = "POST /api/archive/export/estimate";
inline const QByteArray startExport = "POST /api/archive/export";
inline const QByteArray getExport = "GET /api/archive/export/status";
inline const QByteArray cancelExport = "POST /api/archive/export/cancel";
inline const QByteArray getStatus = "GET /api/status";
inline const QByteArray recoveryKey = "ostrel-vault_1qqqsyq5xzvm";

inline QByteArray archive(bool enabled, const char *vault, const QByteArray &key = {})
{
    return ArchiveStatus{.archiveEnabled = enabled,
                         .archiveVaultId = QString::fromLatin1(vault),
                         .hasRecoveryKey = true,
                         .recoveryKey = key.isEmpty() ? std::nullopt : std::optional(QString::fromLatin1(key))}
        .toJson();
}

inline QByteArray exporting(const char *state, qint64 exported = 0, qint64 skipped = 0)
{
    return ArchiveExportStatus{.state = QString::fromLatin1(state),
                               .exported = exported,
                               .total = 10,
                               .skipped = skipped,
                               .currentDay = QStringLiteral("2026-11-20"),
                               .error = {}}
        .toJson();
}

/// `ostrel archive` in this process, with an observer by script. A request that nothing was scripted for is answered
/// with 501, and fails the test unless it was expected to.
class ArchiveCommandFixture : public CommandFixture
{
protected:
    ArchiveCommandFixture()
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

} // namespace ostrel
