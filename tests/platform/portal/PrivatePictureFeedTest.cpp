#include "platform/portal/PictureFeed.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// A feed of 2x4 pixels on a desktop that tells of private windows what the test says.
class PrivateFeed : public testing::Test
{
protected:
    static constexpr QSize size{2, 4};

    void take(std::uint32_t colour, std::optional<QList<QRect>> changes = {})
    {
        std::vector<std::uint32_t> pixels(8, colour);
        m_feed->take(
            {.source = {.pixels = reinterpret_cast<const std::uint8_t *>(pixels.data()), .size = size, .stride = 8},
             .conversion = {},
             .changes = std::move(changes)});
        m_produced = std::move(pixels); // the one before is gone
        if (!m_feed->isHolding())
            m_produced = {};
    }
    void deliverAll() { deliverAfter(500ms); }
    void deliverAfter(std::chrono::milliseconds time)
    {
        m_now += time;
        m_feed->deliverWhenDue();
        runJobs();
    }
    void runJobs()
    {
        for (const auto &job : std::exchange(m_jobs, {}))
            job();
    }
    /// As it is for a moment after each picture: what KWin has drawn within that time is not told yet.
    void lag(std::chrono::milliseconds age) { m_places->age = age; }
    void deliver(const StreamSample &sample)
    {
        m_rows.reset();
        if (!sample.image) {
            ++m_withheld;
            return;
        }
        ++m_deliveries;
        m_memory = sample.image->pixels;
        m_colours.clear();
        for (int y = 0; y < size.height(); ++y)
            m_colours.push_back(reinterpret_cast<const std::uint32_t *>(sample.image->pixels)[y * 2]);
        if (const auto &rows = sample.image->changedRows)
            m_rows.emplace(rows->begin(), rows->end());
    }
    /// A window over the left half of some rows of the monitor, which has half as many logical pixels.
    void showWindow(int logicalRow) { m_places = {.monitors = {{10, 0, 1, 2}}, .windows = {{10, logicalRow, 1, 1}}}; }
    void showNoWindow() { m_places = {.monitors = {{10, 0, 1, 2}}, .windows = {}}; }

    using Colours = std::vector<std::uint32_t>;

