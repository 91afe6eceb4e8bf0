#include "X11Painter.h"
#include "platform/x11/capture/X11DisplaySource.h"
#include "support/Printers.h"
#include "support/RealScreenRecording.h"
#include "support/VirtualDesktop.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <optional>

using namespace ostrel;

namespace {

using namespace std::chrono_literals;

/// The real recorder on a real screen; time passes by hand, and nobody but the test changes the screen.
class RecordingDesktop : public RealScreenRecording
{
protected:
    explicit RecordingDesktop(VirtualDesktop::Options options = {.size = {1280, 800}, .sessionBus = false},
                              X11CaptureSeams seams = {})
        : RealScreenRecording([this] { settle(); }), m_desktop(options), m_painter(m_desktop.display()),
          m_displays(m_desktop.display(), std::move(seams))
    {
        makeRecorder(m_displays);
    }
    ~RecordingDesktop() override { m_recorder.reset(); }

    void settle() { settleEvents({&m_samples, &m_contexts, &m_apiWorker}); }

    Result<> start()
    {
        Result<> outcome = std::unexpected(Error{});
        m_flows.spawn([&](std::stop_token) -> Task<> { outcome = co_await m_recorder->start(m_settings, m_api); });
        settle();
        return outcome;
    }

    /// So many polls, each taking a picture of every display.
    void poll(int count)
    {
        m_clock.advance(std::chrono::milliseconds(500) * count);
        settle();
    }

    qint64 counter(const QString &label)
    {
        settle();
        return counterNow(label);
    }
    qint64 accepted() { return counter(QStringLiteral("accepted")); }

    /// What the final flush posts.
    QJsonArray stopAndTakeFrames()
    {
        m_transport.expect(QStringLiteral("POST /api/frames"), FakeHttpTransport::answer(ObserverStatus().toJson()));
        m_flows.spawn([this](std::stop_token) -> Task<> { co_await m_recorder->stop(false); });
        settle();
        return QJsonDocument::fromJson(*m_transport.requests().last().body)[QStringLiteral("frames")].toArray();
    }

    VirtualDesktop m_desktop;
    X11Painter m_painter;
    X11DisplaySource m_displays;
};

const QList<VirtualDesktop::Monitor> twoMonitors{
    {.name = QStringLiteral("A"), .pixels = QRect(0, 0, 640, 800), .primary = true, .hasConnector = true},
    {.name = QStringLiteral("B"), .pixels = QRect(640, 0, 640, 800), .primary = false}};

TEST_F(RecordingDesktop, staticScreenOfTwoMonitors_sendsExactlyOneFrameEachAndThenNone)
{
    m_desktop.setMonitors(twoMonitors);
    m_painter.fill(QRect(0, 0, 1280, 800), 0x335577);
    ASSERT_TRUE(start());
    EXPECT_EQ(accepted(), 2);
    poll(20);
    EXPECT_EQ(accepted(), 2);
    EXPECT_EQ(counter(QStringLiteral("unchanged")), 40);
    const QJsonArray frames = stopAndTakeFrames();
    ASSERT_EQ(frames.size(), 2);
    EXPECT_EQ(frames[0][QStringLiteral("displayLabel")].toString(), QStringLiteral("Display 1 (main)"));
    EXPECT_EQ(frames[1][QStringLiteral("displayLabel")].toString(), QStringLiteral("Display 2"));
    EXPECT_EQ(frames[1][QStringLiteral("displayWidth")].toInt(), 640);
}

/// What a leak would add to: open descriptors, threads, attached segments.
qsizetype heldBySystem()
{
    const auto count = [](const char *folder) {
        return QDir(QString::fromLatin1(folder))
            .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System)
            .size();
    };
    QFile maps(QStringLiteral("/proc/self/maps"));
    EXPECT_TRUE(maps.open(QIODevice::ReadOnly));
    return count("/proc/self/fd") + count("/proc/self/task") + maps.readAll().count("/SYSV");
}

