#include "ReceivedStream.h"
#include "TestPictures.h"
#include "TestPortal.h"
#include "base/Fault.h"
#include "base/Files.h"
#include "base/Paths.h"
#include "platform/portal/PortalDisplaySource.h"
#include "platform/portal/PortalScreenCaptureAccess.h"
#include "platform/portal/ScreenCastPortal.h"
#include "support/PipeWireSession.h"
#include "support/SessionBus.h"
#include "support/TestHome.h"

#include <QElapsedTimer>

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

using Pixels = std::vector<std::uint32_t>;

/// A portal and compositors that do what the test says, on a real bus and a real PipeWire.
class PlayedPortal : public testing::Test
{
protected:
    static constexpr QSize size{64, 32};

    static std::size_t pixelCount() { return std::size_t(size.width() * size.height()); }
    static Pixels plain(std::uint32_t colour) { return Pixels(pixelCount(), colour); }
    static TestPortal::Stream streamOf(const TestPictures &pictures) { return {.node = pictures.node()}; }

    Result<ShareableContent> content()
    {
        return m_queue.sync([this] { return m_source.shareableContent(); });
    }
    QList<CapturableDisplay> displays()
    {
        const auto found = content();
        if (!found)
            failTest(found.error().localizedDescription);
        return found->displays;
    }
    void grant(const QByteArray &token) { m_service.behave({.streams = {}, .newToken = token}); }
    static QByteArray kept()
    {
        return readFile(stateDirectory() + QStringLiteral("/screen-sharing.json")).value_or(QByteArray());
    }

    /// The first picture of a stream: between programs that are just starting PipeWire may lose it.
    static void show(TestPictures &pictures, const Pixels &pixels, const TestPictures::Telling &telling,
                     const std::function<bool()> &isSeen)
    {
        QElapsedTimer sinceSent;
        waitUntil(QStringLiteral("the first picture"), 20s, [&] {
            if (!sinceSent.isValid() || sinceSent.hasExpired(500)) {
                pictures.send(pixels, telling);
                sinceSent.start();
            }
            return isSeen();
        });
    }
    static void show(TestPictures &pictures, const ReceivedStream &stream, const Pixels &pixels,
                     const WaylandPicture &expected, const TestPictures::Telling &telling = {})
    {
        show(pictures, pixels, telling, [&] { return stream.count() > 0 && stream.last().pixels == expected; });
    }

    /// Whether that thread of ours waits for a lock, or for something else.
    static bool isAsleep(pid_t thread)
    {
        const auto state = readFile(QStringLiteral("/proc/self/task/%1/stat").arg(thread));
        return state && state->contains(") S ");
    }

    const TestHome m_home;
    SessionBus m_bus;
    PipeWireSession m_pipeWire{m_bus.environment(), m_bus.path(QStringLiteral("."))};
    TestPortal m_service{m_bus.address(), m_pipeWire.socket()};
    std::shared_ptr<ScreenCastPortal> m_portal = std::make_shared<ScreenCastPortal>();
    PortalScreenCaptureAccess m_access{m_portal};
    PortalDisplaySource m_source{m_portal};
    SerialQueue m_queue{QStringLiteral("samples")};
};

TEST_F(PlayedPortal, question_isForAllMonitorsWithTheCursorUntilWithdrawn)
{
    ASSERT_TRUE(content());
    const auto seen = m_service.seen();
    EXPECT_EQ(seen.kinds, 1U);
    EXPECT_TRUE(seen.several);
    EXPECT_EQ(seen.cursorMode, 2U);
    EXPECT_EQ(seen.persistMode, 2U);
}

TEST_F(PlayedPortal, token_isReplacedByThatOfEachSession)
{
    grant("first");
    ASSERT_TRUE(m_access.request());
    EXPECT_TRUE(kept().contains("first"));
    EXPECT_EQ(m_service.seen().closedSessions, 1) << "nobody is seen once the consent is kept";
    grant("second");
    ASSERT_TRUE(content());
    EXPECT_TRUE(kept().contains("second"));
    EXPECT_EQ(m_service.seen().tokens, (QList<QByteArray>{"", "first"}));
}

