#include "FindingMatchers.h"
#include "HealthyFacts.h"

#include "app/doctor/Checks.h"

using namespace ostrel;

namespace {

class SleepCheck : public testing::Test
{
protected:
    DoctorFacts m_facts = healthyFacts();
};

TEST_F(SleepCheck, logindThatAnswers_isOk)
{
    EXPECT_THAT(checkSleep(m_facts), isOk("logind tells of sleep, shutdown and the lock"));
}

TEST_F(SleepCheck, noSystemBus_tellsWhatItCosts)
{
    m_facts.systemBus->state = BusState::Unreachable;
    EXPECT_THAT(checkSleep(m_facts), isMissing("there is no system bus: the last pictures before a sleep",
                                               "desktop session of this machine"));
}

TEST_F(SleepCheck, busThatDoesNotAnswer_isMissedHoweverItWasFoundOut)
{
    m_facts.systemBus->state = BusState::Silent;
    EXPECT_THAT(checkSleep(m_facts), isMissing("the system bus does not answer", "restart the machine"));
    m_facts.systemBus = std::nullopt;
    EXPECT_THAT(checkSleep(m_facts), isMissing("the system bus does not answer", "restart the machine"));
}

TEST_F(SleepCheck, noLogind_namesTheCommandThatStartsIt)
{
    m_facts.systemBus->isLogindThere = false;
    EXPECT_THAT(checkSleep(m_facts),
                isMissing("logind is not on the system bus", "sudo systemctl start systemd-logind"));
}

TEST_F(SleepCheck, logindThatHangs_namesTheCommandThatRestartsIt)
{
    m_facts.systemBus->doesLogindAnswer = false;
    EXPECT_THAT(checkSleep(m_facts), isMissing("logind does not answer", "sudo systemctl restart systemd-logind"));
}

} // namespace