TEST_F(RecordingDesktop, fiftyRecordings_leaveNoDescriptorThreadOrSegmentBehind)
{
    m_desktop.setMonitors(twoMonitors);
    ASSERT_TRUE(start());
    stopAndTakeFrames();
    const qsizetype before = heldBySystem();
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(start());
        EXPECT_EQ(stopAndTakeFrames().size(), 2);
    }
    EXPECT_EQ(heldBySystem(), before);
}

TEST_F(RecordingDesktop, changeOnOneMonitor_sendsAFrameOfThatOneAlone)
{
    m_desktop.setMonitors(twoMonitors);
    ASSERT_TRUE(start());
    m_painter.fill(QRect(900, 300, 50, 50), 0xffffff);
    poll(3);
    const QJsonArray frames = stopAndTakeFrames();
    ASSERT_EQ(frames.size(), 3);
    EXPECT_EQ(frames[2][QStringLiteral("displayLabel")].toString(), QStringLiteral("Display 2"));
}

TEST_F(RecordingDesktop, pointerThatMoves_sendsAFrame)
{
    m_painter.fill(QRect(0, 0, 1280, 800), 0xffffff);
    m_painter.movePointer({100, 100});
    ASSERT_TRUE(start());
    poll(2);
    EXPECT_EQ(accepted(), 1);
    m_painter.movePointer({700, 500});
    waitUntil(QStringLiteral("the pointer's new place"), 20s, [this] {
        poll(1);
        return accepted() > 1;
    });
    poll(3);
    EXPECT_EQ(accepted(), 2);
}

TEST_F(RecordingDesktop, monitorThatVanishes_endsPollingAfterTheFifthFailureWithTheMessage)
{
    m_desktop.setMonitors(twoMonitors);
    ASSERT_TRUE(start());
    m_desktop.setMonitors({twoMonitors[0]});
    poll(4);
    EXPECT_TRUE(m_deaths.isEmpty());
    poll(1);
    EXPECT_EQ(m_deaths, QStringList{QStringLiteral("Screen capture failed repeatedly for Display 2: The display \"B\" "
                                                   "is not connected any more.")});
    const qint64 callbacks = counter(QStringLiteral("callbacks"));
    poll(5);
    EXPECT_EQ(counter(QStringLiteral("callbacks")), callbacks) << "polling has ended for the other display too";
}

TEST_F(RecordingDesktop, serverThatDies_endsPollingAndTheNextStartRecordsAgain)
{
    ASSERT_TRUE(start());
    m_desktop.restartServer();
    poll(5);
    ASSERT_EQ(m_deaths.size(), 1);
    m_transport.expect(QStringLiteral("POST /api/frames"), FakeHttpTransport::answer(ObserverStatus().toJson()));
    ASSERT_TRUE(start());
    EXPECT_EQ(accepted(), 1);
}

class ImpatientRecordingDesktop : public RecordingDesktop
{
protected:
    /// Each picture comes so late that the server is asked something.
    ImpatientRecordingDesktop()
        : RecordingDesktop({.size = {1280, 800}, .sessionBus = false},
                           {.patience = 100ms, .monotonicTime = [now = 0ms] mutable { return now += 30s; }})
    {}
};

TEST_F(ImpatientRecordingDesktop, serverThatFreezes_endsPollingAfterTheFifthFailureAndTheRecordingCanBeStopped)
{
    ASSERT_TRUE(start());
    m_desktop.server().freeze();
    poll(4);
    EXPECT_TRUE(m_deaths.isEmpty());
    poll(1);
    EXPECT_EQ(m_deaths, QStringList{QStringLiteral("Screen capture failed repeatedly for Display 1 (main): The display "
                                                   "server took too long to answer.")});
    EXPECT_EQ(stopAndTakeFrames().size(), 1);
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_FALSE(start()) << "it is still frozen";
    m_desktop.server().thaw();
    EXPECT_TRUE(start());
    EXPECT_EQ(accepted(), 1);
}

