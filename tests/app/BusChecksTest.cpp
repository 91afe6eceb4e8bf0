#include "FindingMatchers.h"
#include "HealthyFacts.h"

#include "app/doctor/Checks.h"

using namespace ostrel;

namespace {

class BusChecks : public testing::Test
{
protected:
    QList<Finding> onTheBus() const
    {
        return {checkAccessibilityService(m_facts), checkAccessibilityGrant(m_facts), checkKeyring(m_facts)};
    }

    DoctorFacts m_facts = healthyFacts();
};

TEST_F(BusChecks, healthyBus_isOkThroughout)
{
    EXPECT_THAT(checkSessionBus(m_facts), isOk("answers"));
    EXPECT_THAT(checkAccessibilityService(m_facts), isOk("answers"));
    EXPECT_THAT(checkAccessibilityGrant(m_facts), isOk("allowed"));
    EXPECT_THAT(checkKeyring(m_facts), isOk("unlocked"));
}

TEST_F(BusChecks, noBus_isMissingWhyeverAndLeavesItsServicesUntried)
{
    m_facts.keyring.reset();
    m_facts.bus->state = BusState::NoAddress;
    EXPECT_THAT(checkSessionBus(m_facts), isMissing("there is none", "dbus-run-session -- ostrel record"));
    EXPECT_THAT(onTheBus(), testing::Each(isUntried("not tried without a session bus")));
    m_facts.bus->state = BusState::Unreachable;
    EXPECT_THAT(checkSessionBus(m_facts), isMissing("nobody answers at its address", "dbus-run-session"));
    m_facts.bus->state = BusState::Silent;
    EXPECT_THAT(checkSessionBus(m_facts), isMissing("does not answer", "log out"));
    m_facts.bus.reset();
    EXPECT_THAT(checkSessionBus(m_facts), isMissing("does not answer", "log out"));
    EXPECT_THAT(onTheBus(), testing::Each(isUntried("not tried without a session bus")));
}

TEST_F(BusChecks, accessibilityNotGranted_namesTheCommand)
{
    m_facts.bus->isAccessibilityGranted = false;
    EXPECT_THAT(checkAccessibilityService(m_facts), isOk("answers"));
    EXPECT_THAT(checkAccessibilityGrant(m_facts),
                isMissing("names applications alone", "ostrel permissions allow recordingContext"));
}

TEST_F(BusChecks, accessibilityNotRunning_isUntriedAndTheGrantStartsIt)
{
    m_facts.bus->accessibility.isRunning = false;
    m_facts.bus->isAccessibilityGranted.reset();
    EXPECT_THAT(checkAccessibilityService(m_facts), isUntried("installed, not running"));
    EXPECT_THAT(checkAccessibilityGrant(m_facts), isMissing("", "ostrel permissions allow recordingContext"));
}

TEST_F(BusChecks, accessibilityNotInstalled_namesThePackage)
{
    m_facts.bus->accessibility = {};
    m_facts.bus->isAccessibilityGranted.reset();
    EXPECT_THAT(checkAccessibilityService(m_facts), isMissing("not installed", "sudo apt install at-spi2-core"));
    EXPECT_THAT(checkAccessibilityGrant(m_facts), isUntried("without the accessibility service"));
}

TEST_F(BusChecks, accessibilityThatHangs_isMissing)
{
    m_facts.bus->isAccessibilityGranted.reset();
    EXPECT_THAT(checkAccessibilityService(m_facts), isMissing("does not answer", "log out"));
    EXPECT_THAT(checkAccessibilityGrant(m_facts), isUntried("without the accessibility service"));
}

TEST_F(BusChecks, keyring_eachStateSaysWhereSecretsLie)
{
    m_facts.keyring = KeyringState::Locked;
    EXPECT_THAT(checkKeyring(m_facts), isMissing("locked: secrets lie in a file", "unlock it"));
    m_facts.keyring = KeyringState::NoDefaultCollection;
    EXPECT_THAT(checkKeyring(m_facts), isMissing("no default keyring: secrets lie in a file", "make one"));
    m_facts.keyring = KeyringState::ServiceSilent;
    EXPECT_THAT(checkKeyring(m_facts), isMissing("does not answer: secrets lie in a file", "log out"));
    m_facts.keyring = KeyringState::Failed;
    EXPECT_THAT(checkKeyring(m_facts), isMissing("cannot be used: secrets lie in a file", "log out"));
}

TEST_F(BusChecks, keyringThatDoesNotRun_isUntriedOrToBeInstalled)
{
    m_facts.keyring.reset();
    m_facts.bus->keyring.isRunning = false;
    EXPECT_THAT(checkKeyring(m_facts), isUntried("installed, not running"));
    m_facts.bus->keyring.canBeStarted = false;
    EXPECT_THAT(checkKeyring(m_facts), isMissing("there is none: secrets lie", "sudo apt install gnome-keyring"));
}

} // namespace
