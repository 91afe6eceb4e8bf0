#pragma once

#include "base/Task.h"
#include "base/TaskSlot.h"
#include "model/DialogHost.h"

#include <QString>
#include <stop_token>

namespace ostrel {

class ModelState;
class NativeModals;
class SerialQueue;
class SettingsEditing;

/// What whoever edits the settings is asked, and the folder that is chosen and shown. Main thread, which it never
/// blocks.
class SettingsDialogs
{
public:
    struct Dependencies {
        ModelState &state;
        NativeModals &modals;
        SettingsEditing &editing;
        DialogHost &dialogs; ///< shows the folder
        SerialQueue &worker; ///< makes it
    };

    /// What the dependencies name outlives this object.
    explicit SettingsDialogs(Dependencies dependencies);
    SettingsDialogs(const SettingsDialogs &) = delete;
    SettingsDialogs &operator=(const SettingsDialogs &) = delete;
    /// Takes away the dialogs that are up; nobody is allowed to leave then.
    ~SettingsDialogs();

    /// Whether the settings screen may be left: asks what becomes of unsaved changes, where there are any, and saves
    /// or discards them. A failed save keeps the user there, and the helper error says why.
    /// @return false also at once, while the user is being asked already
    Task<bool> prepareToLeaveSettings();

    /// Starts to ask for the folder of the journal, for the working copy alone. Calls meanwhile change nothing.
    void chooseOutputDirectory();
    /// Starts to show the folder of the saved settings, made first where it is missing. One that can't be made is not
    /// shown. Calls meanwhile change nothing.
    void revealOutputDirectory();

private:
    Task<bool> confirmLeaveSettingsWithUnsavedChanges(std::stop_token stop);
    Task<> askForOutputDirectory(std::stop_token stop);
    Task<> makeAndShow(QString folder, std::stop_token stop);

    const Dependencies m_with;
    bool m_isLeaving = false;
    std::stop_source m_life;
    TaskSlot m_choosing;
    TaskSlot m_revealing;
};

} // namespace ostrel
