#include "FindingMatchers.h"
#include "HealthyFacts.h"

#include "app/doctor/Checks.h"

using namespace ostrel;

namespace {

class BrowserChecks : public testing::Test
{
protected:
    DoctorFacts m_facts = healthyFacts();
};

TEST_F(BrowserChecks, remoteDebuggingOff_isFineAndNobodyIsToldToSwitchItOn)
{
    EXPECT_THAT(checkBrowserTabs(m_facts), isOk("remote debugging is off in every browser"));
}

TEST_F(BrowserChecks, remoteDebuggingOn_saysWhatItGivesAndWhoElseCanUseIt)
{
    m_facts.debuggedBrowsers = {{.process = 4711, .port = 9222}, {.process = 4712, .port = 40123}};
    EXPECT_THAT(checkBrowserTabs(m_facts), isOk("process 4711 on port 9222, process 4712 on port 40123"));
    EXPECT_THAT(checkBrowserTabs(m_facts), isOk("asked there for its front tab"));
    EXPECT_THAT(checkBrowserTabs(m_facts), isOk("any program on this machine can drive it"));
}

TEST_F(BrowserChecks, remoteDebuggingWithoutConsent_isNotUsedButStillTold)
{
    m_facts.debuggedBrowsers = {{.process = 4711, .port = 9222}};
    for (const auto &granted : {std::optional(false), std::optional<bool>()}) {
        m_facts.bus->isAccessibilityGranted = granted;
        EXPECT_THAT(checkBrowserTabs(m_facts), isOk("nothing is asked there while window titles are not allowed"));
    }
    m_facts.bus.reset();
    EXPECT_THAT(checkBrowserTabs(m_facts), isOk("nothing is asked there"));
}

} // namespace