TEST_F(PlayedPortal, refusedToken_isDroppedAndTheUserIsAsked)
{
    grant("stale");
    ASSERT_TRUE(m_access.request());
    m_service.behave({.streams = {}, .newToken = "fresh", .refusedToken = "stale"});
    ASSERT_TRUE(content());
    EXPECT_EQ(m_service.seen().tokens, (QList<QByteArray>{"", "stale", ""}));
    EXPECT_TRUE(kept().contains("fresh"));
}

TEST_F(PlayedPortal, userWhoDeclinesAfterConsent_takesTheConsentBack)
{
    grant("token");
    ASSERT_TRUE(m_access.request());
    m_service.behave({.streams = {}, .answer = TestPortal::Answer::Declines});
    const auto declined = content();
    ASSERT_FALSE(declined);
    EXPECT_TRUE(isFault(declined.error(), Fault::ScreenCaptureDeclined));
    EXPECT_TRUE(kept().isEmpty());
    EXPECT_FALSE(m_access.preflight());
    const int questions = m_service.seen().questions;
    for (int i = 0; i < 5; ++i)
        EXPECT_FALSE(content());
    EXPECT_EQ(m_service.seen().questions, questions) << "nobody asks by itself again";
}

TEST_F(PlayedPortal, portalThatFails_costsNoConsent)
{
    grant("token");
    ASSERT_TRUE(m_access.request());
    m_service.behave({.streams = {}, .answer = TestPortal::Answer::Fails});
    EXPECT_FALSE(content());
    EXPECT_TRUE(kept().contains("token"));
    EXPECT_TRUE(m_access.preflight());
}

TEST_F(PlayedPortal, portalThatIsStillStarting_isAskedForASessionAgainAndTheUserOnce)
{
    m_service.behave({.streams = {}, .newToken = "token", .failingSessions = 2});
    EXPECT_TRUE(content());
    EXPECT_EQ(m_service.seen().sessions, 3);
    EXPECT_EQ(m_service.seen().questions, 1);
}

TEST_F(PlayedPortal, portalThatNeverOpensASession_isNotAskedWithoutEndAndNeitherIsTheUser)
{
    m_service.behave({.streams = {}, .failingSessions = 1'000});
    const auto failed = content();
    ASSERT_FALSE(failed);
    EXPECT_TRUE(isFault(failed.error(), Fault::PictureRefused));
    EXPECT_EQ(m_service.seen().sessions, 5);
    EXPECT_EQ(m_service.seen().questions, 0);
}

TEST_F(PlayedPortal, portalWithoutTokens_keepsItsSessionAndItsConsentIsRemembered)
{
    grant({});
    ASSERT_TRUE(m_access.request());
    EXPECT_EQ(m_service.seen().closedSessions, 0);
    ASSERT_TRUE(content());
    EXPECT_EQ(m_service.seen().questions, 1);
    EXPECT_TRUE(PortalScreenCaptureAccess(std::make_shared<ScreenCastPortal>()).preflight());
}

TEST_F(PlayedPortal, userWhoEndsTheSharing_isNotOverruled)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {streamOf(pictures)}, .newToken = "token"});
    const ReceivedStream stream(m_queue, m_source, displays().first());
    m_service.endSharing();
    waitUntil(QStringLiteral("word of it"), 20s, [this] { return !m_access.preflight(); });
    const int questions = m_service.seen().questions;
    EXPECT_TRUE(isFault(content().error(), Fault::ScreenSharingEnded));
    EXPECT_EQ(m_service.seen().questions, questions);
    EXPECT_TRUE(m_access.request());
    EXPECT_TRUE(content());
}

