#include "app/WaitingSecrets.h"

#include "base/SerialQueue.h"
#include "observer/SettingsStore.h"
#include "observer/TokenStore.h"
#include "support/FakeSecretStore.h"
#include "support/ManualClock.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

class WaitingSecretsRig : public testing::Test
{
protected:
    static QStringList oneLook()
    {
        return {QStringLiteral("read ") + localApiTokenService, QStringLiteral("read ") + analysisApiTokenService,
                QStringLiteral("read ") + vertexApiKeyService};
    }

    SerialQueue m_queue{QStringLiteral("test.settings")};
    ManualClock m_clock{[this] { settleEvents({&m_queue}); }};
    FakeSecretStore m_secrets;
    WaitingSecrets m_waiting{m_clock, m_secrets, m_queue};
};

TEST_F(WaitingSecretsRig, everySecret_isLookedUpAtEachInterval)
{
    m_waiting.start();
    m_clock.advance(WaitingSecrets::interval - 1ms);
    EXPECT_EQ(m_secrets.calls(), QStringList());
    m_clock.advance(1ms);
    EXPECT_EQ(m_secrets.calls(), oneLook());
    m_clock.advance(WaitingSecrets::interval);
    EXPECT_EQ(m_secrets.calls(), oneLook() + oneLook());
}

TEST_F(WaitingSecretsRig, secretsThatCannotBeRead_areTriedAgain)
{
    m_secrets.setFaults({.reads = true});
    m_waiting.start();
    m_clock.advance(2 * WaitingSecrets::interval);
    EXPECT_EQ(m_secrets.calls(), oneLook() + oneLook());
}

TEST(WaitingSecrets, destroyedWhileASecretHangs_endsWithoutAnotherLook)
{
    SerialQueue queue(QStringLiteral("test.settings"));
    ManualClock clock([] { settleEvents(); });
    FakeSecretStore secrets;
    {
        WaitingSecrets waiting(clock, secrets, queue);
        waiting.start();
        secrets.block();
        clock.advance(WaitingSecrets::interval);
    }
    secrets.unblock();
    settleEvents({&queue});
    EXPECT_EQ(clock.pendingTimerCount(), 0);
    EXPECT_EQ(secrets.calls().size(), 3);
}

} // namespace
} // namespace ostrel
