#pragma once

#include "base/Task.h"
#include "base/TaskSlot.h"
#include "model/DialogHost.h"
#include "observer/ObserverSettings.h"

#include <QObject>
#include <stop_token>

namespace ostrel {

class Clock;
class ModelState;
class NativeModals;
class SettingsEditing;

/// Where pictures are analysed: at Ostrel's server, or at Google Vertex AI with a key or a service account of the
/// user's own ("bring your own key"). Leads the user through the change from one to the other and saves it at once.
/// Main thread, which it never blocks.
class ByokInference : public QObject
{
    Q_OBJECT

public:
    /// For so long after its last dialog the key flow still counts as up.
    static constexpr int dismissalGraceMs = 1000;

    struct Dependencies {
        Clock &clock;
        ModelState &state;
        NativeModals &modals;
        SettingsEditing &editing;
    };

    /// What the dependencies name outlives this object.
    explicit ByokInference(Dependencies dependencies);
    /// Takes away the dialogs that are up.
    ~ByokInference() override;

    /// From the start of the key flow until the grace after its end is over.
    bool byokModalActive() const { return m_byokModalActive; }
    /// Starts the key flow: asks for a service account or an API key, puts it into the working copy and saves that.
    /// What went wrong is the helper error. Does nothing while `byokModalActive`.
    void addByokInferenceKey();

    /// Whether analysis may go to Ostrel's server: asks where the saved settings or the working copy use Vertex.
    /// @return false also at once, while the user is being asked already
    Task<bool> confirmUseOstrelInferenceIfNeeded();
    /// Starts the way back: asks as above, then takes everything of Vertex out of the working copy and saves that,
    /// which removes the key from its store. Calls meanwhile change nothing.
    void useOstrelInference();

Q_SIGNALS:
    void byokModalActiveChanged();

private:
    enum class CredentialChoice { ServiceAccount, ApiKey, Cancelled };

    Task<> runByokInferenceKeyFlow(std::stop_token stop);
    Task<CredentialChoice> promptForByokCredentialChoice(std::stop_token stop);
    /// Both put what they are told into the working copy. @return whether they were told anything
    Task<bool> promptForByokApiKey(std::stop_token stop);
    Task<bool> promptForByokServiceAccount(std::stop_token stop);
    bool takeApiKey(const QString &key, const QString &project);
    void takeServiceAccount(const QString &path);
    Task<> endByokModalAfterDismissal(std::stop_token stop);
    void setByokModalActive(bool active);
    Task<> switchToOstrelInference(std::stop_token stop);

    const Dependencies m_with;
    bool m_byokModalActive = false;
    bool m_isConfirming = false;
    std::stop_source m_life;
    TaskSlot m_keyFlow;
    TaskSlot m_switch;
};

} // namespace ostrel
