#pragma once

#include "observer/ObserverSettings.h"
#include "observer/WireRecords.h"

#include <QObject>
#include <QString>
#include <optional>

namespace ostrel {

/// What several areas of the model write. Setting the value that is there already announces nothing. Main thread.
class ModelState : public QObject
{
    Q_OBJECT

public:
    explicit ModelState(ObserverSettings settings);

    /// The settings in force.
    const ObserverSettings &settings() const { return m_settings; }
    void setSettings(const ObserverSettings &settings);

    /// The working copy of whoever edits the settings.
    const ObserverSettings &draftSettings() const { return m_draftSettings; }
    void setDraftSettings(const ObserverSettings &settings);

    /// The observer's last answer; none until the first one.
    const std::optional<ObserverStatus> &status() const { return m_status; }
    void setStatus(const ObserverStatus &status);
    /// Whether the observer records, as far as its last answer tells.
    bool observerIsRunning() const { return m_status && m_status->running; }
    /// The observer that gave the last answer is gone, and what it said of its recording with it.
    void setObserverNotRunning();

    /// What is wrong with the observer, the recording or the settings, in words for the user.
    const std::optional<QString> &helperError() const { return m_helperError; }
    void setHelperError(const std::optional<QString> &message);

    /// One line of feedback under the archive's controls, and whether it tells of an error.
    const std::optional<QString> &archiveMessage() const { return m_archiveMessage; }
    bool archiveMessageIsError() const { return m_archiveMessageIsError; }
    void setArchiveMessage(const QString &message) { showArchiveMessage(message, false); }
    void setArchiveError(const QString &message) { showArchiveMessage(message, true); }
    void clearArchiveMessage() { showArchiveMessage(std::nullopt, false); }

Q_SIGNALS:
    void settingsChanged();
    void draftSettingsChanged();
    void statusChanged();
    void helperErrorChanged();
    void archiveMessageChanged();

private:
    void showArchiveMessage(const std::optional<QString> &message, bool isError);

    ObserverSettings m_settings;
    ObserverSettings m_draftSettings;
    std::optional<ObserverStatus> m_status;
    std::optional<QString> m_helperError;
    std::optional<QString> m_archiveMessage;
    bool m_archiveMessageIsError = false;
};

} // namespace ostrel
