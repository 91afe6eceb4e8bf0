#include "model/ArchiveArea.h"

#include "base/Checked.h"
#include "base/Fault.h"
#include "base/Files.h"
#include "base/SerialQueue.h"
#include "base/Text.h"
#include "model/DialogHost.h"
#include "model/ModelState.h"
#include "model/NativeModals.h"
#include "model/ObserverRequest.h"
#include "observer/LocalObserverAPI.h"

namespace ostrel {

namespace {

DialogAlert recoveryKeyQuestion()
{
    return {.message = QStringLiteral("Use recovery key"),
            .informativeText = QStringLiteral("Paste the recovery key for your Cloud Archive."),
            .buttons = {QStringLiteral("Use Key"), QStringLiteral("Cancel")},
            .fields = {{.label = {}, .placeholder = QStringLiteral("ostrel-vault_..."), .text = {}}}};
}

/// A vault whose key nobody has seen must not be turned on.
Task<Result<ArchiveStatus>> prepareWithKey(std::shared_ptr<LocalObserverAPI> api, std::stop_token stop)
{
    const auto prepared = co_await api->prepareArchive(std::move(stop));
    if (prepared && prepared->recoveryKey.value_or(QString()).isEmpty())
        co_return std::unexpected(
            Error{.domain = QStringLiteral("TamskOstrel.Archive"),
                  .code = 1,
                  .localizedDescription = QStringLiteral("The observer gave no recovery key for the archive.")});
    co_return prepared;
}

} // namespace

ArchiveArea::ArchiveArea(Dependencies dependencies) : m_with(dependencies) {}

ArchiveArea::~ArchiveArea() = default;

void ArchiveArea::setArchiveKeySavedConfirmed(bool confirmed)
{
    if (confirmed == m_keySavedConfirmed)
        return;
    m_keySavedConfirmed = confirmed;
    Q_EMIT archiveKeySavedConfirmedChanged();
}

void ArchiveArea::beginArchiveWizard()
{
    if (m_busy)
        return;
    cancelArchiveWizard();
    setStep(ArchiveWizardStep::intro);
}

void ArchiveArea::cancelArchiveWizard()
{
    setStep(std::nullopt);
    setRecoveryKey(std::nullopt);
    setArchiveKeySavedConfirmed(false);
    m_with.state.clearArchiveMessage();
}

void ArchiveArea::archiveWizardContinue()
{
    if (m_step != ArchiveWizardStep::intro)
        return;
    run(prepareWithKey, [this](const ArchiveStatus &prepared) {
        if (m_step != ArchiveWizardStep::intro)
            return; // cancelled meanwhile, and with it the key
        setRecoveryKey(prepared.recoveryKey);
        setStep(ArchiveWizardStep::saveKey);
    });
}

void ArchiveArea::archiveWizardNext()
{
    if (m_step == ArchiveWizardStep::saveKey && !m_busy)
        setStep(ArchiveWizardStep::confirm);
}

void ArchiveArea::archiveWizardBack()
{
    if (m_step == ArchiveWizardStep::confirm && !m_busy)
        setStep(ArchiveWizardStep::saveKey);
}

void ArchiveArea::archiveWizardTurnOn()
{
    if (m_step != ArchiveWizardStep::confirm || !m_keySavedConfirmed)
        return;
    run([](auto api, auto stop) { return api->enableArchive(stop); },
        [this](const ArchiveStatus &status) {
            applyArchiveStatus(status);
            cancelArchiveWizard();
        });
}

void ArchiveArea::copyArchiveRecoveryKey()
{
    if (!m_recoveryKey)
        return;
    m_with.dialogs.setPasteboard(*m_recoveryKey, PasteboardText::Secret);
    m_with.state.setArchiveMessage(QStringLiteral("Recovery key copied."));
}

void ArchiveArea::downloadArchiveRecoveryKey()
{
    if (m_recoveryKey && !m_dialog.isRunning())
        m_dialog.start([this](std::stop_token stop) { return saveKeyFile(std::move(stop)); });
}

Task<> ArchiveArea::saveKeyFile(std::stop_token stop)
{
    const auto answer = co_await m_with.modals.runNativeModal(
        SavePanel{.proposedFileName = QStringLiteral("Ostrel Cloud Archive Recovery Key.txt")}, stop);
    // With the wizard the key has gone.
    if (answer.response != DialogResponse::ok || answer.path.isEmpty() || !m_recoveryKey)
        co_return;
    const auto written = co_await m_with.worker.run(
        stop, [path = answer.path, key = m_recoveryKey->toUtf8()] { return writeFileAtomically(path, key); });
    if (!written)
        co_return;
    if (*written)
        m_with.state.setArchiveMessage(QStringLiteral("Recovery key saved."));
    else
        m_with.state.setArchiveError(written->error().localizedDescription);
}

void ArchiveArea::disableArchive()
{
    run([](auto api, auto stop) { return api->disableArchive(stop); },
        [this](const ArchiveStatus &status) {
            applyArchiveStatus(status);
            setRecoveryKey(std::nullopt);
            m_with.state.setArchiveMessage(QStringLiteral("Archive uploads paused."));
        });
}

void ArchiveArea::resumeArchive()
{
    const ObserverSettings &settings = m_with.state.settings();
    if (settings.archiveEnabled || settings.archiveVaultId.isEmpty())
        return;
    run([](auto api, auto stop) { return api->enableArchive(stop); },
        [this](const ArchiveStatus &status) {
            applyArchiveStatus(status);
            m_with.state.setArchiveMessage(QStringLiteral("Archive uploads resumed."));
        });
}

void ArchiveArea::recoverArchiveWithKey()
{
    if (!m_busy && !m_dialog.isRunning())
        m_dialog.start([this](std::stop_token stop) { return askForKey(std::move(stop)); });
}

Task<> ArchiveArea::askForKey(std::stop_token stop)
{
    const auto answer = co_await m_with.modals.runNativeModal(recoveryKeyQuestion(), std::move(stop));
    if (answer.response == DialogResponse::firstButton)
        recoverArchive(answer.fields.value(0));
}

void ArchiveArea::recoverArchive(const QString &recoveryKey)
{
    if (m_busy)
        return;
    const QString key = trimmedBlanksAndNewlines(recoveryKey);
    if (key.isEmpty())
        return m_with.state.setArchiveError(QStringLiteral("Recovery key is required"));
    run([key](auto api, auto stop) { return api->recoverArchive(key, stop); },
        [this](const ArchiveStatus &status) {
            applyArchiveStatus(status);
            setRecoveryKey(std::nullopt);
            m_with.state.setArchiveMessage(QStringLiteral("Archive vault recovered."));
        });
}

void ArchiveArea::refreshArchiveStatus()
{
    m_refresh.start(
        // The slot keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        [this](std::stop_token stop) -> Task<> { co_await fetchArchiveStatus(std::move(stop)); });
}

Task<Result<ArchiveStatus>> ArchiveArea::fetchArchiveStatus(std::stop_token stop)
{
    const qint64 changesBefore = m_changeEvents;
    const auto status = co_await answerOfObserver<ArchiveStatus>(
        &m_with.observer, &m_with.state, [](auto api, auto token) { return api->archiveStatus(token); }, stop);
    if (!stop.stop_requested() && status && changesBefore == m_changeEvents)
        applyArchiveStatus(*status);
    co_return status;
}

/// The one way to a request that changes something: nothing is sent while another one is in flight.
void ArchiveArea::run(Request request, Adopt adopt)
{
    if (m_busy)
        return;
    setBusy(true);
    m_with.state.clearArchiveMessage();
    m_tasks.spawn([this, request = std::move(request), adopt = std::move(adopt)](std::stop_token stop) {
        return runFlow(request, adopt, std::move(stop));
    });
}

Task<> ArchiveArea::runFlow(Request request, Adopt adopt, std::stop_token stop)
{
    checkedIncrement(m_changeEvents);
    const auto answer = co_await answerOfObserver(&m_with.observer, &m_with.state, std::move(request), stop);
    if (stop.stop_requested())
        co_return;
    checkedIncrement(m_changeEvents);
    if (answer)
        adopt(*answer);
    else
        m_with.state.setArchiveError(answer.error().localizedDescription);
    setBusy(false);
}

/// Into both records, so that a screen that edits the settings doesn't take it for an edit. The file is left alone: the
/// observer keeps these two itself.
void ArchiveArea::applyArchiveStatus(const ArchiveStatus &status)
{
    const auto mirrored = [&status](ObserverSettings settings) {
        settings.archiveEnabled = status.archiveEnabled;
        settings.archiveVaultId = status.archiveVaultId;
        return settings;
    };
    m_with.state.setSettings(mirrored(m_with.state.settings()));
    m_with.state.setDraftSettings(mirrored(m_with.state.draftSettings()));
}

void ArchiveArea::setStep(std::optional<ArchiveWizardStep> step)
{
    if (step == m_step)
        return;
    m_step = step;
    Q_EMIT archiveWizardStepChanged();
}

void ArchiveArea::setRecoveryKey(const std::optional<QString> &key)
{
    if (key == m_recoveryKey)
        return;
    m_recoveryKey = key;
    Q_EMIT archiveRecoveryKeyChanged();
}

void ArchiveArea::setBusy(bool busy)
{
    if (busy == m_busy)
        return;
    m_busy = busy;
    Q_EMIT archiveBusyChanged();
}

} // namespace ostrel
