#include "platform/kwin/KWinWatch.h"

#include "base/Log.h"
#include "platform/kwin/KWinScript.h"

#include <QFile>
#include <QTemporaryFile>

#include <algorithm>
#include <array>
#include <utility>

namespace ostrel {

namespace {

constexpr const char *service = "org.kde.KWin";
constexpr const char *scripting = "org.kde.kwin.Scripting";
constexpr const char *scriptInterface = "org.kde.kwin.Script";
constexpr BusMethod loadScript{.service = service, .path = "/Scripting", .interface = scripting, .name = "loadScript"};
constexpr BusMethod unloadScript{
    .service = service, .path = "/Scripting", .interface = scripting, .name = "unloadScript"};
/// Where a script of this number is: KWin 6, KWin 5.
constexpr std::array scriptPaths{"/Scripting/Script", "/"};

constexpr const char *introspection = R"(<node>
  <interface name="com.tamsk.ostrel.KWinWindows1">
    <method name="Tell">
      <arg name="windows" type="s" direction="in"/>
    </method>
  </interface>
</node>)";

/// How long the end may take.
constexpr std::chrono::milliseconds partingPatience{250};

} // namespace

KWinWatch::KWinWatch(Tell tell, QString scriptFolder, std::chrono::milliseconds firstPause)
    : m_tell(std::move(tell)), m_scriptFolder(std::move(scriptFolder)), m_firstPause(firstPause)
{}

KWinWatch::~KWinWatch() = default;

void KWinWatch::visit(const BusLine &line, BusLoop &loop)
{
    m_line = line;
    m_loop = &loop;
    // Several programs of ours may run at once.
    const QByteArray connection = g_dbus_connection_get_unique_name(line.connection);
    m_scriptName = "com.tamsk.ostrel.windows." + connection.mid(1);
    if (!exportListener())
        return;
    m_signals = std::make_unique<BusSignals>(line.connection);
    m_signals->listenToOwner(service, [this](bool) { startAnew(); });
    startAnew();
}

bool KWinWatch::exportListener()
{
    static constexpr GDBusInterfaceVTable table{
        .method_call = [](GDBusConnection *, const gchar *sender, const gchar *, const gchar *, const gchar *,
                          GVariant *arguments, GDBusMethodInvocation *invocation,
                          gpointer self) { static_cast<KWinWatch *>(self)->receive(sender, arguments, invocation); },
        .get_property = nullptr,
        .set_property = nullptr,
        .padding = {}};
    GlibHandle<GError> error;
    const GlibHandle<GDBusNodeInfo> node(g_dbus_node_info_new_for_xml(introspection, ErrorOut(error)));
    if (node)
        m_object =
            g_dbus_connection_register_object(m_line.connection, KWinListener::path,
                                              g_dbus_node_info_lookup_interface(node.get(), KWinListener::interface),
                                              &table, this, nullptr, ErrorOut(error));
    if (m_object == 0)
        qCWarning(logPlatform, "KWin can't tell its windows: %s.", error ? error->message : "no reason is known");
    return m_object != 0;
}

void KWinWatch::startAnew()
{
    m_tell(std::nullopt);
    m_mayBeLoaded = false;
    m_pause = m_firstPause;
    m_retry.reset();
    start();
}

void KWinWatch::start()
{
    GlibHandle<GError> error;
    m_kwin = ownerOf(m_line, service, error);
    if (m_kwin.isEmpty() && g_error_matches(error.get(), G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER) != FALSE)
        return; // it is told when there is one
    if ((!m_kwin.isEmpty() && runScript(error)) || m_loop->isStopped())
        return;
    qCInfo(logPlatform, "KWin does not tell its windows: %s. It is asked again from time to time.",
           error ? error->message : "it takes no script");
    const auto pause = std::exchange(m_pause, std::min(2 * m_pause, BusThread::longestPause));
    m_retry = m_loop->after(pause, [this] { start(); });
}

bool KWinWatch::runScript(GlibHandle<GError> &error)
{
    // Readable by the user alone; KWin has read it when it answers that the script runs.
    QTemporaryFile file(m_scriptFolder + QStringLiteral("/ostrel-windows-XXXXXX.js"));
    const QByteArray script = kwinScript(g_dbus_connection_get_unique_name(m_line.connection), m_scriptName);
    if (!file.open() || file.write(script) != script.size() || !file.flush())
        return false;
    unload(m_line);       // one that an attempt has left behind
    m_mayBeLoaded = true; // also when the stop comes before the answer
    const auto loaded = callBus(
        m_line, loadScript,
        g_variant_new("(ss)", QFile::encodeName(file.fileName()).constData(), m_scriptName.constData()), "(i)", error);
    gint32 number = -1;
    if (loaded)
        g_variant_get(loaded.get(), "(i)", &number);
    if (number < 0)
        return false;
    const auto isRunning = [&](const char *prefix) {
        const QByteArray path = prefix + QByteArray::number(number);
        return callBus(m_line, {service, path.constData(), scriptInterface, "run"}, nullptr, "()", error) != nullptr;
    };
    return std::ranges::any_of(scriptPaths, isRunning);
}

void KWinWatch::unload(const BusLine &line)
{
    GlibHandle<GError> error;
    callBus(line, unloadScript, g_variant_new("(s)", m_scriptName.constData()), "(b)", error);
}

void KWinWatch::receive(const char *sender, GVariant *arguments, GDBusMethodInvocation *invocation)
{
    if (m_kwin.isEmpty() || m_kwin != sender) {
        g_dbus_method_invocation_return_error_literal(invocation, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED,
                                                      "Only KWin tells windows.");
        return;
    }
    const char *json = "";
    g_variant_get(arguments, "(&s)", &json);
    auto news = kwinNewsIn(json);
    if (!news)
        qCDebug(logPlatform, "KWin tells what can't be understood.");
    m_tell(std::move(news));
    g_dbus_method_invocation_return_value(invocation, nullptr);
}

void KWinWatch::leave()
{
    m_tell(std::nullopt);
    m_retry.reset();
    m_signals.reset();
    // The stop has ended all waiting on the line itself.
    if (std::exchange(m_mayBeLoaded, false))
        unload({.connection = m_line.connection, .patience = partingPatience, .cancellable = nullptr});
    if (m_object != 0)
        g_dbus_connection_unregister_object(m_line.connection, std::exchange(m_object, 0));
    m_kwin.clear();
    m_line = {};
}

} // namespace ostrel
