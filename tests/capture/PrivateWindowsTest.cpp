#include "capture/CaptureSources.h"
#include "capture/FirstPicture.h"

#include "RecorderRig.h"
#include "support/LogRecorder.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

ActiveRecordingContext contextOf(bool isPrivateInFront)
{
    ActiveRecordingContext context;
    context.isPrivateInFront = isPrivateInFront;
    return context;
}

/// A source whose pictures show private windows, polled twice a second; each picture differs from the one before.
class PrivateWindows : public testing::Test
{
protected:
    PrivateWindows()
    {
        m_displays.leavesOut = false;
        m_displays.show({3});
        m_displays.onCapture = [this](quint32) {
            m_picture.fill(m_level += 40);
            return std::optional(m_picture.view());
        };
    }
    ~PrivateWindows() override
    {
        m_queue.sync([this] { m_sources->tearDown(); });
    }

    void open(const ActiveRecordingContext &context = {})
    {
        m_queue.sync([&] {
            m_sources->begin(500, context);
            ASSERT_TRUE(m_sources->openScreenshotSources(*planCapture(m_displays, 2, 1, std::nullopt)));
        });
    }
    void showInFront(bool isPrivate)
    {
        m_queue.sync([&] { m_sources->setRecordingContext(contextOf(isPrivate), m_clock.nowMs()); });
    }
    /// Lets time pass and takes a picture, if there is one to be had.
    bool takesPicture(qint64 afterMs = 500)
    {
        m_clock.advance(std::chrono::milliseconds(afterMs));
        return m_queue.sync([this] { return m_sources->captureScreenshot(0) == ScreenshotOutcome::Taken; });
    }
    qsizetype buffered() const { return m_sources->gate().bufferedFrames.size(); }

    SerialQueue m_queue{QStringLiteral("samples")};
    ManualClock m_clock{[] {}};
    FakeDisplaySource m_displays{m_queue};
    FakePicture m_picture{64, 36};
    std::uint8_t m_level = 0;
    std::shared_ptr<FirstPicture> m_firstPicture = std::make_shared<FirstPicture>();
    std::shared_ptr<CaptureSources> m_sources =
        std::make_shared<CaptureSources>(m_clock, m_displays, m_queue, m_firstPicture);
};

TEST_F(PrivateWindows, oneInFront_noPictureIsTakenUntilARoundAfterItHasGone)
{
    open();
    EXPECT_TRUE(takesPicture());
    showInFront(false);
    showInFront(true);
    EXPECT_FALSE(takesPicture());
    EXPECT_FALSE(takesPicture());
    showInFront(false);
    EXPECT_FALSE(takesPicture(0));
    EXPECT_FALSE(takesPicture(499));
    EXPECT_TRUE(takesPicture(1));
}

TEST_F(PrivateWindows, picturesSinceTheLastSampleWithoutOne_areTakenBack)
{
    open();
    EXPECT_TRUE(takesPicture());
    m_clock.advance(std::chrono::milliseconds(1));
    showInFront(false);
    EXPECT_TRUE(takesPicture());
    EXPECT_TRUE(takesPicture());
    EXPECT_EQ(buffered(), 3);
    showInFront(true);
    EXPECT_EQ(buffered(), 1);
}

TEST_F(PrivateWindows, oneInFrontAtTheStart_isNotTaken)
{
    open(contextOf(true));
    EXPECT_FALSE(takesPicture());
    EXPECT_TRUE(m_displays.captures.empty());
}

TEST_F(PrivateWindows, sourceThatLeavesThemOut_goesOn)
{
    m_displays.leavesOut = true;
    open();
    showInFront(true);
    EXPECT_TRUE(takesPicture());
    EXPECT_EQ(buffered(), 1);
}

TEST_F(PrivateWindows, clockSetBack_doesNotHideForLonger)
{
    open();
    showInFront(true);
    showInFront(false);
    m_clock.setNowMs(m_clock.nowMs() - 3'600'000);
    EXPECT_TRUE(m_queue.sync([this] { return m_sources->captureScreenshot(0) == ScreenshotOutcome::Taken; }));
}

TEST_F(PrivateWindows, comeAndGo_areToldOfOnce)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    open();
    log.takeAll();
    for (int i = 0; i < 3; ++i) {
        showInFront(true);
        showInFront(false);
    }
    EXPECT_EQ(log.takeAll(),
              QStringList(QStringLiteral("screen capture takes no picture while a private window is in front")));
}

TEST_F(PrivateWindows, pictureThatWasTakenBack_isTakenAnewWhenTheScreenIsTheSameAfterwards)
{
    m_displays.onCapture = [this](quint32) { return std::optional(m_picture.view()); };
    open();
    EXPECT_TRUE(takesPicture());
    ASSERT_EQ(buffered(), 1);
    showInFront(true);
    ASSERT_EQ(buffered(), 0);
    showInFront(false);
    EXPECT_TRUE(takesPicture());
    EXPECT_EQ(buffered(), 1);
    EXPECT_TRUE(takesPicture());
    EXPECT_EQ(buffered(), 1) << "once";
}

class PrivateWindowsOnStreams : public RecorderRig
{
protected:
    PrivateWindowsOnStreams()
    {
        displays.mode = CaptureMode::Streams;
        displays.leavesOut = false;
        displays.show({3});
    }

    void deliver()
    {
        picture.fill(m_level += 40);
        displays.streams.at(0)->deliver({.image = picture.view()});
        settle();
    }

    std::uint8_t m_level = 0;
};

