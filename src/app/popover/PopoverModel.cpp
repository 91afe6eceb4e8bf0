#include "app/popover/PopoverModel.h"

#include "model/AppModel.h"

namespace ostrel {

PopoverModel::PopoverModel(Dependencies with)
    : m_model(with.model), m_appVersion(std::move(with.appVersion)), m_checkForUpdates(std::move(with.checkForUpdates)),
      m_permissions(with.model), m_journal(with.model, with.defaults, with.clock), m_settings(with.model),
      m_archive(with.model), m_archiveTarget(with.model), m_export(with.model), m_autostart(with.autostart)
{
    for (const auto signal : {&AppModel::settingsChanged, &AppModel::statusChanged, &AppModel::helperErrorChanged,
                              &AppModel::stoppingRecordingChanged, &AppModel::pendingRecordingRestartChanged,
                              &AppModel::recordingUnderWayChanged})
        connect(&m_model, signal, this, &PopoverModel::recorderChanged);
    connect(&m_model, &AppModel::popoverOverlayActiveChanged, this, &PopoverModel::popoverOverlayActiveChanged);
}

bool PopoverModel::isRecording() const
{
    return m_model.isRecording();
}

bool PopoverModel::isWaiting() const
{
    return m_model.stoppingRecording() || (m_model.isRecordingUnderWay() && !m_model.isRecording());
}

QString PopoverModel::recordButtonTitle() const
{
    return m_model.recordButtonTitle();
}

QString PopoverModel::recorderSubtext() const
{
    return m_model.recorderSubtext();
}

bool PopoverModel::recorderSubtextIsError() const
{
    return m_model.recorderSubtextIsError();
}

bool PopoverModel::recorderSubtextIsBackfillNotice() const
{
    return m_model.recorderSubtextIsBackfillNotice();
}

QString PopoverModel::recordingProviderIndicatorText() const
{
    return m_model.recordingProviderIndicatorText().value_or(QString());
}

bool PopoverModel::popoverOverlayActive() const
{
    return m_model.popoverOverlayActive();
}

QString PopoverModel::versionText() const
{
    return QStringLiteral("v") + m_appVersion;
}

void PopoverModel::toggleRecording()
{
    m_model.toggleRecording();
}

void PopoverModel::refreshJournal()
{
    m_model.refreshJournal();
}

void PopoverModel::checkForUpdates()
{
    if (m_checkForUpdates)
        m_checkForUpdates();
}

void PopoverModel::quit()
{
    m_model.quit();
}

} // namespace ostrel
