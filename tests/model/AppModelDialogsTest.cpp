#include "ModelFixture.h"
#include "model/InferenceSettings.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const QString putSettings = QStringLiteral("PUT /api/settings");

/// The dialogs of the settings as the whole model has them.
class ModelDialogs : public ModelFixture
{
protected:
    ModelDialogs()
    {
        m_settings.inferenceProvider = InferenceProvider::googleVertex;
        m_settings.byokGoogleVertexApiKey = QStringLiteral("key");
        launch();
        QObject::connect(m_model.get(), &AppModel::popoverOverlayActiveChanged,
                         [this] { m_overlay.append(m_model->popoverOverlayActive()); });
        QObject::connect(m_model.get(), &AppModel::nativeModalActiveChanged, [this] { ++m_modalChanges; });
        QObject::connect(m_model.get(), &AppModel::byokModalActiveChanged, [this] { ++m_byokChanges; });
    }
    void acceptSaves()
    {
        m_observer.always(putSettings, FakeHttpTransport::answer(ObserverSettings::defaults().toJson()));
    }
    void edit()
    {
        ObserverSettings draft = m_model->settings();
        draft.model = QStringLiteral("edited");
        m_model->setDraftSettings(draft);
    }
    void leaveSettings()
    {
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn([this](std::stop_token) -> Task<> { m_left = co_await m_model->prepareToLeaveSettings(); });
    }

    QList<bool> m_overlay;
    int m_modalChanges = 0;
    int m_byokChanges = 0;
    std::optional<bool> m_left;
    TaskScope m_tasks;
};

TEST_F(ModelDialogs, alertOfTheSettings_isAnOverlayUntilItsGraceIsOver)
{
    EXPECT_FALSE(m_model->popoverOverlayActive());
    edit();
    m_dialogs.expectDialog();
    leaveSettings();
    EXPECT_TRUE(m_model->nativeModalActive());
    EXPECT_TRUE(m_model->popoverOverlayActive());
    m_dialogs.answer(DialogResponse::thirdButton);
    EXPECT_EQ(m_left, false);
    advance(999ms);
    EXPECT_TRUE(m_model->popoverOverlayActive());
    advance(1ms);
    EXPECT_FALSE(m_model->popoverOverlayActive());
    EXPECT_EQ(m_overlay, QList<bool>({true, false}));
    EXPECT_EQ(m_modalChanges, 2);
}

TEST_F(ModelDialogs, keyFlow_isAnOverlayFromItsStartToTheEndOfItsGrace)
{
    m_dialogs.expectDialog();
    m_model->addByokInferenceKey();
    EXPECT_TRUE(m_model->byokModalActive());
    m_dialogs.answer(DialogResponse::thirdButton);
    advance(1s);
    EXPECT_FALSE(m_model->byokModalActive());
    EXPECT_EQ(m_overlay, QList<bool>({true, false})) << "dialog and flow overlap, and are told as one";
    EXPECT_EQ(m_byokChanges, 2);
}

TEST_F(ModelDialogs, keyFlowThatIsAnswered_savesAndTellsTheObserver)
{
    acceptSaves();
    m_dialogs.expectDialogs(2);
    m_model->addByokInferenceKey();
    m_dialogs.answer(DialogResponse::firstButton);
    m_dialogs.choose(QStringLiteral("/account.json"));
    settle();
    EXPECT_EQ(m_model->settings().byokGoogleVertexServiceAccountPath, QStringLiteral("/account.json"));
    EXPECT_EQ(m_model->byokInferenceStatusText(), QStringLiteral("BYOK Vertex - service account"));
    EXPECT_EQ(m_model->byokInferenceDetailText(), QStringLiteral("Using /account.json"));
    EXPECT_EQ(commands(), QStringList(putSettings));
}

TEST_F(ModelDialogs, statusTexts_followUnsavedEdits)
{
    EXPECT_EQ(m_model->byokInferenceStatusText(), QStringLiteral("BYOK Vertex - API key"));
    m_model->setDraftSettings(ObserverSettings::defaults());
    EXPECT_EQ(m_model->byokInferenceStatusText(), QStringLiteral("Ostrel managed"));
    EXPECT_EQ(m_model->recordingProviderIndicatorText(), text("BYOK active")) << "which tells of those in force";
}

TEST_F(ModelDialogs, switchBack_savesAtOnce)
{
    acceptSaves();
    m_dialogs.expectDialog();
    m_model->useOstrelInference();
    m_dialogs.answer(DialogResponse::firstButton);
    settle();
    EXPECT_EQ(m_model->settings().inferenceProvider, QStringLiteral("ostrel"));
    EXPECT_EQ(m_model->byokInferenceStatusText(), QStringLiteral("Ostrel managed"));
}

TEST_F(ModelDialogs, outputDirectory_isChosenForTheDraftAndTheSavedOneIsShown)
{
    m_dialogs.expectDialog();
    m_model->chooseOutputDirectory();
    m_dialogs.choose(QStringLiteral("/srv/journal"));
    EXPECT_EQ(m_model->draftSettings().outputDirectory, QStringLiteral("/srv/journal"));
    m_dialogs.expectFolder();
    m_model->revealOutputDirectory();
    settle();
    EXPECT_EQ(m_dialogs.openedFolders(), QStringList(m_settings.outputDirectory));
}

TEST_F(ModelDialogs, openDialog_pollingGoesOn)
{
    edit();
    m_dialogs.expectDialog();
    leaveSettings();
    m_observer.forgetRequests();
    advance(3s);
    EXPECT_EQ(m_observer.count(getStatus), 2);
    m_dialogs.answer(DialogResponse::secondButton);
    EXPECT_EQ(m_left, true);
}

TEST_F(ModelDialogs, modelGoesWithDialogsUp_takesThemAway)
{
    edit();
    m_dialogs.expectDialogs(3);
    leaveSettings();
    m_model->chooseOutputDirectory();
    m_model->addByokInferenceKey();
    m_model.reset();
    EXPECT_EQ(m_dialogs.openDialogs(), 0);
    EXPECT_EQ(m_left, false);
}

} // namespace
