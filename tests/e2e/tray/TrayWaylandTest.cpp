#include "OstrelProgram.h"
#include "support/Printers.h"
#include "support/SessionBus.h"
#include "support/WaylandDesktop.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRect>

#include <gmock/gmock.h>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

/// The paper, and the room for its shadow around it.
constexpr QSize panelSize(320 + 2 * 24, 560 + 2 * 24);

/// A Wayland session without XWayland, and without a tray.
class TrayWayland : public testing::Test
{
protected:
    struct Window {
        QRect place;
        bool isFloating = false;
        bool isFocused = false;
    };

    TrayWayland()
    {
        m_environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QString::fromLatin1(m_bus.address()));
        m_environment.insert(QStringLiteral("GSETTINGS_BACKEND"), QStringLiteral("memory"));
        m_ostrel.environment() = m_environment;
        // The toolkit's Wayland library keeps what stands for the compositor's globals. Whose they are shows only
        // further up than where quick stacks end, at the first function without a frame pointer.
        m_ostrel.environment().insert(QStringLiteral("ASAN_OPTIONS"),
                                      QStringLiteral("detect_leaks=1:fast_unwind_on_malloc=0"));
        m_ostrel.environment().insert(QStringLiteral("LSAN_OPTIONS"),
                                      QStringLiteral("suppressions=" OSTREL_TOOLKIT_LEAKS ":print_suppressions=0"));
        m_ostrel.writeSettings();
    }

    static std::optional<Window> panelIn(const QJsonObject &node)
    {
        if (node[QStringLiteral("app_id")] == QStringLiteral("com.tamsk.ostrel")) {
            const QJsonObject place = node[QStringLiteral("rect")].toObject();
            return Window{.place = {place[QStringLiteral("x")].toInt(), place[QStringLiteral("y")].toInt(),
                                    place[QStringLiteral("width")].toInt(), place[QStringLiteral("height")].toInt()},
                          .isFloating = node[QStringLiteral("type")] == QStringLiteral("floating_con"),
                          .isFocused = node[QStringLiteral("focused")].toBool()};
        }
        for (const char *children : {"nodes", "floating_nodes"}) {
            for (const auto child : node[QLatin1String(children)].toArray()) {
                if (const auto found = panelIn(child.toObject()))
                    return found;
            }
        }
        return std::nullopt;
    }
    std::optional<Window> panel()
    {
        return panelIn(QJsonDocument::fromJson(m_desktop.ask(QStringLiteral("get_tree"))).object());
    }
    Window waitForPanel()
    {
        std::optional<Window> shown;
        waitUntil(QStringLiteral("the panel"), 30s, [&] { return (shown = panel()) && shown->isFocused; });
        return *shown;
    }
    void waitUntilPanelIsClosed()
    {
        waitUntil(QStringLiteral("the panel to close"), 30s, [this] { return !panel(); });
    }
    /// @return what it said
    QByteArray end()
    {
        m_ostrel.terminate();
        const auto outcome = m_ostrel.waitForEnd();
        EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
        m_ostrel.expectNoObserverStays();
        return outcome.messages;
    }

    SessionBus m_bus; ///< before the desktop: its is the runtime folder
    WaylandDesktop m_desktop{{{.pixels = {1280, 720}, .corner = {0, 0}}}};
    QProcessEnvironment m_environment = m_desktop.environment();
    OstrelProgram m_ostrel{m_environment};
};

TEST_F(TrayWayland, withoutATray_saysSoAndASecondStartOpensThePanel)
{
    m_ostrel.start({});
    m_ostrel.waitForMessage("This desktop shows no tray. Start Tamsk Ostrel again to open its panel.");
    EXPECT_EQ(m_ostrel.run({}).status, 0);
    const Window shown = waitForPanel();
    EXPECT_TRUE(shown.isFloating) << "it is not tiled";
    EXPECT_EQ(shown.place.size(), panelSize);
    m_desktop.command(QStringLiteral("[app_id=com.tamsk.ostrel] kill")); // as a window manager closes it
    waitUntilPanelIsClosed();
    EXPECT_EQ(m_ostrel.run({}).status, 0);
    waitForPanel();
    EXPECT_THAT(end().toStdString(), HasSubstr("shows no tray"));
}

} // namespace
