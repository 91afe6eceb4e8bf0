#include "ReceivedStream.h"
#include "TestPictures.h"
#include "TestPortal.h"
#include "platform/portal/PortalDisplaySource.h"
#include "platform/portal/ScreenCastPortal.h"
#include "support/PipeWireSession.h"
#include "support/SessionBus.h"
#include "support/TestHome.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <unistd.h>
#include <vector>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// Streams of a played compositor on a real PipeWire, on a desktop that tells of windows what the test says.
class PrivateStreams : public testing::Test
{
protected:
    static constexpr QSize size{64, 32};

    void tell(std::optional<PrivatePlaces> places)
    {
        const std::scoped_lock lock(m_mutex);
        m_places = std::move(places);
    }
    std::optional<PrivatePlaces> places(const QList<qint32> &processes)
    {
        const std::scoped_lock lock(m_mutex);
        m_askedFor = processes;
        return m_places;
    }
    QList<qint32> askedFor()
    {
        const std::scoped_lock lock(m_mutex);
        return m_askedFor;
    }
    QList<CapturableDisplay> displays()
    {
        const auto found = m_queue.sync([this] { return m_source.shareableContent(); });
        if (!found)
            failTest(found.error().localizedDescription);
        return found->displays;
    }
    /// What the recorder asks with every context.
    bool leavesOut()
    {
        return m_queue.sync([this] { return m_source.leavesOutPrivateWindows(); });
    }

    /// So that pictures come although nobody tells.
    void loseHope()
    {
        EXPECT_TRUE(leavesOut()) << "it may be told soon";
        m_nowMs += 5'000;
        EXPECT_FALSE(leavesOut());
    }

    static WaylandPicture blackIn(WaylandPicture picture, const QList<QRect> &areas)
    {
        for (int i = 0; i < int(picture.pixels.size()); ++i) {
            const QPoint pixel(i % picture.size.width(), i / picture.size.width());
            if (std::ranges::any_of(areas, [&](const QRect &area) { return area.contains(pixel); }))
                picture.pixels[std::size_t(i)] = 0;
        }
        return picture;
    }
    /// Between programs that are just starting a picture may get lost.
    static void sendUntil(TestPictures &pictures, const WaylandPicture &picture, const std::function<bool()> &isSeen)
    {
        QElapsedTimer sinceSent;
        waitUntil(QStringLiteral("the picture"), 20s, [&] {
            if (!sinceSent.isValid() || sinceSent.hasExpired(500)) {
                pictures.send(picture.pixels, {});
                sinceSent.start();
            }
            return isSeen();
        });
    }
    static void show(TestPictures &pictures, const ReceivedStream &stream, const WaylandPicture &sent,
                     const WaylandPicture &expected)
    {
        sendUntil(pictures, sent, [&] { return stream.count() > 0 && stream.last().pixels == expected; });
    }

    const TestHome m_home;
    SessionBus m_bus;
    PipeWireSession m_pipeWire{m_bus.environment(), m_bus.path(QStringLiteral("."))};
    TestPortal m_service{m_bus.address(), m_pipeWire.socket()};
    std::mutex m_mutex;
    std::optional<PrivatePlaces> m_places;
    QList<qint32> m_askedFor;
    std::atomic<qint64> m_nowMs = 0; ///< more than what has passed
    PortalDisplaySource m_source{std::make_shared<ScreenCastPortal>(PortalSeams{
                                     .lookAtBlackEvery = 50ms,
                                     .monotonicTime =
                                         [this] {
                                             const auto passed = std::chrono::steady_clock::now().time_since_epoch();
                                             return std::chrono::duration_cast<std::chrono::milliseconds>(passed) +
                                                    std::chrono::milliseconds(m_nowMs);
                                         }}),
                                 [this](const QList<qint32> &processes) { return places(processes); }};
    SerialQueue m_queue{QStringLiteral("samples")};
    const WaylandPicture m_noise = WaylandPicture::noise(size, 1);
};

TEST_F(PrivateStreams, windowHalfOnAScaledMonitor_isBlackAndAllElseIsEqual)
{
    tell(PrivatePlaces{.monitors = {{100, 50, 32, 16}}, .windows = {{90, 60, 15, 30}}});
    TestPictures pictures(m_pipeWire.socket(), {.size = size, .gap = 32});
    m_service.behave({.streams = {{.node = pictures.node()}}});
    const ReceivedStream stream(m_queue, m_source, displays().first());
    show(pictures, stream, m_noise, blackIn(m_noise, {{0, 20, 10, 12}}));
    EXPECT_TRUE(leavesOut());
    EXPECT_EQ(askedFor(), QList<qint32>{::getpid()});
}

TEST_F(PrivateStreams, twoLikeMonitorsWithToldPlaces_areBlackEachInItsOwnPlace)
{
    tell(PrivatePlaces{.monitors = {{0, 0, 64, 32}, {64, 0, 64, 32}}, .windows = {{60, 8, 8, 4}, {70, 20, 5, 5}}});
    TestPictures left(m_pipeWire.socket(), {.size = size});
    TestPictures right(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {{.node = left.node(), .id = "l", .corner = QPoint(0, 0), .size = size},
                                  {.node = right.node(), .id = "r", .corner = QPoint(64, 0), .size = size}}});
    const auto shown = displays();
    ASSERT_EQ(shown.size(), 2);
    const ReceivedStream leftStream(m_queue, m_source, shown[0]);
    const ReceivedStream rightStream(m_queue, m_source, shown[1]);
    show(left, leftStream, m_noise, blackIn(m_noise, {{60, 8, 4, 4}}));
    show(right, rightStream, m_noise, blackIn(m_noise, {{0, 8, 4, 4}, {6, 20, 5, 5}}));
    EXPECT_TRUE(leavesOut());
}

