#include "model/ByokInference.h"

#include "base/Clock.h"
#include "base/Paths.h"
#include "base/Text.h"
#include "model/InferenceSettings.h"
#include "model/ModelState.h"
#include "model/NativeModals.h"
#include "model/SettingsEditing.h"

namespace ostrel {

namespace {

bool holdsApiKey(const ObserverSettings &settings)
{
    return !trimmedBlanksAndNewlines(settings.byokGoogleVertexApiKey).isEmpty();
}

DialogAlert credentialQuestion()
{
    return {
        .message = QStringLiteral("Add BYOK inference key"),
        .informativeText =
            QStringLiteral("Choose how this Mac should authenticate to the customer's Vertex AI endpoint."),
        .buttons = {QStringLiteral("Service Account"), QStringLiteral("API Key"), QStringLiteral("Cancel")},
        .fields = {},
    };
}

DialogAlert apiKeyForm(const ObserverSettings &draft)
{
    return {
        .message = QStringLiteral("Vertex AI API key"),
        .informativeText =
            QStringLiteral("API keys are best for quick setup. For production deployments, prefer a service account."),
        .buttons = {QStringLiteral("Save Key"), QStringLiteral("Cancel")},
        .fields = {{.label = QStringLiteral("API key"),
                    .placeholder = holdsApiKey(draft) ? QStringLiteral("Existing API key saved")
                                                      : QStringLiteral("Google Cloud API key"),
                    .text = {},
                    .secure = true},
                   {.label = QStringLiteral("Project"),
                    .placeholder = QStringLiteral("Project ID (optional for express mode)"),
                    .text = draft.byokGoogleVertexProjectId}},
    };
}

OpenPanel serviceAccountPanel()
{
    OpenPanel panel;
    panel.message = QStringLiteral("Choose a Google Cloud service account JSON file.");
    panel.allowedFileTypes = {QStringLiteral("json")};
    return panel;
}

DialogAlert switchQuestion()
{
    return {
        .message = QStringLiteral("Switch to Ostrel-managed inference?"),
        .informativeText = QStringLiteral("New analysis will use Ostrel-managed inference. The saved BYOK key or "
                                          "service account path on this Mac will be removed."),
        .buttons = {QStringLiteral("Switch"), QStringLiteral("Cancel")},
        .fields = {},
    };
}

} // namespace

ByokInference::ByokInference(Dependencies dependencies) : m_with(dependencies) {}

ByokInference::~ByokInference()
{
    m_life.request_stop();
}

void ByokInference::addByokInferenceKey()
{
    if (m_byokModalActive)
        return;
    setByokModalActive(true);
    m_keyFlow.start([this](std::stop_token stop) { return runByokInferenceKeyFlow(std::move(stop)); });
}

Task<> ByokInference::runByokInferenceKeyFlow(std::stop_token stop)
{
    const ObserverSettings before = m_with.state.draftSettings();
    bool isTold = false;
    const auto choice = co_await promptForByokCredentialChoice(stop);
    if (choice == CredentialChoice::ServiceAccount)
        isTold = co_await promptForByokServiceAccount(stop);
    else if (choice == CredentialChoice::ApiKey)
        isTold = co_await promptForByokApiKey(stop);
    if (stop.stop_requested())
        co_return;
    const ObserverSettings draft = m_with.state.draftSettings();
    if (isTold && draft != before && usesGoogleVertex(draft))
        co_await m_with.editing.saveByokSettings(draft);
    // The save may be let go of when we are gone already.
    if (!stop.stop_requested())
        co_await endByokModalAfterDismissal(stop);
}

Task<ByokInference::CredentialChoice> ByokInference::promptForByokCredentialChoice(std::stop_token stop)
{
    const auto answer =
        co_await m_with.modals.presentAlert(credentialQuestion(), DialogResponse::thirdButton, std::move(stop));
    if (answer.response == DialogResponse::firstButton)
        co_return CredentialChoice::ServiceAccount;
    co_return answer.response == DialogResponse::secondButton ? CredentialChoice::ApiKey : CredentialChoice::Cancelled;
}

Task<bool> ByokInference::promptForByokApiKey(std::stop_token stop)
{
    const auto answer = co_await m_with.modals.presentAlert(apiKeyForm(m_with.state.draftSettings()),
                                                            DialogResponse::secondButton, stop);
    if (stop.stop_requested() || answer.response != DialogResponse::firstButton)
        co_return false;
    co_return takeApiKey(trimmedBlanksAndNewlines(answer.fields.value(0)),
                         trimmedBlanksAndNewlines(answer.fields.value(1)));
}

/// An empty key stands for the one that is there.
bool ByokInference::takeApiKey(const QString &key, const QString &project)
{
    ObserverSettings draft = m_with.state.draftSettings();
    if (key.isEmpty() && !holdsApiKey(draft)) {
        m_with.state.setHelperError(QStringLiteral("Enter a Vertex AI API key."));
        return false;
    }
    draft.inferenceProvider = InferenceProvider::googleVertex;
    draft.byokGoogleVertexAuthMode = VertexAuthMode::apiKey;
    if (!key.isEmpty())
        draft.byokGoogleVertexApiKey = key;
    draft.byokGoogleVertexProjectId = project;
    draft.byokGoogleVertexServiceAccountPath.clear();
    m_with.state.setDraftSettings(draft);
    return true;
}

Task<bool> ByokInference::promptForByokServiceAccount(std::stop_token stop)
{
    const auto answer = co_await m_with.modals.presentOpenPanel(serviceAccountPanel(), stop);
    if (stop.stop_requested() || answer.response != DialogResponse::ok || answer.path.isEmpty())
        co_return false;
    takeServiceAccount(answer.path);
    co_return true;
}

/// The file is not looked at: the observer says what is wrong with it.
void ByokInference::takeServiceAccount(const QString &path)
{
    ObserverSettings draft = m_with.state.draftSettings();
    draft.inferenceProvider = InferenceProvider::googleVertex;
    draft.byokGoogleVertexAuthMode = VertexAuthMode::serviceAccount;
    draft.byokGoogleVertexApiKey.clear();
    draft.byokGoogleVertexServiceAccountPath = abbreviatedPath(path);
    draft.byokGoogleVertexProjectId.clear();
    m_with.state.setDraftSettings(draft);
}

Task<> ByokInference::endByokModalAfterDismissal(std::stop_token stop)
{
    if (co_await m_with.clock.sleepFor(std::chrono::milliseconds(dismissalGraceMs), std::move(stop)))
        setByokModalActive(false);
}

void ByokInference::setByokModalActive(bool active)
{
    m_byokModalActive = active;
    Q_EMIT byokModalActiveChanged();
}

Task<bool> ByokInference::confirmUseOstrelInferenceIfNeeded()
{
    if (m_isConfirming)
        co_return false;
    if (!usesGoogleVertex(m_with.state.draftSettings()) && !usesGoogleVertex(m_with.state.settings()))
        co_return true;
    m_isConfirming = true;
    const std::stop_token stop = m_life.get_token();
    const auto answer = co_await m_with.modals.runNativeModal(switchQuestion(), stop);
    if (stop.stop_requested())
        co_return false;
    m_isConfirming = false;
    co_return answer.response == DialogResponse::firstButton;
}

void ByokInference::useOstrelInference()
{
    if (!m_switch.isRunning())
        m_switch.start([this](std::stop_token stop) { return switchToOstrelInference(std::move(stop)); });
}

Task<> ByokInference::switchToOstrelInference(std::stop_token stop)
{
    const bool isConfirmed = co_await confirmUseOstrelInferenceIfNeeded();
    if (!isConfirmed || stop.stop_requested())
        co_return;
    ObserverSettings next = m_with.state.draftSettings();
    next.inferenceProvider = InferenceProvider::ostrel;
    next.byokGoogleVertexAuthMode = ObserverSettings::defaults().byokGoogleVertexAuthMode;
    next.byokGoogleVertexProjectId.clear();
    next.byokGoogleVertexApiKey.clear();
    next.byokGoogleVertexServiceAccountPath.clear();
    co_await m_with.editing.saveByokSettings(next);
}

} // namespace ostrel