TEST_F(PrivateWindowsOnStreams, oneInFront_itsFramesAreDropped)
{
    excludesWindow = [](const WindowIdentity &window) { return window.windowClass == QStringLiteral("Vault"); };
    ASSERT_TRUE(start());
    foreground.onFrontmostApplication = [] {
        return ForegroundApplication{
            .localizedName = {}, .bundleIdentifier = {}, .windowClass = QStringLiteral("Vault")};
    };
    advance(500);
    deliver();
    advance(500);
    deliver();
    showApplication(QStringLiteral("Editor"));
    advance(500);
    deliver(); // less than a frame's time after the window has gone
    advance(500);
    deliver();
    transport.expect(QLatin1String(framesEndpoint), running());
    advance(18'000);
    EXPECT_EQ(framesOf(0).size(), 1);
}

/// Two streams of which one or the other sends what may not be kept.
class PicturesMissedOnStreams : public PrivateWindowsOnStreams
{
protected:
    PicturesMissedOnStreams()
    {
        displays.show({3, 5});
        settings.chunkSizeMs = 3'600'000;
        excludesWindow = [](const WindowIdentity &window) { return window.windowClass == QStringLiteral("Vault"); };
    }

    void showVault()
    {
        foreground.onFrontmostApplication = [] {
            return ForegroundApplication{
                .localizedName = {}, .bundleIdentifier = {}, .windowClass = QStringLiteral("Vault")};
        };
        advance(500);
    }
    int wantedAgain(std::size_t stream) const { return displays.streams.at(stream)->askedAgain; }
    /// What a stream does that was asked for its picture once more: nothing has changed in it.
    void deliverAgain()
    {
        FrameView same = picture.view();
        same.changedRows.emplace();
        displays.streams.at(0)->deliver({.image = same});
        settle();
    }
    QString accepted() { return summary().section(QLatin1Char(' '), 1, 1); }
};

TEST_F(PicturesMissedOnStreams, duringAHold_areWantedOnceWhenItIsOver)
{
    ASSERT_TRUE(start());
    showVault();
    deliver();
    deliver();
    showApplication(QStringLiteral("Editor"));
    advance(500);
    EXPECT_EQ(wantedAgain(0), 0) << "the window may still be on the screen";
    advance(500);
    EXPECT_EQ(wantedAgain(0), 1);
    EXPECT_EQ(wantedAgain(1), 0) << "this one has missed nothing";
    EXPECT_EQ(accepted(), QStringLiteral("accepted=0"));
    deliverAgain();
    EXPECT_EQ(accepted(), QStringLiteral("accepted=1"));
    advance(10'000);
    EXPECT_EQ(wantedAgain(0), 1);
}

TEST_F(PicturesMissedOnStreams, takenBack_areWantedOnceWhenTheHoldIsOver)
{
    ASSERT_TRUE(start());
    advance(500);
    deliver();
    showVault();
    EXPECT_TRUE(summary().contains(QStringLiteral(" buffered=0 ")));
    showApplication(QStringLiteral("Editor"));
    advance(1'000);
    EXPECT_EQ(wantedAgain(0), 1);
    deliverAgain();
    EXPECT_TRUE(summary().contains(QStringLiteral(" buffered=1 ")));
}

TEST_F(PicturesMissedOnStreams, duringALock_areWantedOnceWhenItIsOver)
{
    displays.leavesOut = true;
    ASSERT_TRUE(start());
    recorder->setPaused(true);
    deliver();
    advance(5'000);
    EXPECT_EQ(wantedAgain(0), 0);
    recorder->setPaused(false);
    advance(5'000);
    EXPECT_EQ(wantedAgain(0), 1);
    EXPECT_EQ(wantedAgain(1), 0);
}

TEST_F(PicturesMissedOnStreams, withheldByTheirSource_areWantedWithTheNextContext)
{
    displays.leavesOut = true;
    ASSERT_TRUE(start());
    displays.streams.at(0)->deliver({});
    settle();
    EXPECT_EQ(wantedAgain(0), 0) << "not at once, for it would be withheld again";
    advance(500);
    EXPECT_EQ(wantedAgain(0), 1);
    EXPECT_EQ(wantedAgain(1), 0);
    EXPECT_TRUE(summary().contains(QStringLiteral("missingPixel=1"))) << qPrintable(summary());
}

TEST_F(PicturesMissedOnStreams, duringAHoldThatFollowsTheFirst_areWantedAfterThatOne)
{
    ASSERT_TRUE(start());
    showVault();
    deliver();
    showApplication(QStringLiteral("Editor"));
    advance(500);
    showVault();
    advance(5'000);
    EXPECT_EQ(wantedAgain(0), 0);
    showApplication(QStringLiteral("Editor"));
    advance(1'000);
    EXPECT_EQ(wantedAgain(0), 1);
}

TEST_F(PrivateWindows, privatePage_isHiddenEvenWherePrivateWindowsAreLeftOut)
{
    m_displays.leavesOut = true;
    open();
    EXPECT_TRUE(takesPicture());
    showInFront(true);
    EXPECT_TRUE(takesPicture()) << "the window is not in the picture";
    ActiveRecordingContext page = contextOf(true);
    page.isPrivatePageInFront = true;
    m_queue.sync([&] { m_sources->setRecordingContext(page, m_clock.nowMs()); });
    EXPECT_FALSE(takesPicture());
    showInFront(false);
    EXPECT_FALSE(takesPicture(400)) << "it may still be on the screen";
    EXPECT_TRUE(takesPicture(600));
}

} // namespace
