#include "RandomPainter.h"
#include "X11ChangesFixture.h"
#include "platform/x11/capture/X11Audit.h"
#include "support/LogRecorder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const std::vector<RowRange> nothing;

/// What a test makes of the trackers of its source.
struct TrackerScript {
    std::chrono::milliseconds now{0};
    /// Leaves out what the server tells.
    bool isSilent = false;
    /// Gives no answer.
    bool isIgnorant = false;
};

/// Tells what the server tells, unless the script has it otherwise.
class ScriptedTracker final : public X11ChangeTracker
{
public:
    ScriptedTracker(std::unique_ptr<X11ChangeTracker> real, const TrackerScript &script)
        : m_real(std::move(real)), m_script(script)
    {}

    std::optional<std::vector<QRect>> takeChanges() override
    {
        auto changes = m_real->takeChanges();
        if (m_script.isIgnorant)
            return std::nullopt;
        return m_script.isSilent ? std::vector<QRect>() : changes;
    }

private:
    std::unique_ptr<X11ChangeTracker> m_real;
    const TrackerScript &m_script;
};

struct WithScript {
    TrackerScript m_script;

    X11CaptureSeams seams()
    {
        return {.monotonicTime = [this] { return m_script.now; },
                .pointerRest = neverAtRest,
                .makeTracker = [this](std::shared_ptr<X11Connection> connection) -> std::unique_ptr<X11ChangeTracker> {
                    return std::make_unique<ScriptedTracker>(makeDamageTracker(std::move(connection)), m_script);
                }};
    }
};

class X11Honesty : public WithScript, public X11Changes
{
protected:
    X11Honesty() : X11Changes({.size = {640, 400}, .sessionBus = false}, seams())
    {
        m_desktop.setMonitors(twoMonitors);
        m_monitor = follow(monitorA);
        look(m_monitor);
    }

    std::uint32_t shownAt(QPoint pixel) { return rgbAt(pictureOf(*m_monitor.kept), left, pixel); }

    LogRecorder m_log{"com.tamsk.ostrel.Platform"};
    Followed m_monitor;
};

TEST_F(X11Honesty, changeThatNobodyTells_isFoundAfterThirtySecondsAndPicturesAreFetchedWholeFromThenOn)
{
    m_script.isSilent = true;
    m_painter.fill({20, 30, 5, 5}, 0x123456);
    m_script.now = 29'999ms;
    EXPECT_NE(shownAt({22, 32}), 0x123456u) << "there is something to find";
    EXPECT_TRUE(m_log.take(QtWarningMsg).isEmpty());

    m_script.now = 30'000ms;
    EXPECT_FALSE(look(m_monitor)) << "nobody knows how long it has been wrong";
    EXPECT_EQ(m_log.take(QtWarningMsg),
              QStringList{QStringLiteral("the X server does not tell all changes of display \"A\"; its pictures are "
                                         "fetched whole from now on")});
    m_painter.fill({220, 130, 5, 5}, 0x654321);
    EXPECT_FALSE(look(m_monitor));
    m_script.now = 90'000ms;
    EXPECT_FALSE(look(m_monitor));
    EXPECT_TRUE(m_log.take(QtWarningMsg).isEmpty()) << "once is enough";
}

TEST_F(X11Honesty, distrustOfOneMonitor_leavesTheOtherAlone)
{
    Followed other = follow(monitorB);
    look(other);
    m_script.isSilent = true;
    m_painter.fill({20, 30, 5, 5}, 0x123456);
    m_script.now = 30'000ms;
    EXPECT_FALSE(look(m_monitor));
    EXPECT_EQ(look(other), nothing);
}

TEST_F(X11Honesty, onePixelUntoldAmongToldOnes_isFound)
{
    m_script.isSilent = true;
    m_painter.fill({399, 299, 1, 1}, 0x010000);
    shownAt({0, 0}); // takes the change off the server
    m_script.isSilent = false;
    m_painter.fill({0, 0, 300, 200}, 0x00ff00);
    m_script.now = 30'000ms;
    look(m_monitor);
    EXPECT_EQ(m_log.take(QtWarningMsg).size(), 1);
}

