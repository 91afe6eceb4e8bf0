#include "platform/x11/base/X11Monitors.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

X11Monitor monitor(const char *name, const QRect &pixels, bool primary = false)
{
    return {.name = QString::fromUtf8(name), .pixels = pixels, .primary = primary};
}

QList<quint32> idsOf(QList<X11Monitor> monitors)
{
    assignDisplayIds(monitors);
    QList<quint32> ids;
    for (const X11Monitor &each : monitors)
        ids.append(each.displayId);
    return ids;
}

TEST(X11MonitorId, name_givesItsFnv1aHash)
{
    // The reference values of the 32-bit hash for "", "a" and "foobar".
    EXPECT_EQ(idsOf({monitor("", {})}), QList<quint32>{0x811c9dc5u});
    EXPECT_EQ(idsOf({monitor("a", {})}), QList<quint32>{0xe40c292cu});
    EXPECT_EQ(idsOf({monitor("foobar", {})}), QList<quint32>{0xbf9cf968u});
}

TEST(X11MonitorId, order_doesNotMatter)
{
    const auto one = idsOf({monitor("DP-1", {}), monitor("HDMI-1", {})});
    const auto other = idsOf({monitor("HDMI-1", {}), monitor("DP-1", {})});
    EXPECT_EQ(one, (QList<quint32>{other[1], other[0]}));
}

TEST(X11MonitorId, collision_addsOneToTheLaterName)
{
    // Two names with one hash.
    const QList<quint32> ids = idsOf({monitor("liquid", {}), monitor("costarring", {})});
    EXPECT_EQ(ids, (QList<quint32>{0x5e4daa9eu, 0x5e4daa9du}));
    EXPECT_EQ(idsOf({monitor("a", {}), monitor("a", {}), monitor("a", {})}),
              (QList<quint32>{0xe40c292cu, 0xe40c292du, 0xe40c292eu}));
}

TEST(X11MainMonitor, primary_comesFirst)
{
    EXPECT_EQ(mainMonitorIndex({monitor("A", {0, 0, 10, 10}), monitor("B", {10, 0, 10, 10}, true)}), 1);
}

TEST(X11MainMonitor, withoutPrimary_isTheOneAtTheCorner)
{
    EXPECT_EQ(mainMonitorIndex({monitor("A", {-10, -10, 10, 10}), monitor("B", {0, 0, 10, 10})}), 1);
}

TEST(X11MainMonitor, otherwise_isTheFirstInReadingOrder)
{
    EXPECT_EQ(mainMonitorIndex(
                  {monitor("A", {5, 20, 10, 10}), monitor("B", {30, 10, 10, 10}), monitor("C", {20, 10, 10, 10})}),
              2);
}

TEST(X11MainMonitor, noMonitors_isNone)
{
    EXPECT_EQ(mainMonitorIndex({}), std::nullopt);
}

TEST(X11MonitorLayout, desktopCoordinates_startAtTheMainMonitor)
{
    X11MonitorLayout layout{.monitors = {monitor("A", {0, 0, 100, 50}), monitor("B", {100, 20, 80, 60}, true)},
                            .mainIndex = 1};
    EXPECT_EQ(layout.origin(), QPoint(100, 20));
    EXPECT_EQ(layout.toDesktop(layout.monitors[0].pixels), QRectF(-100, -20, 100, 50));
    EXPECT_EQ(layout.toDesktop(layout.monitors[1].pixels), QRectF(0, 0, 80, 60));
    EXPECT_EQ(X11MonitorLayout().origin(), QPoint());
}

} // namespace
} // namespace ostrel
