#include "ModelFixture.h"

#include <atomic>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// Two streams of a screen that stays still.
class StalledStreams : public ModelFixture
{
protected:
    StalledStreams()
    {
        m_displays.mode = CaptureMode::Streams;
        m_displays.show({1, 2});
        m_displays.onStreamStarted = [this](FakeDisplaySource::Stream &stream) {
            if (m_showsPictures)
                stream.deliver({.image = m_picture.view()});
        };
        m_observer.always(postFrames, statusAnswer(true));
        launch();
        record();
        QObject::connect(m_model.get(), &AppModel::helperErrorChanged,
                         [this] { m_shown.append(m_model->helperError().value_or(QString())); });
    }

    ~StalledStreams() override { m_model.reset(); } // its capture reads what is below

    void showAgain()
    {
        m_showsPictures = true;
        for (const auto &stream : m_displays.streams) {
            if (stream->running)
                stream->deliver({.image = m_picture.view()});
        }
        settle();
    }
    /// Has capture start on streams that send nothing.
    void startWithoutPictures()
    {
        m_showsPictures = false;
        dieSecond();
        advance(1s);
    }

    /// How often capture was started, after the first time.
    std::size_t starts() const { return m_displays.streams.size() / 2 - 1; }
    void dieSecond()
    {
        m_displays.streams.back()->die(Error{{}, 0, QStringLiteral("unplugged")});
        settle();
    }

    std::atomic<bool> m_showsPictures = true; ///< of streams to come
    QStringList m_shown;                      ///< every helper error
};

TEST_F(StalledStreams, stillScreen_isNoStall)
{
    advance(300s);
    EXPECT_EQ(starts(), 0u);
    EXPECT_EQ(m_shown, QStringList());
}

TEST_F(StalledStreams, oneThatStops_allAreStartedAgainASecondLaterAndNobodyIsTold)
{
    dieSecond();
    advance(999ms);
    EXPECT_EQ(starts(), 0u);
    advance(1ms);
    EXPECT_EQ(starts(), 1u);
    advance(300s);
    EXPECT_EQ(starts(), 1u);
    EXPECT_EQ(m_shown, QStringList());
    EXPECT_EQ(m_events, QStringList());
}

TEST_F(StalledStreams, oneThatStopsAgainAndAgain_isGivenTwiceTheTimeEachTimeUpTo32Seconds)
{
    for (const auto pause : {1s, 2s, 4s, 8s, 16s, 32s, 32s}) {
        const std::size_t before = starts();
        dieSecond();
        advance(pause - 1ms);
        EXPECT_EQ(starts(), before);
        advance(1ms);
        EXPECT_EQ(starts(), before + 1);
    }
    EXPECT_EQ(m_shown, QStringList());
    advance(10s); // all of them live
    const std::size_t before = starts();
    dieSecond();
    advance(1s);
    EXPECT_EQ(starts(), before + 1);
}

TEST_F(StalledStreams, oneThatDoesNotAnswer_isStartedAgainAndThatHelps)
{
    m_displays.streams.back()->answers = false;
    advance(40s);
    EXPECT_EQ(starts(), 1u);
    advance(300s);
    EXPECT_EQ(starts(), 1u);
    EXPECT_EQ(m_shown, QStringList());
}

TEST_F(StalledStreams, noStartHelps_isToldAfterTheFirstAndGivenUpAfterTheFifth)
{
    m_displays.newStreamsAnswer = false;
    m_showsPictures = false;
    m_displays.streams.back()->answers = false;
    advance(40s); // it has answered once
    ASSERT_EQ(starts(), 1u);
    EXPECT_EQ(m_shown, QStringList());
    advance(30s);
    const QString noAnswerFromBoth =
        QStringLiteral("Screen capture has stalled: no answer from Display 1 (main), Display 2");
    EXPECT_EQ(m_model->helperError(), noAnswerFromBoth);
    EXPECT_EQ(starts(), 2u);
    m_observer.expect(postStop, statusAnswer(false));
    advance(90s);
    EXPECT_EQ(starts(), 5u);
    EXPECT_EQ(m_events, QStringList());
    advance(29s);
    m_observer.always(getStatus, statusAnswer(false));
    advance(1s);
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_EQ(m_model->helperError(), noAnswerFromBoth);
    EXPECT_FALSE(m_model->isRecording());
    advance(120s);
    EXPECT_EQ(starts(), 5u);
}

const QString noPictures =
    QStringLiteral("Screen capture has no picture yet: none has come from Display 1 (main), Display 2");

TEST_F(StalledStreams, screenThatSendsNoPicture_isToldOnceUntilOneComesAndTheRecordingGoesOn)
{
    QStringList said;
    QObject::connect(m_model.get(), &AppModel::captureStalled, [&said](const QString &message) { said += message; });
    startWithoutPictures();
    advance(29'999ms);
    EXPECT_EQ(m_shown, QStringList());
    advance(1ms);
    EXPECT_EQ(m_model->helperError(), noPictures);
    advance(300s);
    EXPECT_EQ(starts(), 1u);
    EXPECT_TRUE(m_model->isRecording());
    EXPECT_EQ(m_events, QStringList());
    showAgain();
    advance(10s);
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    EXPECT_EQ(said, QStringList(noPictures));
}

TEST_F(StalledStreams, stallOfAScreenThatSendsNoPicture_isStillStartedAgainAndTold)
{
    startWithoutPictures();
    advance(30s);
    ASSERT_EQ(m_model->helperError(), noPictures);
    m_displays.newStreamsAnswer = false;
    for (const auto &stream : m_displays.streams)
        stream->answers = false;
    advance(40s);
    EXPECT_EQ(starts(), 2u);
    advance(30s);
    EXPECT_EQ(m_model->helperError(),
              QStringLiteral("Screen capture has stalled: no answer from Display 1 (main), Display 2"));
}

TEST_F(StalledStreams, userStopsWhilePicturesAreMissing_endsAsUsual)
{
    startWithoutPictures();
    advance(30s);
    m_observer.expect(postStop, statusAnswer(false));
    m_observer.always(getStatus, statusAnswer(false));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(endedByRequest));
}

} // namespace
