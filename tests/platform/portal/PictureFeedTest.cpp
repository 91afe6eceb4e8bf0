#include "platform/portal/PictureFeed.h"

#include "base/Fault.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <vector>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// A feed of 2x4 pixels whose producer and consumer are the test, which also runs the jobs.
class Feed : public testing::Test
{
protected:
    static constexpr QSize size{2, 4};

    void take(std::uint32_t colour, std::optional<QList<QRect>> changes = {}, PixelConversion conversion = {})
    {
        std::vector<std::uint32_t> pixels(8, colour);
        m_feed->take(
            {.source = {.pixels = reinterpret_cast<const std::uint8_t *>(pixels.data()), .size = size, .stride = 8},
             .conversion = conversion,
             .changes = std::move(changes)});
        m_memory = std::move(pixels); // the one before is gone
        giveBack();
    }
    void giveBack()
    {
        if (!m_feed->isHolding())
            m_memory = {};
    }
    void runJobs()
    {
        for (const auto &job : std::exchange(m_jobs, {}))
            job();
        if (m_feed)
            giveBack();
    }
    void deliver(const StreamSample &sample)
    {
        const FrameView &view = sample.image.value();
        m_colours.clear();
        for (int y = 0; y < view.height; ++y)
            m_colours.push_back(*reinterpret_cast<const std::uint32_t *>(view.pixels + y * view.stride));
        m_rows.reset();
        if (view.changedRows)
            m_rows.emplace(view.changedRows->begin(), view.changedRows->end());
        ++m_deliveries;
        if (m_onDelivery)
            m_onDelivery();
    }

    using Rows = std::optional<std::vector<RowRange>>;

