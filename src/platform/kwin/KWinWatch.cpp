#include "platform/kwin/KWinWatch.h"

#include "base/Log.h"
#include "platform/kwin/KWinEffects.h"
#include "platform/kwin/KWinScript.h"
#include "platform/sessionbus/BusNames.h"

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
constexpr const char *effectsInterface = "org.kde.kwin.Effects";
constexpr BusMethod effects{.service = service, .path = "/Effects", .interface = BusNames::properties, .name = "Get"};
constexpr BusMethod scriptLoaded{
    .service = service, .path = "/Scripting", .interface = scripting, .name = "isScriptLoaded"};
/// Where a script of this number is: KWin 6, KWin 5.
constexpr std::array scriptPaths{"/Scripting/Script", "/"};

constexpr const char *introspection = R"(<node>
  <interface name="com.tamsk.ostrel.KWinWindows1">
    <method name="Tell">
      <arg name="windows" type="s" direction="in"/>
    </method>
  </interface>
</node>)";

/// How long KWin may think before it counts as one that doesn't answer: one that hangs draws nothing either.
constexpr int answerPatienceMs = 2000;

/// How long the end may take.
constexpr std::chrono::milliseconds partingPatience{250};

} // namespace

struct KWinWatch::Question {
    KWinWatch *watch; ///< it outlives the loop, and so every answer
    int attempt;
    std::chrono::milliseconds askedAt;
    TakeAnswer taker = nullptr;
};

KWinWatch::KWinWatch(Outlets outlets, Ways ways) : m_outlets(std::move(outlets)), m_ways(std::move(ways)) {}

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
    m_signals->listenToOwner(service, [this](bool) {
        if (!m_isResting)
            startAnew();
    });
    const std::scoped_lock lock(m_mutex);
    m_waker = std::make_unique<BusWaker>([this] { inquire(); });
    if (m_isAsked)
        m_waker->wake();
}

void KWinWatch::ask()
{
    const std::scoped_lock lock(m_mutex);
    m_isAsked = true;
    if (m_waker)
        m_waker->wake();
}

void KWinWatch::inquire()
{
    m_rest = m_loop->after(m_ways.restAfter, [this] { rest(); });
    if (std::exchange(m_isResting, false))
        return startAnew();
    if (!m_isRunning)
        return;
    m_isAskedAgain = m_isInquiring;
    if (std::exchange(m_isInquiring, true))
        return;
    const Question question{.watch = this, .attempt = m_attempt, .askedAt = m_outlets.monotonicTime()};
    // KWin answers in the order of questions, on the thread that draws, after the script has told what was drawn
    // before.
    ask(question, effects, g_variant_new("(ss)", effectsInterface, "activeEffects"), "(v)", &KWinWatch::takeEffects);
    ask(question, scriptLoaded, g_variant_new("(s)", m_scriptName.constData()), "(b)", &KWinWatch::takeAnswer);
}

void KWinWatch::ask(Question question, const BusMethod &method, GVariant *arguments, const char *answerType,
                    TakeAnswer taker)
{
    question.taker = taker;
    const auto take = [](GObject *connection, GAsyncResult *result, gpointer data) {
        const std::unique_ptr<const Question> asked(static_cast<const Question *>(data));
        GlibHandle<GError> error;
        const GlibHandle<GVariant> answer(
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, ErrorOut(error)));
        KWinWatch *watch = asked->watch;
        if (asked->attempt == watch->m_attempt)
            (watch->*asked->taker)(*asked, answer.get());
    };
    g_dbus_connection_call(m_line.connection, m_kwin.constData(), method.path, method.interface, method.name, arguments,
                           G_VARIANT_TYPE(answerType), G_DBUS_CALL_FLAGS_NO_AUTO_START, answerPatienceMs, nullptr, take,
                           std::make_unique<Question>(question).release());
}