    std::vector<std::uint32_t> m_produced; ///< the producer's, of the picture taken last while it is held
    std::optional<PrivatePlaces> m_places;
    QList<qint32> m_askedFor;
    std::chrono::milliseconds m_now{1'000};
    std::chrono::milliseconds m_timeOfReading{0}; ///< that it takes to be told where windows are
    std::vector<std::function<void()>> m_jobs;
    std::optional<std::chrono::milliseconds> m_wakeAfter;
    int m_deliveries = 0;
    int m_withheld = 0;
    const std::uint8_t *m_memory = nullptr;
    Colours m_colours; ///< by rows, of the last delivery
    ChangedRows m_rows;
    std::shared_ptr<PictureCover> m_cover = std::make_shared<PictureCover>(
        [this](const QList<qint32> &processes) {
            m_askedFor = processes;
            m_now += m_timeOfReading;
            return m_places;
        },
        QList<qint32>{7}, StreamMonitorFacts{}, size);
    std::shared_ptr<PictureFeed> m_feed = std::make_shared<PictureFeed>(
        size, QStringLiteral("A"),
        DisplaySource::StreamDelegate{
            .didOutputSample = [this](const StreamSample &sample) { deliver(sample); },
            .didStopWithError = [](const Error &error) { ADD_FAILURE() << qPrintable(error.localizedDescription); }},
        [this](auto job) { m_jobs.push_back(std::move(job)); },
        PictureFeed::Pace{.interval = 500ms,
                          .monotonicTime = [this] { return m_now; },
                          .wakeAfter = [this](std::chrono::milliseconds time) { m_wakeAfter = time; }},
        m_cover);
};

TEST_F(PrivateFeed, picturesThatComeFasterThanTheNews_areSaidToBeWithheld)
{
    showNoWindow();
    take(9);
    runJobs();
    ASSERT_EQ(m_deliveries, 1);
    lag(30ms);
    for (int i = 0; i < 120; ++i) {
        take(8);
        deliverAfter(10ms);
        m_now += 6ms;
    }
    EXPECT_EQ(m_deliveries, 1);
    EXPECT_EQ(m_withheld, 2);
    lag(0ms);
    take(7);
    deliverAll();
    EXPECT_EQ(m_colours, (Colours{7, 7, 7, 7}));
}

TEST_F(PrivateFeed, newsOfBeforeThePicture_areNoneOfItHoweverLongTheyTakeToBeRead)
{
    showNoWindow();
    lag(5ms);
    m_timeOfReading = 8ms;
    take(9);
    m_timeOfReading = 0ms;
    showWindow(1);
    runJobs();
    EXPECT_EQ(m_deliveries, 0);
    deliverAll();
    EXPECT_EQ(m_colours, (Colours{9, 9, 0, 0}));
}

TEST_F(PrivateFeed, privateWindow_isBlackWhereItIs)
{
    showWindow(1);
    take(9);
    deliverAll();
    EXPECT_EQ(m_colours, (Colours{9, 9, 0, 0}));
    EXPECT_EQ(m_askedFor, QList<qint32>{7});
}

TEST_F(PrivateFeed, noPrivateWindow_handsOnTheSameMemoryEachTime)
{
    showNoWindow();
    take(9);
    deliverAll();
    const auto *memory = m_memory;
    take(8);
    deliverAll();
    EXPECT_EQ(m_memory, memory);
    showWindow(0);
    take(7);
    deliverAll();
    EXPECT_NE(m_memory, memory);
    EXPECT_EQ(m_colours, (Colours{0, 0, 7, 7}));
    showNoWindow();
    take(6);
    deliverAll();
    EXPECT_EQ(m_memory, memory);
    EXPECT_EQ(m_colours, (Colours{6, 6, 6, 6}));
}

TEST_F(PrivateFeed, windowThatMovesWhileAPictureWaits_isBlackInBothPlaces)
{
    showWindow(0);
    take(9);
    showWindow(1);
    deliverAll();
    EXPECT_EQ(m_colours, (Colours{0, 0, 0, 0}));
}

TEST_F(PrivateFeed, windowThatComesOverAStillPicture_isAChangeOfItsRows)
{
    showNoWindow();
    take(9);
    deliverAll();
    showWindow(1);
    m_feed->deliverAgain();
    deliverAll();
    EXPECT_EQ(m_colours, (Colours{9, 9, 0, 0}));
    EXPECT_EQ(m_rows, (ChangedRows{{{.begin = 2, .end = 4}}}));
}

TEST_F(PrivateFeed, nobodyWhoTells_isADeliveryWithoutAPictureAndTheNextOneComesWithAllChanges)
{
    showNoWindow();
    take(9);
    deliverAll();
    m_places.reset();
    take(8, QList<QRect>{QRect(0, 0, 1, 1)});
    deliverAll();
    EXPECT_EQ(m_withheld, 1);
    EXPECT_FALSE(m_feed->wantsFresherPicture());
    EXPECT_FALSE(m_feed->wantsFresherPicture()) << "that one could be shown no more than this";
    showWindow(1);
    m_feed->deliverAgain();
    deliverAll();
    EXPECT_EQ(m_withheld, 2) << "nobody knows what was private when it came";
    EXPECT_TRUE(m_feed->wantsFresherPicture());
    take(8, QList<QRect>{});
    deliverAll();
    EXPECT_EQ(m_deliveries, 2);
    EXPECT_EQ(m_colours, (Colours{8, 9, 0, 0}));
    EXPECT_EQ(m_rows, (ChangedRows{{{.begin = 0, .end = 1}, {.begin = 2, .end = 4}}}));
}

TEST_F(PrivateFeed, pictureThatIsHereBeforeTheNews_waitsForThem)
{
    showNoWindow();
    lag(1ms);
    take(9);
    runJobs();
    EXPECT_EQ(m_deliveries, 0);
    ASSERT_TRUE(m_wakeAfter);
    showWindow(1);
    deliverAfter(*m_wakeAfter);
    EXPECT_EQ(m_colours, (Colours{9, 9, 0, 0}));
    EXPECT_EQ(m_withheld, 0);
}

TEST_F(PrivateFeed, newsThatTakeTheirTime_areLookedForLessAndLessOften)
{
    showNoWindow();
    lag(1h);
    take(9);
    int looks = 0;
    while (m_deliveries + m_withheld == 0 && looks < 100) {
        ++looks;
        ASSERT_GT(*m_wakeAfter, 0ms);
        deliverAfter(*m_wakeAfter);
    }
    EXPECT_EQ(m_withheld, 1) << "it may show what was never told";
    EXPECT_LT(looks, 10);
    EXPECT_LT(m_now, 2'500ms);
    lag(0ms);
    m_feed->deliverAgain();
    deliverAll();
    EXPECT_EQ(m_withheld, 2) << "the news of that time are over";
    EXPECT_FALSE(m_feed->wantsFresherPicture());
    EXPECT_TRUE(m_feed->wantsFresherPicture());
    take(8);
    deliverAll();
    EXPECT_EQ(m_colours, (Colours{8, 8, 8, 8}));
}

TEST_F(PrivateFeed, newsOfAPictureThatWaitsForItsTime_areKeptForIt)
{
    showNoWindow();
    take(9);
    runJobs();
    lag(1ms);
    take(8);
    showWindow(1);
    deliverAfter(10ms);
    EXPECT_EQ(m_deliveries, 1) << "the next one comes half a second after this";
    showNoWindow();
    deliverAll();
    EXPECT_EQ(m_deliveries, 2);
    EXPECT_EQ(m_colours, (Colours{8, 8, 0, 0})) << "the window has gone since, but not from the picture";
}

TEST_F(PrivateFeed, pictureThatComesWhileAnotherIsOnItsWay_waitsForItsOwnNews)
{
    showNoWindow();
    take(9);
    ASSERT_EQ(m_jobs.size(), 1U);
    lag(1ms);
    take(8);
    runJobs();
    EXPECT_EQ(m_deliveries, 0);
    showWindow(0);
    deliverAfter(10ms);
    EXPECT_EQ(m_colours, (Colours{0, 0, 8, 8}));
}

TEST_F(PrivateFeed, privateWindowThatMayBeAnywhere_isADeliveryWithoutAPictureForEverybody)
{
    for (const bool isReliedOn : {true, false}) {
        m_cover->relyOn(isReliedOn);
        m_withheld = 0;
        m_deliveries = 0;
        showWindow(1);
        m_places->mayBeAnywhere = true;
        take(9);
        deliverAll();
        EXPECT_EQ(m_withheld, 1);
        EXPECT_FALSE(m_feed->wantsFresherPicture());
        EXPECT_FALSE(m_feed->wantsFresherPicture()) << "it still may";
        showWindow(1);
        m_feed->deliverAgain();
        deliverAll();
        EXPECT_EQ(m_withheld, 2) << "in this picture it may be anywhere for ever";
        EXPECT_TRUE(m_feed->wantsFresherPicture());
        take(8);
        deliverAll();
        EXPECT_EQ(m_deliveries, 1);
        EXPECT_EQ(m_colours, (Colours{8, 8, 0, 0}));
    }
}

TEST_F(PrivateFeed, nobodyWhoTellsAndNobodyWhoReliesOnIt_isThePictureAsItIs)
{
    m_cover->relyOn(false);
    take(9);
    deliverAll();
    EXPECT_EQ(m_colours, (Colours{9, 9, 9, 9}));
    showWindow(0);
    take(8);
    deliverAll();
    EXPECT_EQ(m_colours, (Colours{0, 0, 8, 8})) << "what is known is used";
}

TEST_F(PrivateFeed, monitorThatIsNotAmongThose_isAsIfNobodyTold)
{
    m_places = PrivatePlaces{.monitors = {{0, 0, 4, 1}}, .windows = {}};
    EXPECT_FALSE(m_cover->isTold());
    take(9);
    deliverAll();
    EXPECT_EQ(m_withheld, 1);
}

TEST_F(PrivateFeed, placeThatIsBlackForAWindowThatHasGone_wantsAFresherPictureOnce)
{
    showWindow(1);
    take(9);
    deliverAll();
    EXPECT_FALSE(m_feed->wantsFresherPicture());
    EXPECT_FALSE(m_feed->wantsFresherPicture()) << "it is there still";
    showNoWindow();
    EXPECT_TRUE(m_feed->wantsFresherPicture());
    EXPECT_FALSE(m_feed->wantsFresherPicture()) << "who does not send one then never will";
    m_feed->deliverAgain();
    deliverAll();
    EXPECT_EQ(m_colours, (Colours{9, 9, 0, 0})) << "the picture is from before";
    take(8);
    deliverAll();
    EXPECT_EQ(m_colours, (Colours{8, 8, 8, 8}));
    EXPECT_FALSE(m_feed->wantsFresherPicture());
}

TEST_F(PrivateFeed, windowThatHasGoneWhilePicturesCome_wantsNoFresherPicture)
{
    showWindow(1);
    take(9);
    deliverAll();
    EXPECT_FALSE(m_feed->wantsFresherPicture());
    take(8);
    deliverAll();
    showNoWindow();
    EXPECT_FALSE(m_feed->wantsFresherPicture());
    EXPECT_TRUE(m_feed->wantsFresherPicture()) << "none has come any more";
}

TEST_F(PrivateFeed, nobodyWhoTells_wantsNoFresherPicture)
{
    showWindow(1);
    take(9);
    deliverAll();
    EXPECT_FALSE(m_feed->wantsFresherPicture());
    m_places.reset();
    EXPECT_FALSE(m_feed->wantsFresherPicture());
}

} // namespace