TEST_F(PlayedPortal, questionThatNobodyAnswers_isWithdrawnWhenTheWaitingIsInterrupted)
{
    m_service.behave({.streams = {}, .answer = TestPortal::Answer::None});
    Result<ShareableContent> outcome;
    std::jthread asking([&] { outcome = m_source.shareableContent(); });
    waitUntil(QStringLiteral("the question"), 20s, [this] { return m_service.seen().questions == 1; });
    EXPECT_FALSE(m_access.preflight()) << "it is answered while somebody else waits";
    m_source.interruptWaiting();
    asking.join();
    ASSERT_FALSE(outcome);
    EXPECT_TRUE(isFault(outcome.error(), Fault::Cancelled));
    EXPECT_EQ(m_service.seen().withdrawnQuestions, 1);
    // That was nobody's refusal.
    grant("token");
    EXPECT_TRUE(content());
}

TEST_F(PlayedPortal, interruption_alsoReachesThoseWhoWaitForTheirTurnToAsk)
{
    m_service.behave({.streams = {}, .answer = TestPortal::Answer::None});
    Result<ShareableContent> first;
    std::jthread asking([&] { first = m_source.shareableContent(); });
    waitUntil(QStringLiteral("the question"), 20s, [this] { return m_service.seen().questions == 1; });
    Result<std::shared_ptr<PortalCast>> second;
    std::atomic<pid_t> waiter = 0;
    std::jthread waiting([&] {
        waiter = ::gettid();
        second = m_portal->open(ScreenCastPortal::Asker::User);
    });
    waitUntil(QStringLiteral("the second to wait for its turn"), 20s, [&] { return waiter != 0 && isAsleep(waiter); });
    m_source.interruptWaiting();
    asking.join();
    waiting.join();
    EXPECT_TRUE(isFault(first.error(), Fault::Cancelled));
    EXPECT_TRUE(isFault(second.error(), Fault::Cancelled));
    EXPECT_EQ(m_service.seen().questions, 1);
}

TEST_F(PlayedPortal, twoMonitors_areTwoDisplaysAtTheirPlacesWithAStreamEach)
{
    TestPictures left(m_pipeWire.socket(), {.size = size});
    TestPictures right(m_pipeWire.socket(), {.size = size.transposed()});
    m_service.behave({.streams = {{.node = right.node(), .id = "b", .corner = QPoint(64, 0), .size = QSize(16, 32)},
                                  {.node = left.node(), .id = "a", .corner = QPoint(0, 0), .size = size}}});
    const auto found = displays();
    ASSERT_EQ(found.size(), 2);
    EXPECT_EQ(found[0].width, 32) << "pixels, not logical ones";
    EXPECT_EQ(found[0].height, 64);
    EXPECT_EQ(found[0].bounds, QRectF(64, 0, 16, 32));
    EXPECT_EQ(found[1].bounds, QRectF(0, 0, 64, 32));
    EXPECT_EQ(content()->mainDisplayId, found[1].displayId);
    const ReceivedStream first(m_queue, m_source, found[0]);
    const ReceivedStream second(m_queue, m_source, found[1]);
    show(right, first, plain(0x112233), WaylandPicture::plain(size.transposed(), 0x112233));
    show(left, second, plain(0x445566), WaylandPicture::plain(size, 0x445566));
}

TEST_F(PlayedPortal, oneOfTwoStreamsThatEnds_leavesTheOther)
{
    auto left = std::make_unique<TestPictures>(m_pipeWire.socket(), TestPictures::Look{.size = size});
    TestPictures right(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {streamOf(*left), streamOf(right)}});
    const auto found = displays();
    const ReceivedStream first(m_queue, m_source, found.at(0));
    const ReceivedStream second(m_queue, m_source, found.at(1));
    left->waitForViewer();
    left.reset();
    EXPECT_TRUE(isFault(first.waitForEnd(), Fault::PictureStreamEnded));
    show(right, second, plain(0x445566), WaylandPicture::plain(size, 0x445566));
    EXPECT_TRUE(second.errors().empty());
}