TEST_F(RecordingDesktop, changesOfThrottledPictures_areSentWithTheNextThatIsJudged)
{
    m_settings.frameFps = 10;
    ASSERT_TRUE(start());
    m_painter.fill(QRect(10, 10, 300, 200), 0xff0000);
    m_clock.setNowMs(m_clock.nowMs() - 50); // a clock set back a little has the next picture throttled
    m_clock.advance(100ms);
    settle();
    EXPECT_EQ(counter(QStringLiteral("throttled")), 1);
    m_clock.advance(300ms);
    settle();
    EXPECT_EQ(accepted(), 2);
}

/// One character on a screen of each size. Its pixels are few among the millions of the screen.
class OneCharacter : public RecordingDesktop, public testing::WithParamInterface<QSize>
{
protected:
    OneCharacter() : RecordingDesktop({.size = GetParam(), .windowManager = true, .sessionBus = false}) {}

    /// A small part of the screen, as it is now.
    QByteArray snapshot(const QRect &area)
    {
        const auto cookie =
            xcb_get_image(m_painter.connection().get(), XCB_IMAGE_FORMAT_Z_PIXMAP, m_painter.connection().root(),
                          int16_t(area.x()), int16_t(area.y()), uint16_t(area.width()), uint16_t(area.height()), ~0u);
        const auto image = m_painter.connection().reply<xcb_get_image_reply>(cookie);
        return QByteArray(reinterpret_cast<const char *>(xcb_get_image_data(image.get())),
                          xcb_get_image_data_length(image.get()));
    }
    /// A program draws in its own time: waits until an area has looked the same for a while.
    void waitUntilStill(const QRect &area)
    {
        QByteArray last;
        int equal = 0;
        waitUntil(QStringLiteral("a still screen"), 20s, [&] {
            const QByteArray now = snapshot(area);
            equal = now == last ? equal + 1 : 0;
            last = now;
            return equal >= 10;
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Screens, OneCharacter, testing::Values(QSize(1920, 1080), QSize(3840, 2160)),
                         [](const auto &info) { return std::to_string(info.param.height()); });

TEST_P(OneCharacter, drawnOnAStaticScreen_sendsExactlyOneFrame)
{
    m_painter.fill(QRect(QPoint(0, 0), GetParam()), 0xffffff);
    ASSERT_TRUE(start());
    poll(2);
    ASSERT_EQ(accepted(), 1);
    m_painter.drawCharacter('m', {GetParam().width() / 3, GetParam().height() / 2});
    poll(5);
    EXPECT_EQ(accepted(), 2);
}

TEST_P(OneCharacter, typedIntoATerminal_sendsExactlyOneFrame)
{
    const QRect terminalArea(0, 0, 900, 500);
    const auto terminal = m_desktop.startTerminal(QStringLiteral("Words"));
    m_desktop.activate(terminal);
    m_desktop.type(QStringLiteral("hello"));
    waitUntilStill(terminalArea);
    ASSERT_TRUE(start());
    poll(2);
    ASSERT_EQ(accepted(), 1);
    const QByteArray before = snapshot(terminalArea);
    // Not an "i": in a terminal's smallest font it has 9 dark pixels, fewer than the change test's tolerance at 4K.
    m_desktop.type(QStringLiteral("m"));
    waitUntil(QStringLiteral("the typed character"), 20s, [&] { return snapshot(terminalArea) != before; });
    waitUntilStill(terminalArea);
    poll(5);
    EXPECT_EQ(accepted(), 2);
}

class RecordingAtDepth16 : public RecordingDesktop
{
protected:
    RecordingAtDepth16() : RecordingDesktop({.size = {640, 480}, .depth = 16, .sessionBus = false}) {}
};

TEST_F(RecordingAtDepth16, start_failsAndSaysWhy)
{
    const auto started = start();
    ASSERT_FALSE(started);
    EXPECT_TRUE(started.error().localizedDescription.contains(QStringLiteral("a colour depth of 16")));
    EXPECT_FALSE(m_recorder->isCapturing());
}

} // namespace
