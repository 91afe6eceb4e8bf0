#include "SettingsFixture.h"
#include "model/StatusTexts.h"

using namespace ostrel;

namespace {

const QString pathMissing = QStringLiteral("BYOK Vertex AI service account JSON path is not configured.");
const QString pathNotFound = QStringLiteral("BYOK Vertex AI service account JSON not found: /key.json");

using Editing = SettingsFixture;

TEST_F(Editing, save_storesAdoptsAndTellsTheObserver)
{
    m_transport.expect(putSettings, accepted());
    const ObserverSettings next = withModel("next");
    save(next);
    settle();
    EXPECT_EQ(onDisk(), next);
    EXPECT_EQ(m_state.settings(), next);
    EXPECT_EQ(m_state.draftSettings(), next);
    EXPECT_EQ(m_transport.endpoints(), QStringList({putSettings, getStatus}));
    EXPECT_EQ(sentModels(), QStringList(QStringLiteral("next")));
    EXPECT_TRUE(m_steps.contains(QStringLiteral("saved")));
}

TEST_F(Editing, observerThatRefuses_isNotReportedAndAskedForItsStatus)
{
    m_transport.expect(putSettings, FakeHttpTransport::answer({}, 500));
    save(withModel("next"));
    settle();
    EXPECT_EQ(m_state.helperError(), std::nullopt);
    EXPECT_EQ(m_transport.count(getStatus), 1);
    EXPECT_TRUE(m_steps.contains(QStringLiteral("saved")));
}

TEST_F(Editing, storeThatFails_isTheHelperErrorAndNothingElseChanges)
{
    breakTheFile();
    const ObserverSettings before = m_state.settings();
    ObserverSettings draft = withModel("draft");
    m_state.setDraftSettings(draft);
    save(withModel("next"));
    settle();
    EXPECT_EQ(m_steps, QStringList(QStringLiteral("not saved")));
    EXPECT_EQ(m_state.settings(), before);
    EXPECT_EQ(m_state.draftSettings(), draft) << "the edits stay";
    ASSERT_TRUE(m_state.helperError().has_value());
    EXPECT_THAT(m_state.helperError()->toStdString(), testing::HasSubstr("settings.json"));
    EXPECT_EQ(m_transport.requests().size(), 0);

    ASSERT_TRUE(QDir().rmdir(SettingsStore::primaryFile()));
    m_transport.expect(putSettings, accepted());
    save(withModel("next"));
    settle();
    EXPECT_EQ(m_state.helperError(), std::nullopt) << "its cause is gone";
}

TEST_F(Editing, storeThatHangs_doesNotBlockTheMainThread)
{
    m_secrets.block();
    ObserverSettings next = m_state.settings();
    next.byokGoogleVertexApiKey = QStringLiteral("secret");
    m_transport.expect(putSettings, accepted());
    save(next);
    bool handled = false;
    QMetaObject::invokeMethod(&m_state, [&handled] { handled = true; }, Qt::QueuedConnection);
    settleEvents({});
    EXPECT_TRUE(handled);
    EXPECT_EQ(m_steps, QStringList());
    m_secrets.unblock();
    settle();
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("secret"));
}

TEST_F(Editing, observerThatHangs_saveIsDoneAllTheSame)
{
    const auto put = m_transport.expectHeld(putSettings);
    save(withModel("next"));
    settle();
    EXPECT_EQ(m_steps, QStringList(QStringLiteral("saved")));
    EXPECT_EQ(m_transport.count(getStatus), 0) << "the refresh waits for the answer";
    put->release(accepted());
    settle();
    EXPECT_EQ(m_transport.count(getStatus), 1);
}

TEST_F(Editing, newPort_endsTheRecordingThenMovesAndRestartsTheObserver)
{
    m_launcher.expectLaunch();
    save(with(9001));
    settle();
    EXPECT_EQ(m_steps, (QStringList{QStringLiteral("end recording"), QStringLiteral("stop capture"),
                                    QStringLiteral("start polling"), QStringLiteral("saved")}));
    EXPECT_EQ(m_observer.api()->baseURL().port(), 9001);
    EXPECT_EQ(m_transport.count(putSettings), 0) << "it reads the file when it starts";
}

TEST_F(Editing, samePort_keepsTheAddress)
{
    m_transport.expect(putSettings, accepted());
    const auto api = m_observer.api();
    save(withModel("next"));
    settle();
    EXPECT_EQ(m_observer.api(), api);
    EXPECT_EQ(m_launcher.children().size(), 0);
}

TEST_F(Editing, savesAtTheSameTime_areDoneInOrderAndToldInOrder)
{
    const auto first = m_transport.expectHeld(putSettings);
    m_transport.expect(putSettings, accepted());
    save(withModel("one"));
    save(withModel("two"));
    settle();
    EXPECT_EQ(m_state.settings().model, QStringLiteral("two"));
    EXPECT_EQ(onDisk().model, QStringLiteral("two"));
    EXPECT_EQ(sentModels(), QStringList(QStringLiteral("one"))) << "the second waits for the first";
    first->release(accepted());
    settle();
    EXPECT_EQ(sentModels(), QStringList({QStringLiteral("one"), QStringLiteral("two")}));
}