void KWinWatch::takeEffects(const Question & /*question*/, GVariant *answer)
{
    m_isElsewhere = false; // a KWin without effects has no such object
    if (answer == nullptr)
        return;
    const GlibHandle<GVariant> box(g_variant_get_child_value(answer, 0));
    const GlibHandle<GVariant> list(g_variant_get_variant(box.get()));
    if (g_variant_is_of_type(list.get(), G_VARIANT_TYPE_STRING_ARRAY) == FALSE)
        return;
    for (gsize i = 0; i < g_variant_n_children(list.get()); ++i) {
        const GlibHandle<GVariant> name(g_variant_get_child_value(list.get(), i));
        m_isElsewhere = m_isElsewhere || showsWindowsElsewhere(g_variant_get_string(name.get(), nullptr));
    }
}

void KWinWatch::takeAnswer(const Question &question, GVariant *answer)
{
    m_isInquiring = false;
    const auto isLoaded =
        answer == nullptr ? std::nullopt : flagIn(GlibHandle<GVariant>(g_variant_get_child_value(answer, 0)).get());
    if (isLoaded == false)
        return replaceScript();
    if (isLoaded) {
        m_isConfirmed = true;
        m_outlets.confirm(question.askedAt, m_isElsewhere);
    }
    if (std::exchange(m_isAskedAgain, false))
        inquire();
}

void KWinWatch::replaceScript()
{
    if (m_isConfirmed) {
        // Any program may have it unloaded.
        qCInfo(logPlatform, "KWin runs the script no more that tells its windows; it gets it again.");
        return startAnew();
    }
    forget();
    retryLater("it does not keep the script");
}

void KWinWatch::rest()
{
    {
        const std::scoped_lock lock(m_mutex);
        m_isAsked = false;
    }
    m_isResting = true;
    forget();
    if (std::exchange(m_mayBeLoaded, false))
        unload(m_line);
}

void KWinWatch::forget()
{
    m_outlets.tell(std::nullopt);
    ++m_attempt;
    m_isRunning = false;
    m_isConfirmed = false;
    m_isInquiring = false;
    m_isAskedAgain = false;
    m_retry.reset();
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
    forget();
    m_mayBeLoaded = false;
    m_pause = m_ways.firstPause;
    start();
}

void KWinWatch::start()
{
    GlibHandle<GError> error;
    m_kwin = ownerOf(m_line, service, error);
    if (m_kwin.isEmpty() && g_error_matches(error.get(), G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER) != FALSE)
        return; // it is told when there is one
    m_isRunning = !m_kwin.isEmpty() && runScript(error);
    if (m_isRunning)
        return inquire();
    if (!m_loop->isStopped())
        retryLater(error ? error->message : "it takes no script");
}

void KWinWatch::retryLater(const char *why)
{
    qCInfo(logPlatform, "KWin does not tell its windows: %s. It is asked again from time to time.", why);
    const auto pause = std::exchange(m_pause, std::min(2 * m_pause, BusThread::longestPause));
    m_retry = m_loop->after(pause, [this] { start(); });
}

bool KWinWatch::runScript(GlibHandle<GError> &error)
{
    // Readable by the user alone; KWin has read it when it answers that the script runs.
    QTemporaryFile file(m_ways.scriptFolder + QStringLiteral("/ostrel-windows-XXXXXX.js"));
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
    m_outlets.tell(std::move(news));
    g_dbus_method_invocation_return_value(invocation, nullptr);
}

void KWinWatch::leave()
{
    forget();
    m_rest.reset();
    m_isResting = true;
    m_signals.reset();
    {
        const std::scoped_lock lock(m_mutex);
        m_waker.reset();
    }
    // The stop has ended all waiting on the line itself.
    if (std::exchange(m_mayBeLoaded, false))
        unload({.connection = m_line.connection, .patience = partingPatience, .cancellable = nullptr});
    if (m_object != 0)
        g_dbus_connection_unregister_object(m_line.connection, std::exchange(m_object, 0));
    m_kwin.clear();
    m_line = {};
}

} // namespace ostrel
