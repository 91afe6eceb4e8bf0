#include "model/ByokInference.h"
#include "SettingsFixture.h"
#include "model/InferenceSettings.h"
#include "model/NativeModals.h"
#include "support/FakeDialogHost.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const int serviceAccount = DialogResponse::firstButton;
const int apiKey = DialogResponse::secondButton;
const int cancelChoice = DialogResponse::thirdButton;
const int saveKey = DialogResponse::firstButton;
const int cancelKey = DialogResponse::secondButton;

class Byok : public SettingsFixture
{
protected:
    Byok()
    {
        QObject::connect(m_byok.get(), &ByokInference::byokModalActiveChanged,
                         [this] { m_announced.append(m_byok->byokModalActive()); });
    }

    /// Opens the key flow and answers its first question.
    void choose(int button)
    {
        m_dialogs.expectDialogs(button == cancelChoice ? 1 : 2);
        m_byok->addByokInferenceKey();
        m_dialogs.answer(button);
    }
    void enterKey(const QString &key, const QString &project = {})
    {
        choose(apiKey);
        m_dialogs.answer(saveKey, {key, project});
        settle();
    }
    void acceptSaves() { m_transport.always(putSettings, accepted()); }
    void useVertex(const char *key = "saved key")
    {
        ObserverSettings settings = m_state.settings();
        settings.inferenceProvider = InferenceProvider::googleVertex;
        settings.byokGoogleVertexApiKey = QLatin1String(key);
        settings.byokGoogleVertexProjectId = QStringLiteral("project");
        m_state.setSettings(settings);
        m_state.setDraftSettings(settings);
        m_secrets.put(vertexApiKeyService, QLatin1String(key));
    }
    void confirm()
    {
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn([this](std::stop_token) -> Task<> {
            const bool confirmed = co_await m_byok->confirmUseOstrelInferenceIfNeeded();
            note(confirmed ? "confirmed" : "not confirmed");
        });
    }
    void expectNothingChanged(const ObserverSettings &draft, const ObserverSettings &settings)
    {
        settle();
        EXPECT_EQ(m_state.draftSettings(), draft);
        EXPECT_EQ(m_state.settings(), settings);
        EXPECT_EQ(m_state.helperError(), std::nullopt);
        EXPECT_EQ(m_secrets.calls(), QStringList());
    }

    FakeDialogHost m_dialogs;
    NativeModals m_modals{m_clock, m_dialogs};
    std::unique_ptr<ByokInference> m_byok = std::make_unique<ByokInference>(
        ByokInference::Dependencies{.clock = m_clock, .state = m_state, .modals = m_modals, .editing = *m_editing});
    QList<bool> m_announced;
};

TEST_F(Byok, keyFlow_firstAsksHowToAuthenticate)
{
    m_dialogs.expectDialog();
    m_byok->addByokInferenceKey();
    EXPECT_EQ(m_dialogs.alert(),
              (DialogAlert{
                  .message = QStringLiteral("Add BYOK inference key"),
                  .informativeText =
                      QStringLiteral("Choose how this Mac should authenticate to the customer's Vertex AI endpoint."),
                  .buttons = {QStringLiteral("Service Account"), QStringLiteral("API Key"), QStringLiteral("Cancel")},
                  .fields = {}}));
    EXPECT_EQ(m_dialogs.placement(), DialogPlacement::Sheet);
    m_dialogs.answer(cancelChoice);
}

TEST_F(Byok, apiKeyForm_hasASecretFieldAndThePrefilledProject)
{
    ObserverSettings draft = m_state.draftSettings();
    draft.byokGoogleVertexProjectId = QStringLiteral("project");
    m_state.setDraftSettings(draft);
    choose(apiKey);
    EXPECT_EQ(
        m_dialogs.alert(),
        (DialogAlert{.message = QStringLiteral("Vertex AI API key"),
                     .informativeText = QStringLiteral(
                         "API keys are best for quick setup. For production deployments, prefer a service account."),
                     .buttons = {QStringLiteral("Save Key"), QStringLiteral("Cancel")},
                     .fields = {{.label = QStringLiteral("API key"),
                                 .placeholder = QStringLiteral("Google Cloud API key"),
                                 .text = {},
                                 .secure = true,
                                 .width = 320,
                                 .height = 24},
                                {.label = QStringLiteral("Project"),
                                 .placeholder = QStringLiteral("Project ID (optional for express mode)"),
                                 .text = QStringLiteral("project"),
                                 .secure = false,
                                 .width = 320,
                                 .height = 24}}}));
    EXPECT_EQ(m_dialogs.placement(), DialogPlacement::Sheet);
    m_dialogs.answer(cancelKey);
}