TEST_F(PlayedPortal, everyColourOrderAndKindOfMemory_isReadAlike)
{
    for (const auto &[format, memory, gap] : {std::tuple(SPA_VIDEO_FORMAT_BGRx, TestPictures::Memory::Shared, 0),
                                              std::tuple(SPA_VIDEO_FORMAT_BGRA, TestPictures::Memory::Shared, 64),
                                              std::tuple(SPA_VIDEO_FORMAT_RGBx, TestPictures::Memory::Shared, 0),
                                              std::tuple(SPA_VIDEO_FORMAT_RGBA, TestPictures::Memory::Shared, 12),
                                              std::tuple(SPA_VIDEO_FORMAT_BGRx, TestPictures::Memory::Graphics, 64),
                                              std::tuple(SPA_VIDEO_FORMAT_RGBA, TestPictures::Memory::Graphics, 0)}) {
        SCOPED_TRACE(int(format));
        const bool redFirst = format == SPA_VIDEO_FORMAT_RGBx || format == SPA_VIDEO_FORMAT_RGBA;
        const auto expected = WaylandPicture::noise(size, unsigned(format));
        Pixels sent = expected.pixels;
        for (std::uint32_t &pixel : sent) {
            if (redFirst)
                pixel = (pixel >> 16 & 0xff) | (pixel & 0xff00) | (pixel & 0xff) << 16;
            pixel |= 0xcc000000;
        }
        TestPictures pictures(m_pipeWire.socket(), {.size = size, .format = format, .memory = memory, .gap = gap});
        m_service.behave({.streams = {streamOf(pictures)}, .newToken = "token"});
        const ReceivedStream stream(m_queue, m_source, displays().first());
        ASSERT_TRUE(stream.started()) << qPrintable(stream.started().error().localizedDescription);
        show(pictures, stream, sent, expected);
    }
}

TEST_F(PlayedPortal, damagedAndEmptyPictures_areSkippedAndWhatTheyChangedIsNotLost)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {streamOf(pictures)}});
    const ReceivedStream stream(m_queue, m_source, displays().first(), 600);
    show(pictures, stream, plain(0x1), WaylandPicture::plain(size, 0x1));
    const std::size_t before = stream.count();
    const QList<QRect> corner{QRect(0, 0, 2, 2)};
    pictures.send(plain(0x2), {.changes = QList<QRect>{QRect(QPoint(), size)}, .isCorrupted = true});
    pictures.send(plain(0x3), {.changes = corner, .isChunkCorrupted = true});
    pictures.send(plain(0x4), {.changes = corner, .isEmpty = true});
    pictures.send(plain(0x5), {.changes = corner, .stride = 3});
    pictures.send(plain(0x6), {.changes = corner, .stride = 1'000'000});
    pictures.send(plain(0x7), {.changes = corner});
    stream.waitForPicture(WaylandPicture::plain(size, 0x7));
    EXPECT_EQ(stream.count(), before + 1);
    EXPECT_FALSE(stream.last().changedRows);
}

TEST_F(PlayedPortal, toldChanges_areAllThatIsCopiedAndPicturesThatGotLostMakeThemUnknown)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {streamOf(pictures)}});
    const ReceivedStream stream(m_queue, m_source, displays().first(), 600);
    show(pictures, stream, plain(0x1), WaylandPicture::plain(size, 0x1));
    auto expected = WaylandPicture::plain(size, 0x1);
    for (int y : {4, 5, 20}) {
        for (int x = 0; x < size.width(); ++x)
            expected.pixels[std::size_t(y * size.width() + x)] = 0x2;
    }
    pictures.send(plain(0x2), {.changes = QList<QRect>{QRect(3, 20, 4, 1), QRect(0, 4, 64, 2)}, .sequence = 2});
    stream.waitForPicture(expected);
    EXPECT_EQ(stream.last().changedRows,
              (std::vector{RowRange{.begin = 4, .end = 6}, RowRange{.begin = 20, .end = 21}}));
    pictures.send(plain(0x3), {.changes = QList<QRect>{QRect(0, 0, 1, 1)}, .sequence = 4});
    stream.waitForPicture(WaylandPicture::plain(size, 0x3));
    EXPECT_FALSE(stream.last().changedRows);
}

