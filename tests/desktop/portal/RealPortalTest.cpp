#include "ReceivedStream.h"
#include "base/Fault.h"
#include "base/Paths.h"
#include "platform/portal/PortalDisplaySource.h"
#include "platform/portal/PortalScreenCaptureAccess.h"
#include "platform/portal/ScreenCastPortal.h"
#include "support/LogRecorder.h"
#include "support/PortalDesktop.h"
#include "support/TestHome.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QThread>

#include <gtest/gtest.h>

#include <optional>
#include <utility>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// The real portal on a real sway with two outputs, of which the second stands on its side. The portal's part for
/// wlroots shows one at a time.
class RealPortal : public testing::Test
{
protected:
    static constexpr QSize firstSize{320, 240};
    static constexpr QSize secondSize{120, 200}; ///< as people see it

    Result<ShareableContent> content()
    {
        return m_queue.sync([this] { return m_source.shareableContent(); });
    }

    CapturableDisplay onlyDisplay()
    {
        const auto found = content();
        if (!found || found->displays.size() != 1)
            failTest(found ? QStringLiteral("not one display") : found.error().localizedDescription);
        return found->displays.first();
    }

    void setBackground(const char *colour)
    {
        m_desktop.screens().command(
            QStringLiteral("output HEADLESS-1 background %1 solid_color").arg(QLatin1String(colour)));
    }