TEST_F(Byok, apiKeyFormWhileAKeyIsSaved_saysSoAndDoesNotShowIt)
{
    useVertex();
    choose(apiKey);
    EXPECT_EQ(m_dialogs.alert().fields.value(0).placeholder, QStringLiteral("Existing API key saved"));
    EXPECT_EQ(m_dialogs.alert().fields.value(0).text, QString());
    m_dialogs.answer(cancelKey);
}

TEST_F(Byok, apiKey_isTrimmedAndSavedAtOnceWithoutTheServiceAccount)
{
    acceptSaves();
    ObserverSettings draft = m_state.draftSettings();
    draft.byokGoogleVertexServiceAccountPath = QStringLiteral("~/account.json");
    m_state.setDraftSettings(draft);
    enterKey(QStringLiteral(" new key\n"), QStringLiteral("\tproject "));
    EXPECT_EQ(m_state.settings().inferenceProvider, QStringLiteral("google_vertex_ai"));
    EXPECT_EQ(m_state.settings().byokGoogleVertexAuthMode, QStringLiteral("api_key"));
    EXPECT_EQ(m_state.settings().byokGoogleVertexApiKey, QStringLiteral("new key"));
    EXPECT_EQ(m_state.settings().byokGoogleVertexProjectId, QStringLiteral("project"));
    EXPECT_EQ(m_state.settings().byokGoogleVertexServiceAccountPath, QString());
    EXPECT_EQ(m_state.draftSettings(), m_state.settings());
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("new key"));
    EXPECT_EQ(onDisk().byokGoogleVertexApiKey, QString());
    EXPECT_EQ(m_transport.count(putSettings), 1);
}

TEST_F(Byok, apiKeyOfOnlySpacesWhileOneIsSaved_keepsItAndSwitchesTheMode)
{
    acceptSaves();
    useVertex("saved key");
    ObserverSettings settings = m_state.settings();
    settings.byokGoogleVertexAuthMode = VertexAuthMode::serviceAccount;
    m_state.setSettings(settings);
    m_state.setDraftSettings(settings);
    enterKey(QStringLiteral("   "));
    EXPECT_EQ(m_state.settings().byokGoogleVertexAuthMode, QStringLiteral("api_key"));
    EXPECT_EQ(m_state.settings().byokGoogleVertexApiKey, QStringLiteral("saved key"));
    EXPECT_EQ(m_state.settings().byokGoogleVertexProjectId, QString());
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("saved key"));
}

TEST_F(Byok, apiKeyOfOnlySpacesWithoutASavedOne_isRefusedInWords)
{
    const ObserverSettings before = m_state.settings();
    enterKey(QStringLiteral(" \n"));
    EXPECT_EQ(m_state.helperError(), QStringLiteral("Enter a Vertex AI API key."));
    EXPECT_EQ(m_state.draftSettings(), before);
    EXPECT_EQ(m_state.settings(), before);
    EXPECT_EQ(m_transport.requests().size(), 0);
}

TEST_F(Byok, serviceAccountPanel_choosesOneJsonFile)
{
    choose(serviceAccount);
    OpenPanel expected;
    expected.message = QStringLiteral("Choose a Google Cloud service account JSON file.");
    expected.allowedFileTypes = {QStringLiteral("json")};
    EXPECT_EQ(m_dialogs.openPanel(), expected);
    EXPECT_TRUE(expected.canChooseFiles);
    EXPECT_FALSE(expected.canChooseDirectories);
    EXPECT_EQ(m_dialogs.placement(), DialogPlacement::Sheet);
    m_dialogs.leave();
}

