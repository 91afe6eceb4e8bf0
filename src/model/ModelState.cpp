#include "model/ModelState.h"

namespace ostrel {

ModelState::ModelState(ObserverSettings settings) : m_settings(std::move(settings)), m_draftSettings(m_settings) {}

void ModelState::setSettings(const ObserverSettings &settings)
{
    if (settings == m_settings)
        return;
    m_settings = settings;
    Q_EMIT settingsChanged();
}

void ModelState::setDraftSettings(const ObserverSettings &settings)
{
    if (settings == m_draftSettings)
        return;
    m_draftSettings = settings;
    Q_EMIT draftSettingsChanged();
}

void ModelState::setStatus(const ObserverStatus &status)
{
    if (status == m_status)
        return;
    m_status = status;
    Q_EMIT statusChanged();
}

void ModelState::setObserverNotRunning()
{
    auto status = m_status;
    if (status) {
        status->running = false;
        setStatus(*status);
    }
}

void ModelState::setHelperError(const std::optional<QString> &message)
{
    if (message == m_helperError)
        return;
    m_helperError = message;
    Q_EMIT helperErrorChanged();
}

void ModelState::showArchiveMessage(const std::optional<QString> &message, bool isError)
{
    if (message == m_archiveMessage && isError == m_archiveMessageIsError)
        return;
    m_archiveMessage = message;
    m_archiveMessageIsError = isError;
    Q_EMIT archiveMessageChanged();
}

} // namespace ostrel