    /// Changes the first output again and again, for a picture may get lost between programs that are just starting or
    /// are about to change something, and this portal sends none again until something has changed.
    void changeUntil(const QString &what, const std::function<bool()> &isThere)
    {
        QElapsedTimer sinceChange;
        sinceChange.start();
        waitUntil(what, 30s, [&] {
            if (sinceChange.hasExpired(1'500)) {
                setBackground("#000000");
                setBackground("#336699");
                sinceChange.start();
            }
            return isThere();
        });
    }
    void waitForBackground(const ReceivedStream &stream)
    {
        changeUntil(QStringLiteral("the background"), [&] {
            return stream.count() > 0 && stream.last().pixels == WaylandPicture::plain(firstSize, 0x336699);
        });
    }

    static QString grantFile() { return stateDirectory() + QStringLiteral("/screen-sharing.json"); }

    const TestHome m_home;
    PortalDesktop m_desktop{{{.pixels = firstSize, .corner = {0, 0}, .colour = "#336699"},
                             {.pixels = secondSize.transposed(),
                              .corner = {320, 0},
                              .scale = 2,
                              .transform = QStringLiteral("90"),
                              .colour = "#ff8001"}}};
    std::shared_ptr<ScreenCastPortal> m_portal = std::make_shared<ScreenCastPortal>();
    PortalScreenCaptureAccess m_access{m_portal};
    PortalDisplaySource m_source{m_portal};
    SerialQueue m_queue{QStringLiteral("samples")};
};

TEST_F(RealPortal, chosenOutput_isADisplayOfItsPixelsWhosePlaceNobodyTells)
{
    const auto found = content();
    ASSERT_TRUE(found) << qPrintable(found.error().localizedDescription);
    ASSERT_EQ(found->displays.size(), 1);
    EXPECT_EQ(found->displays[0].width, 320);
    EXPECT_EQ(found->displays[0].height, 240);
    EXPECT_TRUE(found->displays[0].bounds.isEmpty());
    EXPECT_EQ(found->mainDisplayId, found->displays[0].displayId);
    EXPECT_EQ(m_source.captureMode(), CaptureMode::Streams);
}

TEST_F(RealPortal, stream_showsTheScreenPixelByPixelAndThenEveryChange)
{
    const ReceivedStream stream(m_queue, m_source, onlyDisplay());
    ASSERT_TRUE(stream.started()) << qPrintable(stream.started().error().localizedDescription);
    waitForBackground(stream);
    const auto noise = WaylandPicture::noise(firstSize, 1);
    noise.save(m_desktop.screens().path(QStringLiteral("noise.ppm")));
    m_desktop.screens().showPicture(0, m_desktop.screens().path(QStringLiteral("noise.ppm")));
    stream.waitForPicture(noise);
}

TEST_F(RealPortal, outputThatStandsOnItsSide_isSeenUpright)
{
    m_desktop.willChoose(1);
    const ReceivedStream stream(m_queue, m_source, onlyDisplay());
    ASSERT_TRUE(stream.started()) << qPrintable(stream.started().error().localizedDescription);
    const auto noise = WaylandPicture::noise(secondSize, 2);
    noise.save(m_desktop.screens().path(QStringLiteral("noise.ppm")));
    m_desktop.screens().showPicture(1, m_desktop.screens().path(QStringLiteral("noise.ppm")));
    stream.waitForPicture(noise);
}

TEST_F(RealPortal, stillScreen_givesNoMorePictures)
{
    const ReceivedStream stream(m_queue, m_source, onlyDisplay());
    waitForBackground(stream);
    const std::size_t count = stream.count();
    // While sway is busy with something else, it would have had the time for many.
    for (int i = 0; i < 20; ++i)
        m_desktop.screens().ask(QStringLiteral("get_tree"));
    EXPECT_EQ(stream.count(), count);
}

TEST_F(RealPortal, stillScreenThatIsSeenAgain_isSaidToWaitAndGivesItsFirstPictureWithTheNextChange)
{
    {
        const ReceivedStream stream(m_queue, m_source, onlyDisplay());
        waitForBackground(stream);
    }
    // This portal tells changes only. A desktop that has only just come up may yet draw itself once more.
    std::optional<ReceivedStream> stream;
    bool waits = false;
    while (!waits) {
        LogRecorder log;
        stream.emplace(m_queue, m_source, onlyDisplay());
        waitUntil(QStringLiteral("the word of it, or a picture"), 20s, [&] {
            waits = !log.takeAll().filter(QStringLiteral("waits for its first picture")).isEmpty();
            return waits || stream->count() > 0;
        });
    }
    EXPECT_EQ(stream->count(), 0U);
    waitForBackground(*stream);
}

TEST_F(RealPortal, changeOfAPart_isToldAsTheRowsThatItIsIn)
{
    const ReceivedStream stream(m_queue, m_source, onlyDisplay());
    waitForBackground(stream);
    m_desktop.screens().startTerminal(QStringLiteral("strip"), QStringLiteral("Strip"), "20a040");
    auto expected = WaylandPicture::plain(firstSize, 0x336699);
    for (int y = 60; y < 110; ++y) {
        for (int x = 20; x < 120; ++x)
            expected.pixels[std::size_t(y * firstSize.width() + x)] = 0x20a040;
    }
    // A terminal that is slow to start draws in its own size once more, and a floating window takes that on.
    waitUntil(QStringLiteral("the strip"), 20s, [&] {
        m_desktop.screens().command(
            QStringLiteral("[app_id=strip] floating enable, resize set 100 px 50 px, move position 20 px 60 px"));
        return stream.last().pixels == expected;
    });
    std::size_t before = 0;
    waitUntil(QStringLiteral("rest"), 20s, [&] {
        QThread::msleep(500);
        const std::size_t earlier = std::exchange(before, stream.count());
        return earlier == before;
    });
    m_desktop.screens().command(QStringLiteral("[app_id=strip] move position 30 px 60 px"));
    waitUntil(QStringLiteral("the strip to move"), 20s, [&] { return stream.count() > before; });
    const auto rows = stream.picture(before).changedRows;
    ASSERT_TRUE(rows);
    EXPECT_GT(rows->front().begin, 0) << "not the whole picture";
    EXPECT_LE(rows->front().begin, 60);
    EXPECT_GE(rows->back().end, 110);
}

TEST_F(RealPortal, stoppedStream_deliversNothingAnyMore)
{
    ReceivedStream stream(m_queue, m_source, onlyDisplay());
    waitForBackground(stream);
    stream.stop();
    const std::size_t count = stream.count();
    ReceivedStream another(m_queue, m_source, onlyDisplay());
    setBackground("#123456");
    another.waitForPicture(WaylandPicture::plain(firstSize, 0x123456));
    EXPECT_EQ(stream.count(), count);
    EXPECT_TRUE(stream.errors().empty());
}

TEST_F(RealPortal, outputThatChangesItsSize_endsTheStreamAndIsReadAnew)
{
    const ReceivedStream stream(m_queue, m_source, onlyDisplay());
    waitForBackground(stream);
    m_desktop.screens().command(QStringLiteral("output HEADLESS-1 resolution 200x100"));
    changeUntil(QStringLiteral("the stream's end"), [&] { return !stream.errors().empty(); });
    const Error error = stream.errors().front();
    EXPECT_TRUE(isFault(error, Fault::DisplayResized) || isFault(error, Fault::PictureStreamEnded))
        << qPrintable(error.localizedDescription);
    EXPECT_EQ(onlyDisplay().width, 200);
}

TEST_F(RealPortal, consent_isKeptForTheUserAloneAndOpensTheNextSessionWithoutAQuestion)
{
    EXPECT_FALSE(m_access.preflight());
    EXPECT_TRUE(m_access.request());
    EXPECT_TRUE(m_access.preflight());
    EXPECT_EQ(QFileInfo(grantFile()).permissions() & (QFile::ReadGroup | QFile::ReadOther | QFile::WriteOther),
              QFile::Permissions());
    m_desktop.willDecline(); // if it were asked
    EXPECT_EQ(onlyDisplay().width, 320);
    // As in another run of the program.
    const auto later = std::make_shared<ScreenCastPortal>();
    EXPECT_TRUE(PortalScreenCaptureAccess(later).preflight());
    EXPECT_TRUE(PortalDisplaySource(later).shareableContent());
}

TEST_F(RealPortal, userWhoDeclines_isNotAskedAgainUnlessByTheUsersOwnWish)
{
    m_desktop.willDecline();
    const auto declined = content();
    ASSERT_FALSE(declined);
    EXPECT_TRUE(isFault(declined.error(), Fault::ScreenCaptureDeclined))
        << qPrintable(declined.error().localizedDescription);
    EXPECT_FALSE(m_access.preflight());
    m_desktop.willChoose(0); // the answer would be another one now
    EXPECT_TRUE(isFault(content().error(), Fault::ScreenCaptureDeclined));
    EXPECT_TRUE(m_access.request());
    EXPECT_TRUE(content());
}

TEST_F(RealPortal, killedBackend_endsTheStreamAndItsSuccessorIsFound)
{
    const ReceivedStream stream(m_queue, m_source, onlyDisplay());
    waitForBackground(stream);
    m_desktop.backend().kill();
    EXPECT_TRUE(isFault(stream.waitForEnd(), Fault::PictureStreamEnded));
    m_desktop.startBackend();
    const ReceivedStream next(m_queue, m_source, onlyDisplay());
    waitForBackground(next);
    EXPECT_EQ(stream.errors().size(), 1U);
}

TEST_F(RealPortal, killedPipeWire_endsTheStreamAndNothingCanBeSeen)
{
    const ReceivedStream stream(m_queue, m_source, onlyDisplay());
    waitForBackground(stream);
    m_desktop.pipeWire().kill();
    EXPECT_TRUE(isFault(stream.waitForEnd(), Fault::PictureStreamEnded));
    // What is left of the portal may take the question and never answer it.
    PortalDisplaySource impatient(std::make_shared<ScreenCastPortal>(PortalSeams{.userPatience = 300ms}));
    EXPECT_FALSE(impatient.shareableContent());
}

TEST_F(RealPortal, killedPortal_isSaidWithWhatToInstall)
{
    m_desktop.portal().kill();
    const auto found = content();
    ASSERT_FALSE(found);
    EXPECT_TRUE(isFault(found.error(), Fault::NoScreenPortal)) << qPrintable(found.error().localizedDescription);
}

} // namespace