TEST_F(Byok, serviceAccount_isSavedAtOnceWithoutKeyAndProject)
{
    acceptSaves();
    useVertex("saved key");
    choose(serviceAccount);
    m_dialogs.choose(m_home.path(QStringLiteral("keys/account.json")));
    settle();
    EXPECT_EQ(m_state.settings().inferenceProvider, QStringLiteral("google_vertex_ai"));
    EXPECT_EQ(m_state.settings().byokGoogleVertexAuthMode, QStringLiteral("service_account"));
    EXPECT_EQ(m_state.settings().byokGoogleVertexServiceAccountPath, QStringLiteral("~/keys/account.json"));
    EXPECT_EQ(m_state.settings().byokGoogleVertexApiKey, QString());
    EXPECT_EQ(m_state.settings().byokGoogleVertexProjectId, QString());
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), std::nullopt);
    EXPECT_EQ(onDisk(), m_state.settings());
}

TEST_F(Byok, choiceCancelled_leavesDraftAndSettings)
{
    m_state.setDraftSettings(withModel("edited"));
    const ObserverSettings draft = m_state.draftSettings();
    choose(cancelChoice);
    expectNothingChanged(draft, m_state.settings());
}

TEST_F(Byok, keyAlertCancelled_leavesDraftAndSettings)
{
    m_state.setDraftSettings(withModel("edited"));
    const ObserverSettings draft = m_state.draftSettings();
    choose(apiKey);
    m_dialogs.answer(cancelKey, {QStringLiteral("typed"), QStringLiteral("typed")});
    expectNothingChanged(draft, m_state.settings());
}

TEST_F(Byok, filePanelCancelled_leavesDraftAndSettings)
{
    m_state.setDraftSettings(withModel("edited"));
    const ObserverSettings draft = m_state.draftSettings();
    choose(serviceAccount);
    m_dialogs.leave();
    expectNothingChanged(draft, m_state.settings());
}

TEST_F(Byok, cancelledWhileSomebodyElseChangesTheDraft_savesNothing)
{
    useVertex();
    choose(apiKey);
    m_state.setDraftSettings(withModel("edited"));
    const ObserverSettings before = m_state.settings();
    m_dialogs.answer(cancelKey);
    settle();
    EXPECT_EQ(m_state.settings(), before);
    EXPECT_EQ(m_transport.requests().size(), 0);
}

TEST_F(Byok, sameServiceAccountAgain_savesNothing)
{
    ObserverSettings settings = m_state.settings();
    settings.inferenceProvider = InferenceProvider::googleVertex;
    settings.byokGoogleVertexAuthMode = VertexAuthMode::serviceAccount;
    settings.byokGoogleVertexServiceAccountPath = QStringLiteral("/account.json");
    m_state.setSettings(settings);
    m_state.setDraftSettings(settings);
    choose(serviceAccount);
    m_dialogs.choose(QStringLiteral("/account.json"));
    expectNothingChanged(settings, settings);
}

TEST_F(Byok, saveThatFails_isTheHelperErrorAndTheDraftKeepsTheChoice)
{
    breakTheFile();
    const ObserverSettings before = m_state.settings();
    enterKey(QStringLiteral("new key"));
    EXPECT_EQ(m_state.settings(), before);
    EXPECT_EQ(m_state.draftSettings().byokGoogleVertexApiKey, QStringLiteral("new key"));
    EXPECT_TRUE(m_state.helperError().has_value());
}

TEST_F(Byok, withoutAnyWindow_isCancelledWithoutAnAlert)
{
    m_dialogs.presentationWindow = false;
    const ObserverSettings before = m_state.settings();
    m_byok->addByokInferenceKey();
    EXPECT_TRUE(m_byok->byokModalActive()) << "for the grace";
    expectNothingChanged(before, before);
    m_clock.advance(1s);
    EXPECT_FALSE(m_byok->byokModalActive());
}

TEST_F(Byok, windowThatGoesBetweenTheAlerts_cancelsTheKeyAlert)
{
    const ObserverSettings before = m_state.settings();
    m_dialogs.expectDialog();
    m_byok->addByokInferenceKey();
    m_dialogs.presentationWindow = false;
    m_dialogs.answer(apiKey);
    expectNothingChanged(before, before);
}

