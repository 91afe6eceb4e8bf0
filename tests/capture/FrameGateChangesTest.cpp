#include "capture/FrameGate.h"

#include "support/FakeDisplaySource.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

#include <random>

using namespace ostrel;

namespace {

/// One display seen twice: by a source that tells which rows have changed, and by one that can't. Whatever the screen
/// does, the gate must decide the same.
class FrameGateChangesTest : public testing::Test
{
protected:
    FrameGateChangesTest()
    {
        m_telling.reset(500, {});
        m_silent.reset(500, {});
    }

    void setRows(const RowRange &rows, std::uint8_t level)
    {
        const std::ptrdiff_t stride = m_picture.view().stride;
        const auto first = m_picture.bytes().begin();
        std::fill(first + rows.begin * stride, first + rows.end * stride, level);
        m_changed.push_back(rows);
    }
    void setAll(std::uint8_t level) { setRows({0, m_picture.view().height}, level); }

    /// A picture at the present time for both gates.
    void deliver()
    {
        FrameView view = m_picture.view();
        m_silent.processCapturedImage(view, m_silentContext, m_nowMs);
        view.changedRows = m_changed;
        m_telling.processCapturedImage(view, m_tellingContext, m_nowMs);
        m_changed.clear();
        expectEqualGates();
    }
    void deliverAfter(qint64 ms)
    {
        m_nowMs += ms;
        deliver();
    }

    void expectEqualGates()
    {
        EXPECT_EQ(m_telling.counters, m_silent.counters);
        EXPECT_EQ(m_telling.frameIndex, m_silent.frameIndex);
        EXPECT_TRUE(m_telling.bufferedFrames == m_silent.bufferedFrames);
        EXPECT_EQ(m_telling.diagnosticSummary(), m_silent.diagnosticSummary());
        EXPECT_EQ(m_tellingContext.lastAcceptedFrameMs, m_silentContext.lastAcceptedFrameMs);
        EXPECT_TRUE(m_tellingContext.lastSentDownsample == m_silentContext.lastSentDownsample);
    }

    ManualClock m_clock{[] {}};
    FrameGate m_telling{m_clock};
    FrameGate m_silent{m_clock};
    DisplayCaptureContext m_tellingContext;
    DisplayCaptureContext m_silentContext;
    FakePicture m_picture{64, 100};
    std::vector<RowRange> m_changed;
    qint64 m_nowMs = 1'700'000'000'000;
};

TEST_F(FrameGateChangesTest, unchangedPictures_areCountedAndRestartTheThrottleWindow)
{
    deliver();
    deliverAfter(500);
    deliverAfter(399);
    EXPECT_EQ(m_telling.counters,
              (FrameCounters{
                  .callbackCount = 3, .throttledFrameCount = 1, .unchangedFrameCount = 1, .acceptedFrameCount = 1}));
}

TEST_F(FrameGateChangesTest, changeOfAThrottledFrame_isSentWithTheNextOneThoughThatTellsNone)
{
    deliver();
    setRows({40, 50}, 200);
    deliverAfter(100);
    deliverAfter(400);
    EXPECT_EQ(m_telling.counters.throttledFrameCount, 1);
    EXPECT_EQ(m_telling.counters.acceptedFrameCount, 2);
}

TEST_F(FrameGateChangesTest, slowDrift_isSentWhenItHasAddedUpToThree)
{
    deliver();
    for (std::uint8_t level = 1; level <= 9; ++level) {
        setRows({10, 30}, level);
        deliverAfter(500);
    }
    EXPECT_EQ(m_telling.counters.acceptedFrameCount, 4);
    EXPECT_EQ(m_telling.counters.unchangedFrameCount, 6);
}

TEST_F(FrameGateChangesTest, changeThatIsUndoneWhileThrottled_isUnchanged)
{
    deliver();
    setAll(200);
    deliverAfter(100);
    setAll(0);
    deliverAfter(400);
    EXPECT_EQ(m_telling.counters.acceptedFrameCount, 1);
    EXPECT_EQ(m_telling.counters.unchangedFrameCount, 1);
}

TEST_F(FrameGateChangesTest, changeForthAndBack_isSentTwice)
{
    deliver();
    setAll(200);
    deliverAfter(500);
    setAll(0);
    deliverAfter(500);
    EXPECT_EQ(m_telling.counters.acceptedFrameCount, 3);
}

TEST_F(FrameGateChangesTest, frameThatCouldNotBeEncoded_isTriedAgainThoughNothingHasChanged)
{
    m_picture = FakePicture(65'501, 1);
    deliver();
    deliver();
    EXPECT_EQ(m_telling.counters, (FrameCounters{.callbackCount = 2, .jpegFailureCount = 2}));
}

TEST_F(FrameGateChangesTest, thousandRandomSteps_areDecidedAsWithoutToldChanges)
{
    std::mt19937 random(11);
    for (int step = 0; step < 1'000 && !HasFailure(); ++step) {
        for (unsigned change = random() % 4; change > 0; --change) {
            const int begin = int(random() % 100);
            const RowRange rows{begin, begin + 1 + int(random() % unsigned(100 - begin))};
            // Levels around the tolerance, and now and then a great change.
            setRows(rows, std::uint8_t(random() % 3 == 0 ? random() : random() % 6));
        }
        deliverAfter(qint64(random() % 700));
        if (random() % 50 == 0) {
            m_telling.takeBufferedFrames();
            m_silent.takeBufferedFrames();
        }
    }
    EXPECT_GT(m_telling.counters.acceptedFrameCount, 100);
    EXPECT_GT(m_telling.counters.unchangedFrameCount, 50);
    EXPECT_GT(m_telling.counters.throttledFrameCount, 100);
}

} // namespace
