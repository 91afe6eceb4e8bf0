#include "TrayStory.h"

using namespace ostrel;
using testing::HasSubstr;
using testing::Not;

namespace {

const QString vertexKeyService = QStringLiteral("tamsk-ostrel-byok-google-vertex-api-key");

class TraySettings : public TrayStory
{
protected:
    TraySettings() { allowAccessibility(); }

    TrayPanel &openSettings()
    {
        open().press("Settings");
        panel().waitFor("Custom instructions");
        return panel();
    }
};

TEST_F(TraySettings, folderOfTheChooser_isWhereTheJournalGoesOnceSaved)
{
    ASSERT_TRUE(QDir().mkpath(m_ostrel.path(QStringLiteral("notes"))));
    openSettings().press("Choose…");
    panel().waitFor(QStringLiteral("Choose a folder"), QStringLiteral("dialog"));
    m_tray.desktop().type(m_ostrel.path(QStringLiteral("notes")));
    key("Return");
    const QString field = QStringLiteral("Output directory");
    waitUntil(QStringLiteral("the folder in the field"), patience, [&] {
        const auto shown = panel().find(field, QStringLiteral("text"));
        return shown && panel().textOf(*shown) == QStringLiteral("~/notes");
    });
    EXPECT_THAT(settingsFile().toStdString(), Not(HasSubstr("~/notes"))) << "nothing is in force before it is saved";
    panel().press("Save");
    waitUntil(QStringLiteral("the settings to be saved"), patience,
              [this] { return settingsFile().contains("~/notes"); });
    panel().press("Back");
    panel().waitFor("Start recording");
    end();
}

TEST_F(TraySettings, unsavedChanges_areAskedForOnTheWayOut)
{
    openSettings().fill("Custom instructions", QStringLiteral("One line each."));
    panel().press("Back");
    panel().waitFor("Save settings changes?");
    panel().press("Cancel");
    panel().waitUntilGone("Save settings changes?");
    EXPECT_TRUE(panel().shows("Custom instructions"));
    panel().press("Back");
    panel().press("Discard");
    panel().waitFor("Start recording");
    EXPECT_THAT(settingsFile().toStdString(), Not(HasSubstr("One line each.")));

    panel().press("Settings");
    panel().waitFor("Custom instructions");
    panel().fill("Custom instructions", QStringLiteral("One line each."));
    panel().press("Back");
    panel().waitFor("Save settings changes?");
    key("Return");
    panel().waitFor("Start recording");
    EXPECT_THAT(settingsFile().toStdString(), HasSubstr("One line each."));
    end();
}

TEST_F(TraySettings, ownKey_isInForceUntilItIsGivenUpAndLiesInTheKeyringAlone)
{
    openSettings().press("Add key");
    panel().waitFor("Choose how this Mac should authenticate to the customer's Vertex AI endpoint.");
    panel().press("API Key");
    panel().fillSecret(QStringLiteral("API key"), QStringLiteral("key-of-the-test"));
    panel().fill("Project", QStringLiteral("journal-1"));
    panel().press("Save Key");
    panel().waitFor("BYOK Vertex - API key");
    EXPECT_THAT(settingsFile().toStdString(), HasSubstr("journal-1"));
    EXPECT_THAT(settingsFile().toStdString(), Not(HasSubstr("key-of-the-test")));
    EXPECT_EQ(m_tray.keyring().item(vertexKeyService), QByteArray("key-of-the-test"));
    panel().press("Back");
    panel().waitFor("BYOK inference active");

    panel().press("Settings");
    panel().press("Use Ostrel");
    panel().waitFor("Switch to Ostrel-managed inference?");
    panel().press("Switch");
    panel().waitFor("Ostrel managed");
    waitUntil(QStringLiteral("the key to be forgotten"), patience,
              [this] { return !m_tray.keyring().item(vertexKeyService); });
    panel().press("Back");
    panel().waitFor("Start recording");
    EXPECT_FALSE(panel().shows("BYOK inference active"));
    end();
}

} // namespace