TEST_F(Byok, flow_isActiveUntilASecondAfterItsEnd)
{
    m_dialogs.expectDialog();
    m_byok->addByokInferenceKey();
    m_clock.advance(1min);
    EXPECT_TRUE(m_byok->byokModalActive());
    m_dialogs.answer(cancelChoice);
    m_clock.advance(999ms);
    EXPECT_TRUE(m_byok->byokModalActive());
    m_clock.advance(1ms);
    EXPECT_FALSE(m_byok->byokModalActive());
    EXPECT_EQ(m_announced, QList<bool>({true, false}));
}

TEST_F(Byok, secondFlowDuringTheFirstOrItsGrace_doesNothing)
{
    m_dialogs.expectDialog();
    m_byok->addByokInferenceKey();
    m_byok->addByokInferenceKey();
    EXPECT_EQ(m_dialogs.openDialogs(), 1);
    m_dialogs.answer(cancelChoice);
    m_clock.advance(500ms);
    m_byok->addByokInferenceKey();
    EXPECT_EQ(m_dialogs.openDialogs(), 0);
    m_clock.advance(500ms);
    EXPECT_FALSE(m_byok->byokModalActive()) << "nor does it prolong the grace";
    m_dialogs.expectDialog();
    m_byok->addByokInferenceKey();
    m_dialogs.answer(cancelChoice);
}

TEST_F(Byok, keyringThatHangsDuringTheSave_eventsAreHandledMeanwhile)
{
    acceptSaves();
    m_secrets.block();
    choose(apiKey);
    m_dialogs.answer(saveKey, {QStringLiteral("new key"), QString()});
    bool handled = false;
    QMetaObject::invokeMethod(&m_state, [&handled] { handled = true; }, Qt::QueuedConnection);
    settleEvents({&m_observerQueue});
    EXPECT_TRUE(handled);
    EXPECT_EQ(m_state.settings().byokGoogleVertexApiKey, QString());
    m_secrets.unblock();
    settle();
    EXPECT_EQ(m_state.settings().byokGoogleVertexApiKey, QStringLiteral("new key"));
}

TEST_F(Byok, modelGoesMeanwhile_takesTheDialogsAway)
{
    useVertex();
    m_dialogs.expectDialogs(2);
    m_byok->addByokInferenceKey();
    m_byok->useOstrelInference();
    EXPECT_EQ(m_dialogs.openDialogs(), 2);
    m_byok.reset();
    EXPECT_EQ(m_dialogs.openDialogs(), 0);
    EXPECT_EQ(m_state.settings().inferenceProvider, InferenceProvider::googleVertex);
}

TEST_F(Byok, modelGoesDuringTheSave_saveIsSeenThrough)
{
    m_secrets.block();
    choose(apiKey);
    m_dialogs.answer(saveKey, {QStringLiteral("new key"), QString()});
    m_byok.reset();
    m_editing.reset();
    m_secrets.unblock();
    settle();
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("new key"));
}

class SwitchingBack : public Byok
{
protected:
    void switchBack()
    {
        m_dialogs.expectDialog();
        m_byok->useOstrelInference();
        m_dialogs.answer(DialogResponse::firstButton);
        settle();
    }
};

TEST_F(SwitchingBack, neitherDraftNorSettingsUseVertex_showsNoAlert)
{
    confirm();
    EXPECT_EQ(m_steps, QStringList(QStringLiteral("confirmed")));
    EXPECT_FALSE(m_modals.nativeModalActive());
}