TEST_F(PlayedPortal, cropAndTurn_giveTheUprightPartThatIsMeant)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {{.node = pictures.node(), .id = "a"}}});
    CapturableDisplay display = displays().first();
    display.width = 2;
    display.height = 4;
    const ReceivedStream stream(m_queue, m_source, display);
    Pixels sent = plain(0);
    // Four by two pixels in the midst of the picture, told to be turned by a quarter.
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 4; ++x)
            sent[std::size_t((10 + y) * size.width() + 20 + x)] = std::uint32_t(y * 4 + x + 1);
    }
    show(pictures, stream, sent, {.size = QSize(2, 4), .pixels = {5, 1, 6, 2, 7, 3, 8, 4}},
         {.crop = QRect(20, 10, 4, 2), .transform = 1});
}

TEST_F(PlayedPortal, pictureOfAnotherSize_endsTheStream)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {streamOf(pictures)}});
    const ReceivedStream stream(m_queue, m_source, displays().first());
    show(pictures, plain(0x1), {.crop = QRect(0, 0, 10, 10)}, [&] { return !stream.errors().empty(); });
    EXPECT_TRUE(isFault(stream.waitForEnd(), Fault::DisplayResized));
    EXPECT_EQ(stream.count(), 0U);
}

TEST_F(PlayedPortal, producerThatResizesInMidStream_endsTheStreamAndTheNextHasTheNewSize)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {streamOf(pictures)}});
    {
        const ReceivedStream stream(m_queue, m_source, displays().first());
        show(pictures, stream, plain(0x112233), WaylandPicture::plain(size, 0x112233));
        pictures.resize({32, 16});
        EXPECT_TRUE(isFault(stream.waitForEnd(), Fault::DisplayResized));
    }
    const CapturableDisplay resized = displays().first();
    EXPECT_EQ(QSize(int(resized.width), int(resized.height)), QSize(32, 16));
    const ReceivedStream next(m_queue, m_source, resized);
    show(pictures, next, Pixels(32 * 16, 0x445566), WaylandPicture::plain({32, 16}, 0x445566));
}

TEST_F(PlayedPortal, formThatNobodyCanRead_isNoStream)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size, .format = SPA_VIDEO_FORMAT_RGB16});
    m_service.behave({.streams = {{.node = pictures.node(), .size = size}}});
    const ReceivedStream stream(m_queue, m_source, displays().first());
    ASSERT_FALSE(stream.started());
    const Error error = stream.started().error();
    EXPECT_TRUE(isFault(error, Fault::PictureRefused) || isFault(error, Fault::TimedOut))
        << qPrintable(stream.started().error().localizedDescription);
}

TEST_F(PlayedPortal, fastProducer_isSlowedDownAndItsLastPictureIsNotLost)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {streamOf(pictures)}});
    constexpr int tenASecond = 10;
    const ReceivedStream stream(m_queue, m_source, displays().first(), tenASecond);
    show(pictures, stream, plain(0x1), WaylandPicture::plain(size, 0x1));
    const std::size_t before = stream.count();
    QElapsedTimer elapsed;
    elapsed.start();
    for (std::uint32_t i = 1; i <= 50; ++i)
        pictures.send(plain(i), {});
    stream.waitForPicture(WaylandPicture::plain(size, 50));
    const auto intervals = std::size_t(elapsed.elapsed() / 100);
    EXPECT_LE(stream.count() - before, intervals + 2) << "the last when its time has come";
}

TEST_F(PlayedPortal, firstPictureThatDoesNotCome_isAskedForByAnotherBeginning)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {streamOf(pictures)}});
    const ReceivedStream stream(m_queue, m_source, displays().first());
    waitUntil(QStringLiteral("another beginning"), 20s, [&] { return pictures.viewings() == 2; });
    show(pictures, stream, plain(0x1), WaylandPicture::plain(size, 0x1));
    EXPECT_TRUE(stream.errors().empty());
}

