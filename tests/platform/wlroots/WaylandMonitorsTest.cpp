#include "platform/wlroots/WaylandMonitors.h"

#include "ScriptedOutputs.h"
#include "support/RunTask.h"

#include <QLocalServer>

using namespace ostrel;

namespace {

/// Monitors by name of a compositor that does what real ones can't be brought to here.
class ScriptedMonitors : public ScriptedOutputs
{
protected:
    /// The compositor's word takes its time to come in.
    bool become(const QStringList &names)
    {
        return pumpUntil([&] { return m_monitors.names() == names; });
    }

    const QString m_leftName = QString::fromUtf8(m_leftLook.name);
    const QString m_rightName = QString::fromUtf8(m_rightLook.name);
    WaylandMonitors m_monitors{"scripted"};
};

TEST_F(ScriptedMonitors, unpluggedAndPluggedInAgain_isToldOnlyWhileItIsThere)
{
    EXPECT_TRUE(become({m_leftName, m_rightName}));
    m_compositor->unplug(m_left);
    EXPECT_TRUE(become({m_rightName}));
    m_compositor->plugIn(m_leftLook, blue);
    EXPECT_TRUE(become({m_leftName, m_rightName}));
}

TEST_F(ScriptedMonitors, oneThatComesAndGoesBetweenTwoLooks_isNeverToldAndCostsNoneOfTheOthers)
{
    EXPECT_TRUE(become({m_leftName, m_rightName}));
    m_compositor->forget(m_compositor->plugIn({.name = "DP-3"}, red));
    EXPECT_EQ(m_monitors.names(), (QStringList{m_leftName, m_rightName}));
    EXPECT_EQ(m_monitors.names(), (QStringList{m_leftName, m_rightName}));
}

TEST_F(ScriptedMonitors, withoutMakerAndModel_haveTheConnectorsName)
{
    EXPECT_EQ(m_monitors.names(), (QStringList{m_leftName, m_rightName}));
}

TEST_F(ScriptedMonitors, compositorThatIsSilent_tellsNothing)
{
    QLocalServer silent;
    ASSERT_TRUE(silent.listen(qEnvironmentVariable("XDG_RUNTIME_DIR") + QStringLiteral("/wayland-silent")));
    EXPECT_EQ(WaylandMonitors("wayland-silent").names(), QStringList());
}

} // namespace