TEST_F(Editing, changesAtTheSameTime_loseNothing)
{
    m_transport.always(putSettings, accepted());
    change("model", "m");
    change("frameFps", "2");
    change("thinkingLevel", "HIGH");
    settle();
    EXPECT_EQ(onDisk().model, QStringLiteral("m"));
    EXPECT_EQ(onDisk().frameFps, 2);
    EXPECT_EQ(onDisk().thinkingLevel, QStringLiteral("HIGH"));
    EXPECT_EQ(m_state.settings(), onDisk());
}

TEST_F(Editing, changeThatDoesNotFit_changesNothing)
{
    change("localPort", "0");
    change("nonsense", "0");
    settle();
    ASSERT_EQ(m_steps.size(), 2);
    EXPECT_TRUE(m_steps[0].startsWith(QLatin1String("refused: localPort takes")));
    EXPECT_EQ(m_state.settings(), ObserverSettings::defaults());
    EXPECT_FALSE(readFile(SettingsStore::primaryFile()).has_value());
}

TEST_F(Editing, changeWhileAnotherSettingIsEdited_keepsTheEdits)
{
    m_transport.always(putSettings, accepted());
    m_state.setDraftSettings(withModel("edited"));
    change("frameFps", "2");
    settle();
    EXPECT_EQ(m_state.settings().model, ObserverSettings::defaults().model);
    EXPECT_EQ(m_state.draftSettings().model, QStringLiteral("edited"));
    EXPECT_EQ(m_state.draftSettings().frameFps, 2);
}

TEST_F(Editing, archiveTurnedOnWhileASaveIsUnderWay_staysOn)
{
    for (const bool bySave : {true, false}) {
        m_transport.expect(putSettings, accepted());
        if (bySave)
            save(withModel("new-model"));
        else
            change("model", "newer-model");
        ObserverSettings mirrored = m_state.settings();
        mirrored.archiveEnabled = bySave;
        mirrored.archiveVaultId = bySave ? QStringLiteral("vault-1") : QStringLiteral("vault-2");
        m_state.setSettings(mirrored);
        m_state.setDraftSettings(mirrored);
        settle();
        EXPECT_EQ(m_state.settings().model, bySave ? QStringLiteral("new-model") : QStringLiteral("newer-model"));
        EXPECT_EQ(m_state.settings().archiveEnabled, bySave);
        EXPECT_EQ(m_state.settings().archiveVaultId, mirrored.archiveVaultId);
        EXPECT_EQ(m_state.draftSettings(), m_state.settings()) << "no unsaved change";
    }
}

TEST_F(Editing, archiveTurnedOnWhileASaveWaitsForAnother_staysOn)
{
    m_transport.always(putSettings, accepted());
    save(withModel("one"));
    save(withModel("two"));
    ObserverSettings mirrored = m_state.settings();
    mirrored.archiveEnabled = true;
    mirrored.archiveVaultId = QStringLiteral("vault-1");
    m_state.setSettings(mirrored);
    m_state.setDraftSettings(mirrored);
    settle();
    EXPECT_EQ(m_state.settings().model, QStringLiteral("two"));
    EXPECT_TRUE(m_state.settings().archiveEnabled);
    EXPECT_EQ(m_state.settings().archiveVaultId, QStringLiteral("vault-1"));
    EXPECT_TRUE(onDisk().archiveEnabled);
    EXPECT_EQ(m_state.draftSettings(), m_state.settings()) << "no unsaved change";
}

TEST_F(Editing, editsWhileASaveWaitsForAnother_stayInTheDraft)
{
    m_transport.always(putSettings, accepted());
    save(withModel("one"));
    save(withModel("two"));
    ObserverSettings edited = m_state.draftSettings();
    edited.thinkingLevel = QStringLiteral("EDITED");
    m_state.setDraftSettings(edited);
    settle();
    EXPECT_EQ(m_state.settings().model, QStringLiteral("two"));
    EXPECT_NE(m_state.settings().thinkingLevel, QStringLiteral("EDITED"));
    EXPECT_EQ(m_state.draftSettings().thinkingLevel, QStringLiteral("EDITED"));
    EXPECT_EQ(m_state.draftSettings().model, QStringLiteral("two")) << "what the first save has brought is no edit";
}

TEST_F(Editing, secretThatCouldNotBeRead_survivesAnotherChange)
{
    m_transport.always(putSettings, accepted());
    m_secrets.put(vertexApiKeyService, QStringLiteral("unread"));
    m_secrets.setFaults({.reads = true});
    m_state.setSettings(m_store.load());
    m_secrets.setFaults({});
    change("model", "m");
    save(withModel("n"));
    settle();
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("unread"));
    change("byokGoogleVertexApiKey", "");
    settle();
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), std::nullopt) << "asked for by name, it goes";
}

