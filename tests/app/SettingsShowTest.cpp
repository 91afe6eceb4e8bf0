#include "SettingsSetFixture.h"

#include <gmock/gmock.h>

using namespace ostrel;
using testing::HasSubstr;

namespace {

/// `ostrel settings show` in this process.
class SettingsShow : public SettingsSet
{
protected:
    CommandResult show(const QStringList &options = {})
    {
        return run(QStringList{utf8("settings"), utf8("show")} + options);
    }
    void hideSecrets(KeyringState state)
    {
        m_secrets.setFaults({.reads = true});
        m_keyring.expect(state);
    }
};

TEST_F(SettingsShow, keyringThatHidesSecrets_isToldInOneLineAndTheDataIsAsEver)
{
    const QString text = show().output;
    const QString json = show({utf8("--json")}).output;
    for (const auto &[state, reason] : {std::pair(KeyringState::Locked, "is locked; unlock it"),
                                        std::pair(KeyringState::ServiceSilent, "does not answer"),
                                        std::pair(KeyringState::BusSilent, "does not answer"),
                                        std::pair(KeyringState::Failed, "refuses to be read")}) {
        hideSecrets(state);
        const auto outcome = show();
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.output, text);
        EXPECT_THAT(outcome.messages.toStdString(),
                    HasSubstr("analysisApiToken and byokGoogleVertexApiKey can't be seen"));
        EXPECT_THAT(outcome.messages.toStdString(), HasSubstr(reason));
        EXPECT_EQ(outcome.messages.count(u'\n'), 1);
        EXPECT_EQ(show({utf8("--json")}).output, json);
    }
}

TEST_F(SettingsShow, keyringThatIsNotThere_hidesNothing)
{
    for (const KeyringState state :
         {KeyringState::NoService, KeyringState::NoBus, KeyringState::NoDefaultCollection, KeyringState::Ready}) {
        hideSecrets(state);
        EXPECT_EQ(show().messages, QString());
    }
}

TEST_F(SettingsShow, secretsThatCanBeRead_needNoWordAboutTheKeyring)
{
    m_secrets.put(vertexApiKeyService, utf8("geheim"));
    const auto outcome = show();
    EXPECT_EQ(outcome.messages, QString());
    EXPECT_THAT(outcome.output.toStdString(), testing::ContainsRegex("byokGoogleVertexApiKey +<redacted>"));
}

} // namespace
