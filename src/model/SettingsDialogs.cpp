#include "model/SettingsDialogs.h"

#include "base/Paths.h"
#include "base/SerialQueue.h"
#include "model/ModelState.h"
#include "model/NativeModals.h"
#include "model/SettingsEditing.h"

namespace ostrel {

SettingsDialogs::SettingsDialogs(Dependencies dependencies) : m_with(dependencies) {}

SettingsDialogs::~SettingsDialogs()
{
    m_life.request_stop();
}

Task<bool> SettingsDialogs::prepareToLeaveSettings()
{
    if (m_isLeaving)
        co_return false;
    if (m_with.state.draftSettings() == m_with.state.settings())
        co_return true;
    m_isLeaving = true;
    const std::stop_token stop = m_life.get_token();
    const bool mayLeave = co_await confirmLeaveSettingsWithUnsavedChanges(stop);
    if (stop.stop_requested())
        co_return false;
    m_isLeaving = false;
    co_return mayLeave;
}

Task<bool> SettingsDialogs::confirmLeaveSettingsWithUnsavedChanges(std::stop_token stop)
{
    const auto answer = co_await m_with.modals.runNativeModal(
        DialogAlert{
            .message = QStringLiteral("Save settings changes?"),
            .informativeText = QStringLiteral("You have unsaved settings changes."),
            .buttons = {QStringLiteral("Save"), QStringLiteral("Discard"), QStringLiteral("Cancel")},
            .fields = {},
        },
        stop);
    if (stop.stop_requested())
        co_return false;
    if (answer.response == DialogResponse::firstButton)
        co_return co_await m_with.editing.saveSettings(m_with.state.draftSettings());
    if (answer.response != DialogResponse::secondButton)
        co_return false;
    m_with.state.setDraftSettings(m_with.state.settings());
    co_return true;
}

void SettingsDialogs::chooseOutputDirectory()
{
    if (!m_choosing.isRunning())
        m_choosing.start([this](std::stop_token stop) { return askForOutputDirectory(std::move(stop)); });
}

Task<> SettingsDialogs::askForOutputDirectory(std::stop_token stop)
{
    OpenPanel panel;
    panel.canChooseFiles = false;
    panel.canChooseDirectories = true;
    panel.directory = expandedPath(m_with.state.draftSettings().outputDirectory);
    const auto answer = co_await m_with.modals.runNativeModal(std::move(panel), stop);
    if (stop.stop_requested() || answer.response != DialogResponse::ok || answer.path.isEmpty())
        co_return;
    ObserverSettings draft = m_with.state.draftSettings();
    draft.outputDirectory = abbreviatedPath(answer.path);
    m_with.state.setDraftSettings(draft);
}

void SettingsDialogs::revealOutputDirectory()
{
    const QString folder = expandedPath(m_with.state.settings().outputDirectory);
    if (!m_revealing.isRunning() && !folder.isEmpty())
        m_revealing.start([this, folder](std::stop_token stop) { return makeAndShow(folder, std::move(stop)); });
}

Task<> SettingsDialogs::makeAndShow(QString folder, std::stop_token stop)
{
    const auto exists = co_await m_with.worker.run(std::move(stop), [folder] { return makePrivateDirectory(folder); });
    if (exists.value_or(false))
        m_with.dialogs.openFolder(folder);
}

} // namespace ostrel