TEST_F(Editing, secretThatIsEmptied_isRemoved)
{
    m_transport.always(putSettings, accepted());
    ObserverSettings next = m_state.settings();
    next.byokGoogleVertexApiKey = QStringLiteral("set");
    save(next);
    settle();
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("set"));
    next.byokGoogleVertexApiKey.clear();
    save(next);
    settle();
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), std::nullopt);
}

TEST_F(Editing, byokKeyThatWasDecidedOn_isRemovedEvenWhereItLookedEmptyBefore)
{
    m_transport.always(putSettings, accepted());
    m_secrets.put(vertexApiKeyService, QStringLiteral("unread"));
    m_secrets.put(analysisApiTokenService, QStringLiteral("unread"));
    saveByok(withModel("m"));
    settle();
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), std::nullopt);
    EXPECT_EQ(m_secrets.item(analysisApiTokenService), QStringLiteral("unread")) << "nobody has decided on that";
}

TEST_F(Editing, secretThatCannotBeRemoved_isSavedOtherwiseAndSaid)
{
    m_transport.always(putSettings, accepted());
    m_secrets.setFaults({.removals = true});
    saveByok(withModel("m"));
    settle();
    EXPECT_TRUE(m_steps.contains(QStringLiteral("saved")));
    EXPECT_EQ(onDisk().model, QStringLiteral("m"));
    EXPECT_EQ(m_state.helperError(), StatusTexts::secretNotRemoved(QStringLiteral("byokGoogleVertexApiKey")));
}

TEST_F(Editing, editsWhileASaveIsUnderWay_stayInTheDraft)
{
    m_transport.always(putSettings, accepted());
    m_secrets.block();
    ObserverSettings next = withModel("saved");
    next.byokGoogleVertexApiKey = QStringLiteral("secret");
    m_state.setDraftSettings(next);
    save(next);
    settleEvents({&m_observerQueue});
    ObserverSettings edited = next;
    edited.frameFps = 3;
    edited.saveRawInputs = true;
    m_state.setDraftSettings(edited);
    m_secrets.unblock();
    settle();
    EXPECT_EQ(m_state.settings(), next);
    EXPECT_EQ(m_state.draftSettings(), edited);
}

TEST_F(Editing, saveOfAnotherRecordThanTheDraft_replacesTheDraft)
{
    m_transport.always(putSettings, accepted());
    m_state.setDraftSettings(with(9001));
    save(withModel("next"));
    settle();
    EXPECT_EQ(m_state.draftSettings(), withModel("next"));
}

TEST_F(Editing, pathErrorsOfVertex_areClearedOnlyWhenItIsNoLongerUsed)
{
    m_transport.always(putSettings, accepted());
    ObserverStatus status;
    status.lastError = pathNotFound;
    status.analysisBackfillLastError = pathMissing;
    ObserverSettings vertex = m_state.settings();
    vertex.inferenceProvider = QStringLiteral("google_vertex_ai");
    m_state.setStatus(status);
    m_state.setHelperError(pathMissing);
    save(vertex);
    settle();
    EXPECT_EQ(m_state.helperError(), pathMissing);
    EXPECT_EQ(m_state.status()->lastError, pathNotFound);

    save(ObserverSettings::defaults());
    settle();
    EXPECT_EQ(m_state.helperError(), std::nullopt);
    EXPECT_EQ(m_state.status()->lastError, std::nullopt);
    EXPECT_EQ(m_state.status()->analysisBackfillLastError, std::nullopt);
}

TEST_F(Editing, otherErrors_stay)
{
    m_transport.always(putSettings, accepted());
    ObserverStatus status;
    status.lastError = QStringLiteral("quota");
    m_state.setStatus(status);
    m_state.setHelperError(QStringLiteral("Repo root not found"));
    save(withModel("next"));
    settle();
    EXPECT_EQ(m_state.helperError(), QStringLiteral("Repo root not found"));
    EXPECT_EQ(m_state.status()->lastError, QStringLiteral("quota"));
}

TEST_F(Editing, saveUnderWayWhenTheProgramEnds_isSeenThroughAndTheObserverLeftAlone)
{
    m_secrets.block();
    change("byokGoogleVertexApiKey", "secret");
    change("localPort", "9001");
    m_editing->close();
    bool finished = false;
    // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    m_tasks.spawn([&](std::stop_token stop) -> Task<> {
        co_await m_editing->finish(stop);
        finished = true;
    });
    EXPECT_FALSE(finished);
    m_secrets.unblock();
    settle();
    EXPECT_TRUE(finished);
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("secret"));
    EXPECT_EQ(onDisk().localPort, 9001);
    EXPECT_EQ(m_transport.requests().size(), 0);
    EXPECT_EQ(m_observer.api()->baseURL().port(), 8799) << "the last flush still goes there";
}

TEST_F(Editing, destroyedDuringASave_letsItsCallersGo)
{
    m_secrets.block();
    change("byokGoogleVertexApiKey", "secret");
    change("model", "m");
    m_editing.reset();
    EXPECT_EQ(m_steps, QStringList({QStringLiteral("refused: "), QStringLiteral("refused: ")}));
    m_secrets.unblock();
    settle();
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("secret")) << "the store finishes it alone";
}

} // namespace