    std::vector<std::uint32_t> m_memory; ///< the producer's, of the picture taken last while it is held
    std::chrono::milliseconds m_now{1'000};
    std::optional<std::chrono::milliseconds> m_wake;
    std::vector<std::function<void()>> m_jobs;
    int m_deliveries = 0;
    std::vector<std::uint32_t> m_colours; ///< by rows, of the last delivery
    Rows m_rows;
    std::vector<Error> m_errors;
    std::function<void()> m_onDelivery;
    std::shared_ptr<PictureFeed> m_feed = std::make_shared<PictureFeed>(
        size, QStringLiteral("A"),
        DisplaySource::StreamDelegate{.didOutputSample = [this](const StreamSample &sample) { deliver(sample); },
                                      .didStopWithError = [this](const Error &error) { m_errors.push_back(error); }},
        [this](auto job) { m_jobs.push_back(std::move(job)); },
        PictureFeed::Pace{.interval = 500ms,
                          .monotonicTime = [this] { return m_now; },
                          .wakeAfter = [this](auto delay) { m_wake = delay; }});
};

TEST_F(Feed, firstPicture_isDeliveredAtOnceWithoutKnownChanges)
{
    take(7, QList<QRect>{QRect(0, 0, 1, 1)});
    EXPECT_EQ(m_deliveries, 0) << "on the other thread alone";
    runJobs();
    EXPECT_EQ(m_colours, (std::vector<std::uint32_t>{7, 7, 7, 7}));
    EXPECT_FALSE(m_rows);
}

TEST_F(Feed, picturesThatComeTooSoon_areOneDeliveryWhenTheirTimeHasComeWithAllTheirChanges)
{
    take(1);
    runJobs();
    m_now += 100ms;
    take(2, QList<QRect>{QRect(0, 3, 1, 1)});
    take(3, QList<QRect>{QRect(0, 0, 2, 1)});
    runJobs();
    EXPECT_EQ(m_deliveries, 1);
    EXPECT_EQ(m_wake, 400ms);
    m_now += 400ms;
    m_feed->deliverWhenDue();
    runJobs();
    EXPECT_EQ(m_deliveries, 2);
    EXPECT_EQ(m_colours, (std::vector<std::uint32_t>{3, 1, 1, 3}));
    EXPECT_EQ(m_rows, (Rows{{RowRange{.begin = 0, .end = 1}, RowRange{.begin = 3, .end = 4}}}));
}

TEST_F(Feed, pictureThatComesTooSoon_isReadWhenItsTimeHasCome)
{
    take(1);
    runJobs();
    take(2, QList<QRect>{QRect(0, 1, 2, 1)});
    ASSERT_TRUE(m_feed->isHolding());
    std::ranges::fill(m_memory, 5);
    m_now += 500ms;
    m_feed->deliverWhenDue();
    ASSERT_TRUE(m_feed->isHolding());
    runJobs();
    EXPECT_FALSE(m_feed->isHolding());
    EXPECT_EQ(m_colours, (std::vector<std::uint32_t>{1, 5, 1, 1}));
}

TEST_F(Feed, pictureThatComesWhileOneIsRead_isTheNextDelivery)
{
    m_onDelivery = [this] {
        m_onDelivery = nullptr;
        take(2, QList<QRect>{QRect(0, 3, 2, 1)});
    };
    take(1);
    runJobs();
    EXPECT_EQ(m_colours, (std::vector<std::uint32_t>{1, 1, 1, 1}));
    EXPECT_TRUE(m_feed->isHolding());
    m_now += 500ms;
    m_feed->deliverWhenDue();
    runJobs();
    EXPECT_EQ(m_colours, (std::vector<std::uint32_t>{1, 1, 1, 2}));
    EXPECT_EQ(m_rows, (Rows{{RowRange{.begin = 3, .end = 4}}}));
}

TEST_F(Feed, memoryThatGoes_isReadBefore)
{
    take(1);
    runJobs();
    take(2, QList<QRect>{QRect(0, 1, 2, 1)});
    m_feed->letGo();
    EXPECT_FALSE(m_feed->isHolding());
    giveBack();
    take(3, QList<QRect>{QRect(0, 2, 2, 1)});
    m_now += 500ms;
    m_feed->deliverWhenDue();
    runJobs();
    EXPECT_EQ(m_colours, (std::vector<std::uint32_t>{1, 2, 3, 1}));
    EXPECT_EQ(m_rows, (Rows{{RowRange{.begin = 1, .end = 3}}}));
}

TEST_F(Feed, pictureOfUnknownChangesBeforeOneOfFew_isReadWhole)
{
    take(1);
    runJobs();
    take(2);
    take(3, QList<QRect>{QRect(0, 2, 2, 1)});
    m_now += 500ms;
    m_feed->deliverWhenDue();
    runJobs();
    EXPECT_EQ(m_colours, (std::vector<std::uint32_t>{3, 3, 3, 3}));
}

TEST_F(Feed, feedThatHasEnded_holdsNothing)
{
    take(1);
    runJobs();
    take(2);
    ASSERT_TRUE(m_feed->isHolding());
    m_feed->fail(faultError(Fault::PictureStreamEnded));
    EXPECT_FALSE(m_feed->isHolding());
    giveBack();
    m_feed->letGo();
    m_feed->close();
    EXPECT_FALSE(m_feed->isHolding());
}

TEST_F(Feed, pictureThatWaitsToBeDelivered_takesOverWhatCameAfterIt)
{
    take(1);
    take(2);
    ASSERT_EQ(m_jobs.size(), 1U);
    runJobs();
    EXPECT_EQ(m_colours.front(), 2U);
    EXPECT_EQ(m_deliveries, 1);
}

TEST_F(Feed, changesThatNobodyKnows_stayUnknownUntilTheyAreDelivered)
{
    take(1);
    runJobs();
    take(2);
    take(3, QList<QRect>{QRect(0, 0, 1, 1)});
    m_now += 500ms;
    m_feed->deliverWhenDue();
    runJobs();
    EXPECT_FALSE(m_rows);
    m_now += 500ms;
    take(4, QList<QRect>{QRect(0, 2, 1, 1)});
    runJobs();
    EXPECT_EQ(m_rows, (Rows{{RowRange{.begin = 2, .end = 3}}}));
}

TEST_F(Feed, pictureThatIsWantedAgain_comesOnceWhenItsTimeHasComeWithNothingChanged)
{
    take(1);
    runJobs();
    m_now += 100ms;
    m_feed->deliverAgain();
    m_feed->deliverAgain();
    runJobs();
    EXPECT_EQ(m_deliveries, 1);
    EXPECT_EQ(m_wake, 400ms);
    m_now += 400ms;
    m_feed->deliverWhenDue();
    runJobs();
    EXPECT_EQ(m_deliveries, 2);
    EXPECT_EQ(m_colours, (std::vector<std::uint32_t>{1, 1, 1, 1}));
    EXPECT_EQ(m_rows, Rows{std::vector<RowRange>()});
}

TEST_F(Feed, pictureThatIsWantedAgainWhileANewOneWaits_isThatOneWithItsChanges)
{
    take(1);
    runJobs();
    take(2, QList<QRect>{QRect(0, 3, 1, 1)});
    m_feed->deliverAgain();
    m_now += 500ms;
    m_feed->deliverWhenDue();
    runJobs();
    EXPECT_EQ(m_deliveries, 2);
    EXPECT_EQ(m_rows, (Rows{{RowRange{.begin = 3, .end = 4}}}));
}

TEST_F(Feed, noPictureYet_isNoneToBeWantedAgain)
{
    m_feed->deliverAgain();
    runJobs();
    EXPECT_EQ(m_deliveries, 0);
}

TEST_F(Feed, missedPicture_makesTheNextOneWhole)
{
    take(1);
    runJobs();
    m_now += 500ms;
    m_feed->miss();
    take(2, QList<QRect>{QRect(0, 0, 1, 1)});
    runJobs();
    EXPECT_EQ(m_colours, (std::vector<std::uint32_t>{2, 2, 2, 2}));
    EXPECT_FALSE(m_rows);
}

TEST_F(Feed, producerThatTurnsItsPictures_makesThemWholeAndUpright)
{
    take(1);
    runJobs();
    m_now += 500ms;
    take(2, QList<QRect>{QRect(0, 0, 1, 1)}, {.transform = 1, .bottomUp = false, .redFirst = false});
    runJobs();
    EXPECT_EQ(m_colours, (std::vector<std::uint32_t>{2, 2})) << "two rows of four";
    EXPECT_FALSE(m_rows);
}

TEST_F(Feed, failure_isSaidOnceAndNothingComesAfterIt)
{
    take(1);
    m_feed->fail(faultError(Fault::PictureStreamEnded));
    m_feed->fail(faultError(Fault::DisplayResized));
    take(2);
    runJobs();
    ASSERT_EQ(m_errors.size(), 1U);
    EXPECT_TRUE(isFault(m_errors.front(), Fault::PictureStreamEnded));
    EXPECT_EQ(m_deliveries, 0);
}

TEST_F(Feed, closedFeed_tellsNeitherPicturesNorFailuresThatWereOnTheirWay)
{
    take(1);
    m_feed->fail(faultError(Fault::PictureStreamEnded));
    m_feed->close();
    runJobs();
    EXPECT_EQ(m_deliveries, 0);
    EXPECT_TRUE(m_errors.empty());
}

TEST_F(Feed, closingWithinADelivery_isTheLastOfIt)
{
    m_onDelivery = [this] { m_feed->close(); };
    take(1);
    runJobs();
    m_now += 500ms;
    take(2);
    runJobs();
    EXPECT_EQ(m_deliveries, 1);
}

TEST_F(Feed, jobsThatOutliveTheFeed_doNothing)
{
    take(1);
    m_feed.reset();
    runJobs();
    EXPECT_EQ(m_deliveries, 0);
}

} // namespace
