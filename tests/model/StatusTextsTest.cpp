#include "model/StatusTexts.h"
#include "support/Printers.h"

#include <QDir>

#include <gmock/gmock.h>

using namespace ostrel;
using namespace ostrel::StatusTexts;
using Kind = RecorderSubtext::Kind;

namespace {

std::optional<QString> text(const char *words)
{
    return QString::fromUtf8(words);
}

TEST(RecordButtonTitle, everyState_hasItsTitle)
{
    EXPECT_EQ(recordButtonTitle(true, false), QStringLiteral("Stop recording"));
    EXPECT_EQ(recordButtonTitle(false, true), QStringLiteral("Loading..."));
    EXPECT_EQ(recordButtonTitle(false, false), QStringLiteral("Start recording"));
}

TEST(VisibleHelperError, emptyMessage_isNone)
{
    EXPECT_EQ(visibleHelperError(std::nullopt), std::nullopt);
    EXPECT_EQ(visibleHelperError(text("")), std::nullopt);
    EXPECT_EQ(visibleHelperError(text("No node")), text("No node"));
}

TEST(BackfillNotice, statusFields_decideInOrder)
{
    struct Case {
        std::optional<bool> active;
        std::optional<bool> blocked;
        std::optional<QString> lastError;
        std::optional<QString> notice;
    };
    const Case cases[] = {
        {std::nullopt, std::nullopt, std::nullopt, std::nullopt},
        {false, false, text("old trouble"), std::nullopt},
        {true, std::nullopt, text("old trouble"), text("Backfill pending")},
        {true, true, text(" \n No model \t"), text("No model")},
        {false, true, text(" \n\t "), text("Backfill blocked")},
        {std::nullopt, true, std::nullopt, text("Backfill blocked")},
    };
    EXPECT_EQ(analysisBackfillNotice(std::nullopt), std::nullopt);
    for (const Case &c : cases) {
        ObserverStatus status;
        status.analysisBackfillActive = c.active;
        status.analysisBackfillBlocked = c.blocked;
        status.analysisBackfillLastError = c.lastError;
        EXPECT_EQ(analysisBackfillNotice(status), c.notice);
    }
}

TEST(RecorderSubtext, whatNeedsAttentionFirst_isShown)
{
    ObserverSettings settings = ObserverSettings::defaults();
    settings.outputDirectory = QStringLiteral("~/ostrel/journal");
    ObserverStatus failing;
    failing.lastError = text("disk");
    ObserverStatus blocked = failing;
    blocked.analysisBackfillBlocked = true;
    ObserverStatus emptyError;
    emptyError.lastError = text("");

    EXPECT_EQ(recorderSubtext(text("No node"), blocked, settings),
              RecorderSubtext(QStringLiteral("No node"), Kind::HelperError));
    EXPECT_EQ(recorderSubtext(text(""), blocked, settings),
              RecorderSubtext(QStringLiteral("Backfill blocked"), Kind::BackfillNotice));
    EXPECT_EQ(recorderSubtext(std::nullopt, failing, settings),
              RecorderSubtext(QStringLiteral("disk"), Kind::ObserverError));
    EXPECT_EQ(recorderSubtext(std::nullopt, emptyError, settings),
              RecorderSubtext(QStringLiteral("~/ostrel/journal"), Kind::OutputDirectory));
    EXPECT_EQ(recorderSubtext(std::nullopt, std::nullopt, settings),
              RecorderSubtext(QStringLiteral("~/ostrel/journal"), Kind::OutputDirectory));
}

TEST(RecorderSubtext, outputDirectoryWithinTheHomeFolder_isAbbreviatedEverywhere)
{
    ObserverSettings settings = ObserverSettings::defaults();
    settings.outputDirectory = QDir::homePath() + QStringLiteral("/notes");
    EXPECT_EQ(recorderSubtext(std::nullopt, std::nullopt, settings).text, QStringLiteral("~/notes"));
    settings.outputDirectory = QStringLiteral("/mnt") + QDir::homePath() + QStringLiteral("/x") + QDir::homePath();
    EXPECT_EQ(recorderSubtext(std::nullopt, std::nullopt, settings).text, QStringLiteral("/mnt~/x~"));
}

TEST(RecorderSubtext, kinds_tellHowItIsDrawn)
{
    EXPECT_TRUE(RecorderSubtext({}, Kind::HelperError).isError());
    EXPECT_TRUE(RecorderSubtext({}, Kind::ObserverError).isError());
    EXPECT_FALSE(RecorderSubtext({}, Kind::BackfillNotice).isError());
    EXPECT_TRUE(RecorderSubtext({}, Kind::BackfillNotice).isBackfillNotice());
    EXPECT_FALSE(RecorderSubtext({}, Kind::OutputDirectory).isError());
    EXPECT_FALSE(RecorderSubtext({}, Kind::OutputDirectory).isBackfillNotice());
}

TEST(ProviderIndicator, ownKey_isIndicated)
{
    ObserverSettings settings = ObserverSettings::defaults();
    EXPECT_EQ(recordingProviderIndicatorText(settings), std::nullopt);
    settings.inferenceProvider = QStringLiteral("google_vertex_ai");
    EXPECT_EQ(recordingProviderIndicatorText(settings), text("BYOK active"));
}

TEST(InferenceTexts, settings_decideBothLines)
{
    struct Case {
        const char *provider;
        const char *authMode;
        const char *key;
        const char *path;
        const char *status;
        const char *detail;
    };
    const char *managed = "Ostrel managed";
    const char *byAccount = "BYOK Vertex - service account";
    const char *byKey = "BYOK Vertex - API key";
    const char *offer = "Route inference directly to your Vertex AI account";
    for (const Case &each : std::initializer_list<Case>{
             {"ostrel", "api_key", "key", "/account.json", managed, offer},
             {"ostrel", "service_account", "", "/account.json", managed, offer},
             {"google_vertex_ai", "service_account", "", " ~/account.json\n", byAccount, "Using ~/account.json"},
             {"google_vertex_ai", "service_account", "key", " ", byAccount, "Service account JSON not selected."},
             {"google_vertex_ai", "api_key", "key", "", byKey, "API key saved in Keychain."},
             {"google_vertex_ai", "api_key", " \n", "/account.json", byKey, "API key not saved."},
             {"google_vertex_ai", "of a later version", "key", "", byKey, "API key saved in Keychain."}}) {
        ObserverSettings draft = ObserverSettings::defaults();
        draft.inferenceProvider = QLatin1String(each.provider);
        draft.byokGoogleVertexAuthMode = QLatin1String(each.authMode);
        draft.byokGoogleVertexApiKey = QLatin1String(each.key);
        draft.byokGoogleVertexServiceAccountPath = QLatin1String(each.path);
        EXPECT_EQ(byokInferenceStatusText(draft), QLatin1String(each.status));
        EXPECT_EQ(byokInferenceDetailText(draft), QLatin1String(each.detail));
    }
}

} // namespace
