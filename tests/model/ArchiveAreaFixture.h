#pragma once

#include "ArchiveFixture.h"
#include "model/ArchiveArea.h"

namespace ostrel {

inline const QString postPrepare = QStringLiteral("POST /api/archive/prepare");
inline const QString postEnable = QStringLiteral("POST /api/archive/enable");
inline const QString postDisable = QStringLiteral("POST /api/archive/disable");
inline const QString postRecover = QStringLiteral("POST /api/archive/recover");
inline const QString getArchive = QStringLiteral("GET /api/archive/status");
inline const QString recoveryKey = QStringLiteral("ostrel-vault_1qqqsyq5xzvm");

inline FakeHttpTransport::Answer archive(bool enabled, const char *vault = "vault-1",
                                         const std::optional<QString> &key = std::nullopt)
{
    return FakeHttpTransport::answer(ArchiveStatus{.archiveEnabled = enabled,
                                                   .archiveVaultId = QString::fromLatin1(vault),
                                                   .hasRecoveryKey = true,
                                                   .recoveryKey = key}
                                         .toJson());
}

/// The archive as its user handles it, and nothing else of the model.
class ArchiveAreaFixture : public ArchiveFixture
{
protected:
    /// Opens the wizard and has a vault prepared.
    void prepare()
    {
        m_transport.expect(postPrepare, archive(false, "vault-1", recoveryKey));
        m_archive.beginArchiveWizard();
        m_archive.archiveWizardContinue();
        settle();
        ASSERT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::saveKey);
        ASSERT_EQ(m_archive.archiveRecoveryKey(), recoveryKey);
    }
    /// Up to the last page, with the box ticked.
    void confirm()
    {
        prepare();
        m_archive.archiveWizardNext();
        m_archive.setArchiveKeySavedConfirmed(true);
        ASSERT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::confirm);
    }
    void haveVault(bool enabled)
    {
        m_transport.expect(getArchive, archive(enabled));
        m_archive.refreshArchiveStatus();
        settle();
        m_transport.forgetRequests();
    }
    /// Presses "Download .txt" and chooses a file.
    void download(const QString &path)
    {
        m_dialogs.expectDialog();
        m_archive.downloadArchiveRecoveryKey();
        settle();
        m_dialogs.choose(path);
        settle();
    }
    void expectMessage(const char *words)
    {
        EXPECT_EQ(m_state.archiveMessage(), QString::fromUtf8(words));
        EXPECT_FALSE(m_state.archiveMessageIsError());
    }
    void expectError(const QString &words)
    {
        EXPECT_EQ(m_state.archiveMessage(), words);
        EXPECT_TRUE(m_state.archiveMessageIsError());
    }
    void expectClosed()
    {
        EXPECT_EQ(m_archive.archiveWizardStep(), std::nullopt);
        EXPECT_EQ(m_archive.archiveRecoveryKey(), std::nullopt);
        EXPECT_FALSE(m_archive.archiveKeySavedConfirmed());
        EXPECT_EQ(m_state.archiveMessage(), std::nullopt);
    }

    ArchiveArea m_archive{
        {.state = m_state, .observer = m_observer, .modals = m_modals, .dialogs = m_dialogs, .worker = m_worker}};
};

} // namespace ostrel