TEST_F(SwitchingBack, settingsOrDraftUseVertex_asksInFrontOfEverything)
{
    const DialogAlert question{
        .message = QStringLiteral("Switch to Ostrel-managed inference?"),
        .informativeText = QStringLiteral("New analysis will use Ostrel-managed inference. The saved BYOK key or "
                                          "service account path on this Mac will be removed."),
        .buttons = {QStringLiteral("Switch"), QStringLiteral("Cancel")},
        .fields = {}};
    useVertex();
    const ObserverSettings vertex = m_state.settings();
    for (const bool onlyTheDraft : {true, false}) {
        m_state.setSettings(onlyTheDraft ? ObserverSettings::defaults() : vertex);
        m_state.setDraftSettings(onlyTheDraft ? vertex : ObserverSettings::defaults());
        m_dialogs.expectDialog();
        confirm();
        EXPECT_EQ(m_dialogs.alert(), question);
        EXPECT_EQ(m_dialogs.placement(), DialogPlacement::ApplicationModal);
        m_dialogs.answer(DialogResponse::firstButton);
    }
    EXPECT_EQ(m_steps, QStringList({QStringLiteral("confirmed"), QStringLiteral("confirmed")}));
}

TEST_F(SwitchingBack, cancel_isNoConfirmationAndChangesNothing)
{
    useVertex();
    const ObserverSettings before = m_state.settings();
    m_dialogs.expectDialogs(2);
    confirm();
    m_dialogs.answer(DialogResponse::secondButton);
    EXPECT_EQ(m_steps, QStringList(QStringLiteral("not confirmed")));
    m_byok->useOstrelInference();
    m_dialogs.answer(DialogResponse::secondButton);
    expectNothingChanged(before, before);
}

TEST_F(SwitchingBack, confirmed_takesEverythingOfVertexOutAndSavesWithTheOtherEdits)
{
    acceptSaves();
    useVertex();
    ObserverSettings draft = m_state.draftSettings();
    draft.byokGoogleVertexAuthMode = VertexAuthMode::serviceAccount;
    draft.byokGoogleVertexServiceAccountPath = QStringLiteral("/account.json");
    draft.model = QStringLiteral("edited");
    m_state.setDraftSettings(draft);
    switchBack();
    ObserverSettings expected = ObserverSettings::defaults();
    expected.model = QStringLiteral("edited");
    EXPECT_EQ(m_state.settings(), expected);
    EXPECT_EQ(m_state.draftSettings(), expected);
    EXPECT_EQ(onDisk(), expected);
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), std::nullopt);
    EXPECT_EQ(m_state.helperError(), std::nullopt);
}

TEST_F(SwitchingBack, keyThatCouldNotBeRead_isRemovedAllTheSame)
{
    acceptSaves();
    useVertex();
    ObserverSettings unread = m_state.settings();
    unread.byokGoogleVertexApiKey.clear();
    m_state.setSettings(unread);
    m_state.setDraftSettings(unread);
    switchBack();
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), std::nullopt);
}

TEST_F(SwitchingBack, keyThatCannotBeRemoved_isSaidAndCanBeTriedAgain)
{
    acceptSaves();
    useVertex();
    m_secrets.setFaults({.removals = true});
    switchBack();
    EXPECT_EQ(m_state.settings().inferenceProvider, InferenceProvider::ostrel);
    EXPECT_EQ(m_state.helperError(), QStringLiteral("byokGoogleVertexApiKey could not be removed from where secrets "
                                                    "are kept. Is the keyring locked?"));
    m_secrets.setFaults({});
    m_byok->useOstrelInference();
    settle();
    EXPECT_EQ(m_state.helperError(), std::nullopt);
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), std::nullopt);
}

TEST_F(SwitchingBack, saveThatFails_keepsTheDraft)
{
    breakTheFile();
    useVertex();
    const ObserverSettings before = m_state.settings();
    switchBack();
    EXPECT_EQ(m_state.settings(), before);
    EXPECT_EQ(m_state.draftSettings(), before);
    EXPECT_TRUE(m_state.helperError().has_value());
}

TEST_F(SwitchingBack, askedAgainMeanwhile_asksOnce)
{
    useVertex();
    m_dialogs.expectDialog();
    m_byok->useOstrelInference();
    m_byok->useOstrelInference();
    confirm();
    EXPECT_EQ(m_steps, QStringList(QStringLiteral("not confirmed")));
    EXPECT_EQ(m_dialogs.openDialogs(), 1);
    m_dialogs.answer(DialogResponse::secondButton);
}

} // namespace