TEST_F(PlayedPortal, pictureThatIsWantedAgain_comesOnceMoreWithNothingChanged)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {streamOf(pictures)}});
    ReceivedStream stream(m_queue, m_source, displays().first());
    show(pictures, stream, plain(0x1), WaylandPicture::plain(size, 0x1));
    const std::size_t before = stream.count();
    stream.deliverAgain();
    waitUntil(QStringLiteral("the picture"), 20s, [&] { return stream.count() > before; });
    EXPECT_EQ(stream.last().pixels, WaylandPicture::plain(size, 0x1));
    EXPECT_EQ(stream.last().changedRows, std::vector<RowRange>());
    EXPECT_TRUE(stream.errors().empty());
}

TEST_F(PlayedPortal, pipeWireThatHangs_isSeenThoughTheScreenStaysStill)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {streamOf(pictures)}});
    ReceivedStream stream(m_queue, m_source, displays().first());
    EXPECT_TRUE(stream.isAnswering()) << "nothing was asked before";
    const auto answers = [&] { return stream.isAnswering(); };
    for (int look = 0; look < 3; ++look)
        waitUntil(QStringLiteral("an answer"), 20s, answers);
    m_pipeWire.daemon().freeze();
    static_cast<void>(stream.isAnswering()); // the answer to the one before may have come already
    for (int look = 0; look < 3; ++look)
        EXPECT_FALSE(stream.isAnswering());
    m_pipeWire.daemon().thaw();
    waitUntil(QStringLiteral("an answer"), 20s, answers);
    EXPECT_TRUE(stream.errors().empty());
}

TEST_F(PlayedPortal, compositorThatHangs_isSeenThoughPipeWireAnswers)
{
    bool compositorAnswers = true;
    PortalSeams seams;
    seams.isCompositorAnswering = [&compositorAnswers] { return compositorAnswers; };
    PortalDisplaySource source(std::make_shared<ScreenCastPortal>(std::move(seams)));
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {streamOf(pictures)}});
    const auto found = m_queue.sync([&] { return source.shareableContent(); });
    ASSERT_TRUE(found);
    ReceivedStream stream(m_queue, source, found->displays.first());
    EXPECT_TRUE(stream.isAnswering());
    compositorAnswers = false;
    EXPECT_FALSE(stream.isAnswering());
    compositorAnswers = true;
    waitUntil(QStringLiteral("an answer"), 20s, [&] { return stream.isAnswering(); });
    EXPECT_TRUE(stream.errors().empty());
}

TEST_F(PlayedPortal, listThatNeedsTheUsersAnswer_isToldWithoutAsking)
{
    EXPECT_TRUE(m_source.wouldAskUser());
    grant("token");
    ASSERT_TRUE(m_access.request());
    const int questions = m_service.seen().questions;
    EXPECT_FALSE(m_source.wouldAskUser()) << "the token answers";
    grant({});
    ASSERT_TRUE(content());
    EXPECT_FALSE(m_source.wouldAskUser()) << "the session is open";
    EXPECT_TRUE(PortalDisplaySource(std::make_shared<ScreenCastPortal>()).wouldAskUser()) << "there is no token";
    EXPECT_EQ(m_service.seen().questions, questions + 1) << "that of the session";
}

TEST_F(PlayedPortal, userWhoHasDeclined_isNotAskedByAList)
{
    m_service.behave({.streams = {}, .answer = TestPortal::Answer::Declines});
    ASSERT_FALSE(content());
    EXPECT_FALSE(m_source.wouldAskUser());
}

TEST_F(PlayedPortal, lastStreamThatStops_endsTheSessionWhereATokenOpensTheNext)
{
    TestPictures pictures(m_pipeWire.socket(), {.size = size});
    m_service.behave({.streams = {streamOf(pictures)}, .newToken = "token"});
    for (int recording = 1; recording <= 3; ++recording) {
        ReceivedStream stream(m_queue, m_source, displays().first());
        EXPECT_TRUE(stream.started());
        stream.stop();
        waitUntil(QStringLiteral("the session's end"), 20s,
                  [&] { return m_service.seen().closedSessions == recording; });
    }
}

} // namespace
