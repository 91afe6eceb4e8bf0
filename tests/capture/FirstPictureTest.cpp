#include "RecorderRig.h"

#include <atomic>

using namespace ostrel;

namespace {

const QString noneCame = QStringLiteral("None came from the screen.");

/// Why there is no picture, as the recorder tells it.
class FirstPictureOfARecorder : public RecorderRig
{
protected:
    /// A stop that has something to post.
    void stopWithFrames()
    {
        transport.expect(QString::fromLatin1(framesEndpoint), running());
        stop();
    }
};

TEST_F(FirstPictureOfARecorder, noRecording_noneCame)
{
    EXPECT_EQ(recorder->whyNoPicture(), noneCame);
}

TEST_F(FirstPictureOfARecorder, picture_isNeverMissedAgain)
{
    ASSERT_TRUE(start());
    stopWithFrames();
    EXPECT_EQ(recorder->whyNoPicture(), std::nullopt);
    recorder->setPaused(true);
    ASSERT_TRUE(start());
    advance(10'000);
    stop();
    EXPECT_EQ(recorder->whyNoPicture(), std::nullopt);
}

TEST_F(FirstPictureOfARecorder, pausedAllTheTime_theSessionWasLocked)
{
    recorder->setPaused(true);
    ASSERT_TRUE(start());
    advance(10'000);
    stop();
    EXPECT_EQ(recorder->whyNoPicture(), QStringLiteral("The session was locked."));
}

TEST_F(FirstPictureOfARecorder, pausedAtFirst_aPictureAfterThePauseCounts)
{
    recorder->setPaused(true);
    ASSERT_TRUE(start());
    advance(10'000);
    recorder->setPaused(false);
    advance(500);
    stopWithFrames();
    EXPECT_EQ(recorder->whyNoPicture(), std::nullopt);
}

TEST_F(FirstPictureOfARecorder, privateWindowInFront_isNamedAsTheReason)
{
    displays.leavesOut = false;
    excludesWindow = [](const WindowIdentity &) { return true; };
    ASSERT_TRUE(start());
    advance(10'000);
    stop();
    EXPECT_EQ(recorder->whyNoPicture(), QStringLiteral("A private window or page was in front."));
}

TEST_F(FirstPictureOfARecorder, pauseThatIsOver_isNotWhyAScreenSendsNothingSince)
{
    displays.mode = CaptureMode::Streams;
    recorder->setPaused(true);
    ASSERT_TRUE(start());
    advance(10'000);
    recorder->setPaused(false);
    advance(10'000);
    stop();
    EXPECT_EQ(recorder->whyNoPicture(),
              QStringLiteral("The session was locked. None came from the screen after that."));
}

TEST_F(FirstPictureOfARecorder, privateWindowThatIsGone_isNotWhyAScreenSendsNothingSince)
{
    displays.mode = CaptureMode::Streams;
    displays.leavesOut = false;
    std::atomic<bool> isPrivate = true;
    excludesWindow = [&isPrivate](const WindowIdentity &) { return isPrivate.load(); };
    ASSERT_TRUE(start());
    advance(10'000);
    isPrivate = false;
    advance(10'000);
    stop();
    EXPECT_EQ(recorder->whyNoPicture(),
              QStringLiteral("A private window or page was in front. None came from the screen after that."));
}

TEST_F(FirstPictureOfARecorder, picturesThatFailAfterAPause_theErrorIsTheReason)
{
    displays.onCapture = [](quint32) -> Result<std::optional<FrameView>> {
        return std::unexpected(Error{.domain = {}, .code = 0, .localizedDescription = QStringLiteral("It is gone.")});
    };
    recorder->setPaused(true);
    ASSERT_TRUE(start());
    advance(1'000);
    recorder->setPaused(false);
    advance(1'000);
    stop();
    EXPECT_EQ(recorder->whyNoPicture(), QStringLiteral("It is gone."));
}

TEST_F(FirstPictureOfARecorder, pauseAfterPicturesThatFailed_theSessionWasLocked)
{
    displays.onCapture = [](quint32) -> Result<std::optional<FrameView>> {
        return std::unexpected(Error{.domain = {}, .code = 0, .localizedDescription = QStringLiteral("It is gone.")});
    };
    ASSERT_TRUE(start());
    advance(1'000);
    recorder->setPaused(true);
    stop();
    EXPECT_EQ(recorder->whyNoPicture(), QStringLiteral("The session was locked."));
}

TEST_F(FirstPictureOfARecorder, onlyPictureIsTakenBackBecauseOfAPrivateWindow_noneCame)
{
    displays.leavesOut = false;
    excludesWindow = [](const WindowIdentity &window) { return window.windowClass == QStringLiteral("Vault"); };
    ASSERT_TRUE(start());
    ASSERT_TRUE(summary().contains(QStringLiteral(" accepted=1 ")));
    foreground.onFrontmostApplication = [] {
        return ForegroundApplication{
            .localizedName = {}, .bundleIdentifier = {}, .windowClass = QStringLiteral("Vault")};
    };
    advance(500);
    stop();
    EXPECT_EQ(recorder->whyNoPicture(), QStringLiteral("A private window or page was in front."));
}

TEST_F(FirstPictureOfARecorder, picturesThatFail_theLastErrorIsTheReason)
{
    displays.onCapture = [](quint32) -> Result<std::optional<FrameView>> {
        return std::unexpected(Error{.domain = {}, .code = 0, .localizedDescription = QStringLiteral("It is gone.")});
    };
    ASSERT_TRUE(start());
    advance(500);
    stop();
    EXPECT_EQ(recorder->whyNoPicture(), QStringLiteral("It is gone."));
}

TEST_F(FirstPictureOfARecorder, streamOfAScreenThatSendsNothing_noneCame)
{
    displays.mode = CaptureMode::Streams;
    ASSERT_TRUE(start());
    advance(10'000);
    EXPECT_EQ(recorder->whyNoPicture(), noneCame);
    displays.streams[0]->deliver({.image = picture.view()});
    settle();
    stopWithFrames();
    EXPECT_EQ(recorder->whyNoPicture(), std::nullopt);
}

TEST_F(FirstPictureOfARecorder, pictureOfNoSize_couldNotBeRead)
{
    displays.onCapture = [this](quint32) {
        FrameView view = picture.view();
        view.width = 0;
        return std::optional(view);
    };
    ASSERT_TRUE(start());
    advance(1'000);
    stop();
    EXPECT_EQ(recorder->whyNoPicture(), QStringLiteral("The screen's pictures could not be read."));
}

} // namespace