TEST_F(PrivateStreams, likeMonitorsThatCannotBeToldApart_areBlackWherePrivateWindowsAreOnEither)
{
    tell(PrivatePlaces{.monitors = {{0, 0, 64, 32}, {64, 0, 64, 32}}, .windows = {{0, 0, 5, 5}, {74, 20, 5, 5}}});
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {{.node = pictures.node()}}});
    const ReceivedStream stream(m_queue, m_source, displays().first());
    show(pictures, stream, m_noise, blackIn(m_noise, {{0, 0, 5, 5}, {10, 20, 5, 5}}));
    EXPECT_TRUE(leavesOut());
}

TEST_F(PrivateStreams, monitorThatIsNotThere_givesPicturesOnlyWhenNobodyReliesOnThem)
{
    tell(PrivatePlaces{.monitors = {{0, 0, 64, 64}}, .windows = {{0, 0, 5, 5}}});
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {{.node = pictures.node()}}});
    ReceivedStream stream(m_queue, m_source, displays().first());
    sendUntil(pictures, m_noise, [&] { return stream.withheld() > 0; });
    EXPECT_EQ(stream.count(), 0U);
    loseHope();
    stream.deliverAgain();
    stream.waitForPicture(m_noise);
}

TEST_F(PrivateStreams, placesThatAreNotToldYet_withholdPicturesUntilTheyAre)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {{.node = pictures.node()}}});
    EXPECT_TRUE(leavesOut()) << "before anything is captured";
    ReceivedStream stream(m_queue, m_source, displays().first());
    EXPECT_TRUE(leavesOut());
    sendUntil(pictures, m_noise, [&] { return stream.withheld() > 0; });
    EXPECT_TRUE(leavesOut());
    stream.deliverAgain();
    EXPECT_EQ(stream.count(), 0U);
    tell(PrivatePlaces{.monitors = {{0, 0, 64, 32}}, .windows = {{0, 0, 5, 5}}});
    show(pictures, stream, m_noise, blackIn(m_noise, {{0, 0, 5, 5}}));
}

TEST_F(PrivateStreams, placesThatAreToldNoMore_withholdPicturesUntilItIsAskedAgain)
{
    tell(PrivatePlaces{.monitors = {{0, 0, 64, 32}}, .windows = {{0, 0, 5, 5}}});
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {{.node = pictures.node()}}});
    ReceivedStream stream(m_queue, m_source, displays().first());
    show(pictures, stream, m_noise, blackIn(m_noise, {{0, 0, 5, 5}}));
    EXPECT_TRUE(leavesOut());
    const std::size_t before = stream.count();
    tell(std::nullopt);
    sendUntil(pictures, m_noise, [&] { return stream.withheld() > 0; });
    EXPECT_EQ(stream.count(), before);
    loseHope();
    stream.deliverAgain();
    stream.waitForPicture(m_noise);
    tell(PrivatePlaces{.monitors = {{0, 0, 64, 32}}, .windows = {{0, 0, 5, 5}}});
    EXPECT_TRUE(leavesOut());
    // That of the time between is never shown: another one is asked for.
    show(pictures, stream, m_noise, blackIn(m_noise, {{0, 0, 5, 5}}));
}

TEST_F(PrivateStreams, windowThatMoves_isBlackInBothPlacesAndTheirRowsAreTold)
{
    const QRect monitor(0, 0, 64, 32);
    tell(PrivatePlaces{.monitors = {monitor}, .windows = {{2, 3, 4, 5}}});
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {{.node = pictures.node()}}});
    const ReceivedStream stream(m_queue, m_source, displays().first(), 600);
    show(pictures, stream, m_noise, blackIn(m_noise, {{2, 3, 4, 5}}));
    tell(PrivatePlaces{.monitors = {monitor}, .windows = {{2, 3, 4, 5}, {20, 20, 6, 2}}});
    pictures.send(m_noise.pixels, {.changes = QList<QRect>{QRect(0, 30, 1, 1)}});
    stream.waitForPicture(blackIn(m_noise, {{2, 3, 4, 5}, {20, 20, 6, 2}}));
    const std::vector rows{RowRange{.begin = 3, .end = 8}, RowRange{.begin = 20, .end = 22},
                           RowRange{.begin = 30, .end = 31}};
    EXPECT_EQ(stream.last().changedRows, rows);
}

TEST_F(PrivateStreams, windowThatHasGoneFromAStillScreen_isFollowedByAPictureWithoutBlack)
{
    const QRect monitor(0, 0, 64, 32);
    tell(PrivatePlaces{.monitors = {monitor}, .windows = {{2, 3, 4, 5}}});
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {{.node = pictures.node()}}});
    const ReceivedStream stream(m_queue, m_source, displays().first());
    show(pictures, stream, m_noise, blackIn(m_noise, {{2, 3, 4, 5}}));
    const int viewings = pictures.viewings();
    tell(PrivatePlaces{.monitors = {monitor}, .windows = {}});
    waitUntil(QStringLiteral("another beginning"), 20s, [&] { return pictures.viewings() > viewings; });
    show(pictures, stream, m_noise, m_noise);
    EXPECT_TRUE(stream.errors().empty());
}

} // namespace
