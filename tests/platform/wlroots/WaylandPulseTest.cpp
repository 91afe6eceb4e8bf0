#include "platform/wlroots/WaylandPulse.h"

#include "ScriptedOutputs.h"
#include "support/RunTask.h"

#include <QLocalServer>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// A compositor that is asked every 10 s whether it answers.
class WaylandPulses : public ScriptedOutputs
{
protected:
    /// The answer takes its time to come in, though none by this clock.
    bool answersAfter(std::chrono::milliseconds pause = 10s)
    {
        m_now += pause;
        return pumpUntil([this] { return m_pulse.isAnswering(); });
    }

    std::chrono::milliseconds m_now{1'000};
    WaylandPulse m_pulse{"scripted", [this] { return m_now; }};
};

TEST_F(WaylandPulses, compositorThatAnswers_isAliveAtEveryLook)
{
    EXPECT_TRUE(answersAfter(0s));
    EXPECT_TRUE(answersAfter());
    EXPECT_TRUE(answersAfter());
}

TEST_F(WaylandPulses, severalWhoAskAtOnce_getTheSameAnswer)
{
    EXPECT_TRUE(answersAfter(0s));
    EXPECT_TRUE(answersAfter(0s));
    EXPECT_TRUE(answersAfter(0s));
}

TEST_F(WaylandPulses, compositorThatHangs_isSilentOnceItsPatienceIsOver)
{
    QLocalServer silent;
    ASSERT_TRUE(silent.listen(qEnvironmentVariable("XDG_RUNTIME_DIR") + QStringLiteral("/wayland-silent")));
    WaylandPulse pulse("wayland-silent", [this] { return m_now; });
    EXPECT_TRUE(pulse.isAnswering()) << "it has not had the time yet";
    m_now += 4'999ms;
    EXPECT_TRUE(pulse.isAnswering());
    m_now += 1ms;
    EXPECT_FALSE(pulse.isAnswering());
    m_now += 60s;
    EXPECT_FALSE(pulse.isAnswering());
}

TEST_F(WaylandPulses, compositorThatHasGone_isNotSaidToHang)
{
    EXPECT_TRUE(answersAfter(0s));
    m_compositor.reset();
    EXPECT_TRUE(answersAfter());
    EXPECT_TRUE(answersAfter());
}

TEST_F(WaylandPulses, compositorThatHasStartedAnew_isAskedAnew)
{
    EXPECT_TRUE(answersAfter(0s));
    m_compositor->hangUp();
    EXPECT_TRUE(answersAfter());
    EXPECT_TRUE(answersAfter());
}

} // namespace
