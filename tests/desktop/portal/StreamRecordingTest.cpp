#include "platform/portal/PortalDisplaySource.h"
#include "platform/portal/ScreenCastPortal.h"
#include "support/PortalDesktop.h"
#include "support/RealScreenRecording.h"
#include "support/RunTask.h"
#include "support/TestHome.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <optional>

using namespace ostrel;

namespace {

using namespace std::chrono_literals;

/// The real recorder on the real portal. Pictures come when the compositor sends them; the recorder's time passes by
/// hand.
class StreamRecording : public RealScreenRecording
{
protected:
    StreamRecording() : RealScreenRecording([] {}) { makeRecorder(m_displays); }
    ~StreamRecording() override { m_recorder.reset(); }

    std::optional<Result<>> start()
    {
        return runTask<Result<>>([this](std::stop_token) { return m_recorder->start(m_settings, m_api); });
    }
    /// A first picture may get lost between programs that are just starting; the next change brings one.
    bool waitForFirstFrame()
    {
        QElapsedTimer sinceChange;
        sinceChange.start();
        return pumpUntil([&] {
            if (sinceChange.hasExpired(2'000)) {
                setBackground("#000000");
                setBackground("#336699");
                sinceChange.start();
            }
            return counter(QStringLiteral("accepted")) > 0;
        });
    }
    void setBackground(const char *colour)
    {
        m_desktop.screens().command(
            QStringLiteral("output HEADLESS-1 background %1 solid_color").arg(QLatin1String(colour)));
    }
    void stop()
    {
        bool hasStopped = false;
        m_flows.spawn([&](std::stop_token) -> Task<> {
            co_await m_recorder->stop(false);
            hasStopped = true;
        });
        ASSERT_TRUE(pumpUntil([&] { return hasStopped; }));
    }
    qint64 counter(const QString &label)
    {
        m_samples.sync([] {});
        return counterNow(label);
    }

    const TestHome m_home;
    PortalDesktop m_desktop{{{.pixels = {320, 240}, .corner = {0, 0}, .colour = "#336699"}}};
    PortalDisplaySource m_displays{std::make_shared<ScreenCastPortal>()};
};

TEST_F(StreamRecording, changesOnTheScreen_areTheFramesOfTheBatch)
{
    const auto started = start();
    ASSERT_TRUE(started && *started);
    // The desktop may still draw its background, so the first frame may be followed by others.
    ASSERT_TRUE(waitForFirstFrame());
    m_clock.advance(10s);
    const qint64 before = counter(QStringLiteral("accepted"));
    setBackground("#c04020");
    ASSERT_TRUE(pumpUntil([&] { return counter(QStringLiteral("accepted")) > before; }));

    m_transport.expect(QStringLiteral("POST /api/frames"), FakeHttpTransport::answer(ObserverStatus().toJson()));
    stop();
    const QJsonArray frames =
        QJsonDocument::fromJson(*m_transport.requests().last().body)[QStringLiteral("frames")].toArray();
    ASSERT_GE(frames.size(), 2);
    EXPECT_EQ(frames.last()[QStringLiteral("displayLabel")].toString(), QStringLiteral("Display 1 (main)"));
    EXPECT_EQ(frames.last()[QStringLiteral("displayWidth")].toInt(), 320);
    EXPECT_FALSE(frames.last()[QStringLiteral("videoBase64")].toString().isEmpty());
    EXPECT_EQ(counter(QStringLiteral("jpegFailed")), 0);
}

TEST_F(StreamRecording, killedBackend_isSaidOnceAndTheNextStartRecordsAgain)
{
    const auto started = start();
    ASSERT_TRUE(started && *started);
    ASSERT_TRUE(waitForFirstFrame());
    m_desktop.backend().kill();
    ASSERT_TRUE(pumpUntil([&] { return !m_deaths.isEmpty(); }));
    m_desktop.startBackend();
    m_transport.expect(QStringLiteral("POST /api/frames"), FakeHttpTransport::answer(ObserverStatus().toJson()));
    const auto again = start();
    ASSERT_TRUE(again && *again);
    EXPECT_TRUE(waitForFirstFrame());
    ASSERT_EQ(m_deaths.size(), 1);
    EXPECT_TRUE(m_deaths.first().startsWith(QStringLiteral("The desktop sends no more pictures of the screen")));
}

} // namespace
