#pragma once

#include "ArchiveFixture.h"
#include "model/ExportArea.h"
#include "observer/SettingsStore.h"

#include <QDateTime>

#include <optional>

namespace ostrel {

inline const QString postEstimate = QStringLiteral("POST /api/archive/export/estimate");
inline const QString postExport = QStringLiteral("POST /api/archive/export");
inline const QString getExport = QStringLiteral("GET /api/archive/export/status");
inline const QString postCancel = QStringLiteral("POST /api/archive/export/cancel");
inline const QString notConfigured = QStringLiteral("Archive vault not configured");

inline ArchiveExportStatus record(const char *state, qint64 exported = 0, qint64 total = 10)
{
    return {.state = QString::fromLatin1(state),
            .exported = exported,
            .total = total,
            .skipped = 0,
            .currentDay = {},
            .error = {}};
}

inline FakeHttpTransport::Answer answer(const ArchiveExportStatus &status)
{
    return FakeHttpTransport::answer(status.toJson());
}

inline FakeHttpTransport::Answer estimated(qint64 clips, qint64 bytes)
{
    return FakeHttpTransport::answer(ArchiveExportEstimate{.clips = clips, .bytes = bytes}.toJson());
}

/// The export of footage, and nothing else of the model.
class ExportFixture : public ArchiveFixture
{
protected:
    ExportFixture() { build(); }

    void build()
    {
        m_export.emplace(ExportArea::Dependencies{.clock = m_clock,
                                                  .state = m_state,
                                                  .observer = m_observer,
                                                  .modals = m_modals,
                                                  .dialogs = m_dialogs,
                                                  .worker = m_worker});
    }
    ExportArea &area() { return *m_export; }

    static void saveVault(const char *vault)
    {
        ASSERT_TRUE(
            writeFileAtomically(SettingsStore::primaryFile(), R"({"archiveVaultId": ")" + QByteArray(vault) + "\"}")
                .has_value());
    }
    /// Opens the card while nothing is being exported.
    void open()
    {
        saveVault("vault-1");
        m_transport.expect(postEstimate, estimated(10, 12'300'000));
        m_transport.expect(getExport, answer(record("idle")));
        area().openArchiveExportCard();
        settle();
        ASSERT_EQ(area().archiveExportCard(), ArchiveExportCard::configure);
        m_transport.forgetRequests();
    }
    /// Starts an export, whose first poll is answered.
    void run()
    {
        open();
        m_transport.expect(postExport, answer(record("running")));
        m_transport.expect(getExport, answer(record("running", 1)));
        area().startArchiveExport();
        settle();
        ASSERT_EQ(area().archiveExportCard(), ArchiveExportCard::running);
        ASSERT_EQ(area().archiveExportStatus(), record("running", 1));
        m_transport.forgetRequests();
    }
    void poll(const ArchiveExportStatus &status)
    {
        m_transport.expect(getExport, answer(status));
        advance(std::chrono::seconds(1));
    }
    void choose(const QString &path)
    {
        m_dialogs.expectDialog();
        area().chooseArchiveExportDestination();
        settle();
        m_dialogs.choose(path);
        settle();
    }
    void setNow(const char *isoTime)
    {
        m_clock.setNowMs(QDateTime::fromString(QLatin1String(isoTime), Qt::ISODate).toMSecsSinceEpoch());
    }

    std::optional<ExportArea> m_export;
};

} // namespace ostrel
