#include "OstrelProgram.h"

#include "support/FakeCompositor.h"
#include "support/SessionBus.h"

#include <gmock/gmock.h>

#include <optional>

using namespace ostrel;
using testing::HasSubstr;

namespace {

/// `ostrel record` on a compositor whose outputs come and go, ten pictures a second, telling what its capture does.
class UnpluggedRecording : public testing::Test
{
protected:
    UnpluggedRecording()
    {
        m_left = m_compositor->plugIn(leftLook);
        m_compositor->plugIn(rightLook);
        m_ostrel.environment().insert(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("scripted"));
        m_ostrel.writeSettings(QByteArray("\"frameFps\": 10, \"chunkSizeMs\": 500, ") + OstrelProgram::keepAnalysed);
        m_ostrel.tellOfCapture();
        m_ostrel.start({QStringLiteral("record")});
        m_ostrel.waitForMessage("screen capture starting displays=2");
    }

    /// What was handed over in all the parts of the recording is analysed, all of it and once.
    void expectOrderlyEnd()
    {
        m_ostrel.terminate();
        const auto outcome = m_ostrel.waitForEnd();
        EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
        const QStringList frames = m_ostrel.analysedFrames();
        EXPECT_FALSE(frames.isEmpty());
        EXPECT_EQ(frames.size(), OstrelProgram::framesHandedOver(outcome.messages)) << outcome.messages.toStdString();
        m_ostrel.expectNoObserverStays();
    }

    /// A still screen gives no more pictures, so it changes first.
    void waitForPictures(int output)
    {
        const int before = m_compositor->pictures(output);
        m_compositor->paint(output, 0xffffff);
        waitUntil(QStringLiteral("pictures of output %1").arg(output), std::chrono::seconds(20),
                  [&] { return m_compositor->pictures(output) > before; });
    }

    inline static const FakeCompositor::Output leftLook{.name = "DP-1", .mode = {160, 120}};
    inline static const FakeCompositor::Output rightLook{.name = "DP-2", .mode = {120, 90}, .corner = {160, 0}};
    SessionBus m_bus; ///< before the compositor: its is the runtime folder
    std::optional<FakeCompositor> m_compositor{"scripted"};
    int m_left = 0;
    OstrelProgram m_ostrel{m_bus.environment()};
};

TEST_F(UnpluggedRecording, outputUnpluggedAndAnotherPluggedIn_isRecordedOn)
{
    m_compositor->atNextCopy([this] { m_compositor->unplug(m_left); });
    m_ostrel.waitForMessage("screen capture starting displays=1");
    const int third = m_compositor->plugIn({.name = "HDMI-A-1", .mode = {80, 60}, .corner = {280, 0}}, 0x20a040);
    m_ostrel.waitForMessage("screen capture starting displays=2", 2);
    waitForPictures(third);
    expectOrderlyEnd();
}

TEST_F(UnpluggedRecording, outputThatIsSwitchedOffForLong_isRecordedAgainWhenItIsOn)
{
    m_compositor->behave(m_left, {.answer = FakeCompositor::Answer::Refused});
    m_ostrel.waitForMessage("screen capture interrupted: Screen capture failed repeatedly for Display 1 (main): ");
    m_compositor->behave(m_left, {});
    waitForPictures(m_left);
    expectOrderlyEnd();
}

TEST_F(UnpluggedRecording, compositorThatCrashesAndIsStartedAgain_isRecordedOn)
{
    m_compositor->atNextCopy([this] { m_compositor->hangUp(); });
    m_ostrel.waitForMessage("screen capture interrupted: Screen capture failed repeatedly");
    m_compositor.emplace("scripted");
    const int next = m_compositor->plugIn(rightLook);
    m_ostrel.waitForMessage("screen capture starting displays=1");
    waitForPictures(next);
    expectOrderlyEnd();
}

} // namespace
