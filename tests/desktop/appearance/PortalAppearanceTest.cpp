#include "platform/appearance/PortalAppearance.h"

#include "support/ManualClock.h"
#include "support/MockService.h"
#include "support/RunTask.h"
#include "support/SessionBus.h"

#include <gtest/gtest.h>

#include <optional>

using namespace ostrel;

namespace {

/// A portal on a bus of the test's own, whose answer is Python.
class PortalAppearanceTest : public testing::Test
{
protected:
    void startPortal(const QByteArray &settings)
    {
        m_portal.emplace(m_bus, MockService::Object{.service = "org.freedesktop.portal.Desktop",
                                                    .path = "/org/freedesktop/portal/desktop",
                                                    .interface = "org.freedesktop.portal.Settings"});
        m_portal->addMethod("ReadAll", "as", "a{sa{sv}}", "ret = " + settings);
    }
    void follow()
    {
        m_appearance.follow([this](const AppearanceWishes &wishes) {
            m_wishes = wishes;
            ++m_told;
        });
    }
    void change(const QByteArray &name, const QByteArray &key, const QByteArray &value)
    {
        m_portal->emitSignal("SettingChanged", "ssv", "[<'" + name + "'>, <'" + key + "'>, <" + value + ">]");
    }
    bool isToldTimes(int times)
    {
        return pumpUntil([&] { return m_told >= times; });
    }

    SessionBus m_bus;
    std::optional<MockService> m_portal;
    AppearanceWishes m_wishes;
    int m_told = 0;
    PortalAppearance m_appearance{m_bus.address()};
};

const QByteArray darkAndLarge = "{'org.freedesktop.appearance': {'color-scheme': dbus.UInt32(1)}, "
                                "'org.gnome.desktop.interface': {'text-scaling-factor': dbus.Double(1.25), "
                                "'enable-animations': dbus.Boolean(False)}}";

TEST_F(PortalAppearanceTest, portalThatRuns_isRead)
{
    startPortal(darkAndLarge);
    follow();
    ASSERT_TRUE(isToldTimes(1));
    EXPECT_EQ(m_wishes, (AppearanceWishes{.dark = true, .textScale = 1.25, .reducedMotion = true}));
}

TEST_F(PortalAppearanceTest, settingsChanged_areFollowed)
{
    startPortal(darkAndLarge);
    follow();
    ASSERT_TRUE(isToldTimes(1));
    change("org.freedesktop.appearance", "color-scheme", "<uint32 2>"); // boxed twice, as some do
    ASSERT_TRUE(isToldTimes(2));
    EXPECT_EQ(m_wishes.dark, false);
    change("org.freedesktop.appearance", "color-scheme", "uint32 0");
    ASSERT_TRUE(isToldTimes(3));
    EXPECT_EQ(m_wishes.dark, std::nullopt);
    change("org.gnome.desktop.interface", "font-name", "'Cantarell 11'");
    change("org.gnome.desktop.interface", "text-scaling-factor", "1.5");
    change("org.gnome.desktop.interface", "enable-animations", "true");
    ASSERT_TRUE(isToldTimes(5)) << "what changes nothing is not told";
    EXPECT_EQ(m_wishes, (AppearanceWishes{.dark = {}, .textScale = 1.5, .reducedMotion = false}));
    EXPECT_EQ(m_told, 5);
}

TEST_F(PortalAppearanceTest, reducedMotion_isTakenFromEitherOfItsSettings)
{
    startPortal("{'org.freedesktop.appearance': {'reduced-motion': dbus.UInt32(1)}}");
    follow();
    ASSERT_TRUE(isToldTimes(1));
    EXPECT_EQ(m_wishes.reducedMotion, true);
    change("org.gnome.desktop.interface", "enable-animations", "true");
    change("org.freedesktop.appearance", "reduced-motion", "uint32 0");
    ASSERT_TRUE(isToldTimes(2));
    EXPECT_EQ(m_wishes.reducedMotion, false) << "animations alone took nothing back";
    EXPECT_EQ(m_told, 2);
    change("org.gnome.desktop.interface", "enable-animations", "false");
    ASSERT_TRUE(isToldTimes(3));
    EXPECT_EQ(m_wishes.reducedMotion, true) << "no preference is left to the other";
    change("org.freedesktop.appearance", "reduced-motion", "uint32 1");
    change("org.gnome.desktop.interface", "enable-animations", "true");
    change("org.freedesktop.appearance", "reduced-motion", "uint32 7");
    ASSERT_TRUE(isToldTimes(4));
    EXPECT_EQ(m_wishes.reducedMotion, false);
}

TEST_F(PortalAppearanceTest, valuesOfOtherTypes_areNoWishes)
{
    startPortal(
        "{'org.freedesktop.appearance': {'color-scheme': 'dark', 'reduced-motion': dbus.Boolean(True)}, "
        "'org.gnome.desktop.interface': {'text-scaling-factor': 'large', 'enable-animations': dbus.UInt32(0)}}");
    follow();
    ASSERT_TRUE(isToldTimes(1));
    EXPECT_EQ(m_wishes, AppearanceWishes{});
}

TEST_F(PortalAppearanceTest, portalThatComesLater_isRead)
{
    follow();
    startPortal(darkAndLarge);
    // Its name is there before its answer: the first question may have come too early, a change tells it all the same.
    change("org.freedesktop.appearance", "color-scheme", "uint32 1");
    ASSERT_TRUE(isToldTimes(1));
    EXPECT_EQ(m_wishes.dark, true);
}

TEST_F(PortalAppearanceTest, noBus_nothingIsToldAndNobodyWaits)
{
    PortalAppearance appearance{QByteArray()};
    appearance.follow([](const AppearanceWishes &) { ADD_FAILURE(); });
    settleEvents();
}

TEST_F(PortalAppearanceTest, followingEnded_nothingMoreIsTold)
{
    startPortal(darkAndLarge);
    follow();
    ASSERT_TRUE(isToldTimes(1));
    m_appearance.follow({});
    change("org.freedesktop.appearance", "color-scheme", "uint32 2");
    settleEvents();
    EXPECT_EQ(m_told, 1);
}

} // namespace
