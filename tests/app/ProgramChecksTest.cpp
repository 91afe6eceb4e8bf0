#include "FindingMatchers.h"
#include "HealthyFacts.h"

#include "app/doctor/Checks.h"

using namespace ostrel;

namespace {

class ProgramChecks : public testing::Test
{
protected:
    DoctorFacts m_facts = healthyFacts();
};

TEST_F(ProgramChecks, observerProgram_isFoundOrBlocks)
{
    EXPECT_THAT(checkObserverProgram(m_facts), isOk("/opt/observer"));
    m_facts.observerRoot = {.folder = {}, .isComplete = false, .isFromOverride = false};
    EXPECT_THAT(checkObserverProgram(m_facts), isBlocking("not found", "install this program again"));
    m_facts.observerRoot = {.folder = QStringLiteral("/empty"), .isComplete = false, .isFromOverride = true};
    EXPECT_THAT(checkObserverProgram(m_facts), isBlocking("MORAVEL_REPO_ROOT is /empty", "unset MORAVEL_REPO_ROOT"));
}

TEST_F(ProgramChecks, node_isOldEnoughFrom18_15On)
{
    EXPECT_THAT(checkNode(m_facts), isOk("18.19.1 in /usr/bin/node"));
    m_facts.node.version = QStringLiteral("18.15.0");
    EXPECT_THAT(checkNode(m_facts), isOk("18.15.0"));
    m_facts.node.version = QStringLiteral("18.14.2");
    EXPECT_THAT(checkNode(m_facts), isBlocking("too old: 18.15 is needed", "sudo apt install nodejs"));
}

TEST_F(ProgramChecks, nodeThatIsNotThereOrMute_blocks)
{
    m_facts.node.version.clear();
    EXPECT_THAT(checkNode(m_facts), isBlocking("/usr/bin/node does not tell its version", "sudo apt install nodejs"));
    m_facts.node.path.clear();
    EXPECT_THAT(checkNode(m_facts), isBlocking("not found", "sudo apt install nodejs"));
}

TEST_F(ProgramChecks, port_isFreeOrTheObservers)
{
    EXPECT_THAT(checkPort(m_facts), isOk("8799 is free"));
    m_facts.observer.reach = ObserverReach::Answers;
    EXPECT_THAT(checkPort(m_facts), isOk("8799: the observer answers"));
}

TEST_F(ProgramChecks, portOfSomebodyElse_blocksAndIsMovedByACommand)
{
    m_facts.observer.reach = ObserverReach::AnotherUsers;
    m_facts.observer.holder =
        PortHolder{.user = 65534, .userName = QStringLiteral("nobody"), .processId = {}, .commandLine = {}};
    EXPECT_THAT(checkPort(m_facts),
                isBlocking("Port 8799 is used by a program of the user nobody", "ostrel settings set localPort 88"));
    m_facts.observer.reach = ObserverReach::NoPort;
    m_facts.observer.port = 99999;
    EXPECT_THAT(checkPort(m_facts), isBlocking("localPort is 99999", "ostrel settings set localPort "));
}

TEST_F(ProgramChecks, recorder_isToldAndNeverAFault)
{
    EXPECT_THAT(checkRecorder(m_facts), isOk("none runs"));
    m_facts.recorder = RecorderLock::Holder{.processId = 4711, .since = QStringLiteral("2026-11-21T09:30:05")};
    EXPECT_THAT(checkRecorder(m_facts), isOk("process 4711 has been recording since 2026-11-21 09:30"));
}

} // namespace