TEST_F(X11Honesty, honestServer_isTrustedAfterEveryComparison)
{
    for (int minute = 1; minute <= 10; ++minute) {
        m_script.now = std::chrono::minutes(minute);
        EXPECT_EQ(look(m_monitor), nothing);
        m_painter.fill({20, 30, 5, 5}, unsigned(minute));
        m_script.now += 30s;
        EXPECT_EQ(look(m_monitor), (std::vector<RowRange>{{30, 35}}));
    }
    EXPECT_TRUE(m_log.take(QtWarningMsg).isEmpty());
}

TEST_F(X11Honesty, trackerWithoutAnAnswer_hasThePictureFetchedWholeAndIsAskedAgain)
{
    m_script.isIgnorant = true;
    m_painter.fill({20, 30, 5, 5}, 0x123456);
    EXPECT_FALSE(look(m_monitor));
    m_script.isIgnorant = false;
    EXPECT_EQ(look(m_monitor), nothing);
    EXPECT_TRUE(m_log.take(QtWarningMsg).isEmpty());
}

TEST_F(X11Honesty, strangerWhoDrawsDuringComparisons_isNoDishonesty)
{
    for (unsigned round = 0; round < 10; ++round) {
        RandomPainter painter(m_desktop.display(), round);
        std::atomic<bool> isOver = false;
        std::thread stranger([&] {
            while (!isOver)
                painter.paint();
        });
        for (int i = 0; i < 20; ++i) {
            m_script.now += 30s; // a comparison each time
            keepUp(m_monitor);
        }
        isOver = true;
        stranger.join();
        keepUp(m_monitor); // the one before may have been taken anew, as windows came all the time: it tells nothing
        SCOPED_TRACE(round);
        EXPECT_TRUE(look(m_monitor)) << "changes are still told";
    }
    EXPECT_TRUE(m_log.take(QtWarningMsg).isEmpty());
}

/// Two rows of four pixels, at (10, 20) of the screen, with eight bytes after each row that don't count.
class X11AuditRules : public testing::Test
{
protected:
    X11RowPair pair() const
    {
        return {.held = m_held.data(), .seen = m_seen.data(), .stride = 24, .place = QRect(10, 20, 4, 2)};
    }
    void differAt(int x, int y, int byte) { m_seen[std::size_t(y * 24 + x * 4 + byte)] ^= 1; }

    std::vector<std::uint8_t> m_held = std::vector<std::uint8_t>(48, 7);
    std::vector<std::uint8_t> m_seen = m_held;
};

TEST_F(X11AuditRules, unusedBytes_doNotCount)
{
    differAt(1, 1, 3);
    m_seen[20] = 1;
    EXPECT_TRUE(showsTheSame(pair()));
    EXPECT_TRUE(isExplainedBy({}, pair()));
}

TEST_F(X11AuditRules, eachColour_counts)
{
    for (const int byte : {0, 1, 2}) {
        m_seen = m_held;
        differAt(3, 1, byte);
        EXPECT_FALSE(showsTheSame(pair()));
        EXPECT_FALSE(isExplainedBy({}, pair()));
    }
}

TEST_F(X11AuditRules, difference_isExplainedByARectangleOverItAlone)
{
    differAt(2, 1, 0);
    const auto explains = [this](const QRect &rectangle) { return isExplainedBy({{rectangle}}, pair()); };
    EXPECT_TRUE(explains({12, 21, 1, 1}));
    EXPECT_TRUE(explains({0, 0, 100, 100}));
    EXPECT_FALSE(explains({12, 20, 1, 1}));
    EXPECT_FALSE(explains({11, 21, 1, 1}));
    EXPECT_FALSE(explains({13, 21, 1, 1}));
    differAt(0, 0, 0);
    EXPECT_FALSE(explains({12, 21, 1, 1})) << "one of two";
    const std::vector<QRect> both{{12, 21, 1, 1}, {10, 20, 1, 1}};
    EXPECT_TRUE(isExplainedBy(both, pair()));
}

} // namespace
