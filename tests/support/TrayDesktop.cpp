#include "support/TrayDesktop.h"

#include "base/Files.h"

#include <QDir>
#include <QFile>
#include <QImage>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <xcb/xcb.h>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

/// One panel with nothing on it but the tray; dark, as desktops without a scheme of their own are taken to be.
constexpr const char *panelConfiguration = R"(<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="dark-mode" type="bool" value="true"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="length" type="uint" value="10"/>
      <property name="size" type="uint" value="30"/>
      <property name="plugin-ids" type="array">
        <value type="int" value="1"/>
      </property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="systray"/>
  </property>
</channel>
)";

bool standsOut(const QColor &color, const QColor &ground)
{
    constexpr int visibly = 60;
    return std::abs(qGray(color.rgb()) - qGray(ground.rgb())) > visibly || color.red() - color.green() > visibly;
}

/// What is drawn on a panel, without the panel's own rim.
QRect drawnOn(const QImage &panel)
{
    constexpr int rim = 3;
    if (panel.width() <= 2 * rim || panel.height() <= 2 * rim)
        return {};
    const QColor ground = panel.pixelColor(panel.width() - 1 - rim, panel.height() - 1 - rim);
    QRect drawn;
    for (int y = rim; y < panel.height() - rim; ++y) {
        for (int x = rim; x < panel.width() - rim; ++x) {
            if (standsOut(panel.pixelColor(x, y), ground))
                drawn |= QRect(x, y, 1, 1);
        }
    }
    return drawn;
}

struct Free {
    void operator()(void *memory) const { std::free(memory); }
};

/// Whether somebody owns the selection by which programs find an embedding tray.
bool hasEmbeddingTray(const QByteArray &display)
{
    static constexpr std::string_view selection = "_NET_SYSTEM_TRAY_S0";
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> server(xcb_connect(display.constData(), nullptr),
                                                                              xcb_disconnect);
    const std::unique_ptr<xcb_intern_atom_reply_t, Free> atom(xcb_intern_atom_reply(
        server.get(), xcb_intern_atom(server.get(), 0, selection.size(), selection.data()), nullptr));
    if (!atom)
        return false;
    const std::unique_ptr<xcb_get_selection_owner_reply_t, Free> owner(
        xcb_get_selection_owner_reply(server.get(), xcb_get_selection_owner(server.get(), atom->atom), nullptr));
    return owner && owner->owner != XCB_NONE;
}

} // namespace

TrayDesktop::TrayDesktop(Host host) : m_kind(host)
{
    m_desktop.enter();
    m_desktop.startAccessibility();
    configurePanel();
    startHost();
}

QProcessEnvironment TrayDesktop::environment() const
{
    QProcessEnvironment environment = m_desktop.environment();
    environment.insert(QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON"), QStringLiteral("1"));
    return environment;
}

void TrayDesktop::configurePanel() const
{
    const QString folder = m_desktop.path(QStringLiteral("config/xfce4/xfconf/xfce-perchannel-xml"));
    QDir().mkpath(folder);
    if (!writeFileAtomically(folder + QStringLiteral("/xfce4-panel.xml"), panelConfiguration))
        failTest(QStringLiteral("the panel's configuration can't be written"));
}

void TrayDesktop::startHost(const Place &place)
{
    const bool embeds = m_kind == Host::XEmbed;
    m_host = std::make_unique<TestProcess>(TestProcess::Command{
        .program = embeds ? QStringLiteral("trayer") : QStringLiteral("xfce4-panel"),
        .arguments =
            embeds ? QStringList{QStringLiteral("--edge"), place.edge, QStringLiteral("--align"),
                                 QStringLiteral("right"), QStringLiteral("--widthtype"), QStringLiteral("request"),
                                 QStringLiteral("--height"), QStringLiteral("26"), QStringLiteral("--distancefrom"),
                                 QStringLiteral("right"), QStringLiteral("--distance"),
                                 QString::number(place.fromTheEnd), QStringLiteral("--SetDockType"),
                                 QStringLiteral("true"), QStringLiteral("--SetPartialStrut"), QStringLiteral("true")}
                   : QStringList{QStringLiteral("--disable-wm-check"), QStringLiteral("--sm-client-disable")},
        .environment = m_desktop.environment(),
        .logFile = m_desktop.path(QStringLiteral("tray.log"))});
    // Programs that start before it would say that there is none.
    waitUntil(QStringLiteral("the tray"), 20s, [this] { return isHostThere(); });
}

bool TrayDesktop::isHostThere()
{
    if (m_kind == Host::XEmbed)
        return hasEmbeddingTray(m_desktop.display());
    return m_desktop
        .run(QStringLiteral("dbus-send"), {QStringLiteral("--session"), QStringLiteral("--dest=org.freedesktop.DBus"),
                                           QStringLiteral("--print-reply"), QStringLiteral("/org/freedesktop/DBus"),
                                           QStringLiteral("org.freedesktop.DBus.NameHasOwner"),
                                           QStringLiteral("string:org.kde.StatusNotifierWatcher")})
        .contains("boolean true");
}

QList<pid_t> TrayDesktop::hostProcesses() const
{
    QFile children(QStringLiteral("/proc/%1/task/%1/children").arg(m_host->pid()));
    if (!children.open(QIODevice::ReadOnly))
        failTest(QStringLiteral("the tray has ended"));
    QList<pid_t> processes{pid_t(m_host->pid())};
    for (const QByteArray &child : children.readAll().simplified().split(' ')) {
        if (!child.isEmpty())
            processes.append(child.toInt());
    }
    return processes;
}

void TrayDesktop::freezeHost()
{
    for (const pid_t process : hostProcesses())
        freezeProcess(process);
}

void TrayDesktop::thawHost()
{
    for (const pid_t process : hostProcesses())
        ::kill(process, SIGCONT);
}

QRect TrayDesktop::waitForIcon()
{
    // A tray makes room for an icon, and only then moves to where it belongs.
    std::optional<QRect> place;
    waitUntil(QStringLiteral("the icon in the tray"), 30s, [&] {
        const auto before = std::exchange(place, icon());
        return place && place == before;
    });
    return *place;
}

std::optional<QRect> TrayDesktop::icon()
{
    constexpr int smallest = 8;
    const QString owner = m_kind == Host::XEmbed ? QStringLiteral("panel") : QStringLiteral("xfce4-panel");
    const auto window = m_desktop.findWindow(owner);
    if (!window)
        return std::nullopt;
    const QRect panel = m_desktop.placeOf(*window);
    const QRect drawn = drawnOn(picture(panel));
    return drawn.width() < smallest ? std::nullopt : std::optional(drawn.translated(panel.topLeft()));
}

bool TrayDesktop::iconHasRecordingDot()
{
    const QRect place = waitForIcon();
    const QImage image = picture(place);
    for (int y = 0; y < image.height() / 2; ++y) {
        for (int x = image.width() / 2; x < image.width(); ++x) {
            const QColor color = image.pixelColor(x, y);
            if (color.red() > 150 && color.red() > 2 * color.green() && color.red() > 2 * color.blue())
                return true;
        }
    }
    return false;
}

QImage TrayDesktop::picture(const QRect &place)
{
    const QString crop =
        QStringLiteral("%1x%2+%3+%4").arg(place.width()).arg(place.height()).arg(place.x()).arg(place.y());
    const QByteArray png =
        m_desktop.run(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"),
                                                 QStringLiteral("-crop"), crop, QStringLiteral("png:-")});
    return QImage::fromData(png);
}

} // namespace ostrel
