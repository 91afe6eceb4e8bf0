#include "platform/wlroots/WaylandMonitors.h"

#include "WaylandCaptureFixture.h"

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// Whoever knows a compositor's monitors by name and nothing else.
class NamedMonitors : public WaylandCapture
{
protected:
    void waitForNames(qsizetype count)
    {
        waitUntil(QStringLiteral("%1 monitors").arg(count), 10s, [&] { return m_monitors.names().size() == count; });
    }

    WaylandMonitors m_monitors;
};

TEST_F(NamedMonitors, all_areToldByMakerAndModelAlsoSeveralOfOne)
{
    EXPECT_EQ(m_monitors.names(), QStringList(2, QStringLiteral("headless headless")));
}

TEST_F(NamedMonitors, newOne_isToldAtTheFirstLookThatFollows)
{
    waitForNames(2);
    m_desktop.command(QStringLiteral("create_output"));
    WlrDisplaySource whoElseSees;
    waitUntil(QStringLiteral("the new output"), 10s,
              [&] { return whoElseSees.shareableContent()->displays.size() == 3; });
    EXPECT_EQ(m_monitors.names(), QStringList(3, QStringLiteral("headless headless"))) << "at the first look";
}

TEST_F(NamedMonitors, oneThatOnlyTurnsOrScales_isTheSame)
{
    const QStringList before = m_monitors.names();
    m_desktop.command(QStringLiteral("output HEADLESS-1 transform 90 scale 2"));
    WlrDisplaySource whoElseSees;
    waitUntil(QStringLiteral("the output to turn"), 10s,
              [&] { return whoElseSees.shareableContent()->displays.first().width == firstSize.height(); });
    EXPECT_EQ(m_monitors.names(), before);
}

TEST_F(NamedMonitors, compositorThatGoes_tellsNothingUntilAnotherOneComes)
{
    waitForNames(2);
    m_desktop.compositor().kill();
    waitForNames(0);
    m_desktop.restart();
    waitForNames(2);
}

} // namespace
