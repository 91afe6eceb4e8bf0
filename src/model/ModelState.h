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

Q_SIGNALS:
    void settingsChanged();
    void draftSettingsChanged();
    void statusChanged();
    void helperErrorChanged();

private:
    ObserverSettings m_settings;
    ObserverSettings m_draftSettings;
    std::optional<ObserverStatus> m_status;
    std::optional<QString> m_helperError;
};

} // namespace ostrel
