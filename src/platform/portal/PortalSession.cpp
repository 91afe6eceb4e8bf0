#include "platform/portal/PortalSession.h"

#include "base/Fault.h"
#include "base/Log.h"
#include "platform/portal/SessionClosing.h"
#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/BusNames.h"
#include "platform/sessionbus/BusSignals.h"

#include <utility>

namespace ostrel {

namespace {

constexpr guint32 wholeMonitors = 1;      ///< of the kinds of sources
constexpr guint32 cursorInPicture = 2;    ///< of the ways to show the cursor
constexpr guint32 keepUntilWithdrawn = 2; ///< of the times that a consent holds

constexpr int mostAttempts = 4; ///< after the first, to open a session
constexpr std::chrono::milliseconds beforeTheNextAttempt{250};

GlibHandle<GVariant> valueIn(GVariant *dictionary, const char *name, const char *type)
{
    return GlibHandle<GVariant>(g_variant_lookup_value(dictionary, name, G_VARIANT_TYPE(type)));
}

QString textIn(GVariant *dictionary, const char *name)
{
    const auto value = valueIn(dictionary, name, "s");
    return value ? QString::fromUtf8(g_variant_get_string(value.get(), nullptr)) : QString();
}

std::optional<QPoint> pairIn(GVariant *dictionary, const char *name)
{
    const auto value = valueIn(dictionary, name, "(ii)");
    if (!value)
        return std::nullopt;
    gint32 first = 0;
    gint32 second = 0;
    g_variant_get(value.get(), "(ii)", &first, &second);
    return QPoint(first, second);
}

PortalStreamFacts factsIn(GVariant *stream)
{
    PortalStreamFacts facts;
    g_variant_get_child(stream, 0, "u", &facts.node);
    const GlibHandle<GVariant> properties(g_variant_get_child_value(stream, 1));
    facts.id = textIn(properties.get(), "id");
    facts.corner = pairIn(properties.get(), "position");
    if (const auto size = pairIn(properties.get(), "size"); size && size->x() > 0 && size->y() > 0)
        facts.logicalSize = QSize(size->x(), size->y());
    return facts;
}

/// The answer to a request that was granted, or why it was not.
Result<PortalResponse> grantedOnly(Result<PortalResponse> response)
{
    if (!response || response->code == PortalResponse::granted)
        return response;
    return std::unexpected(response->refusal());
}

} // namespace

Result<std::unique_ptr<PortalSession>> PortalSession::open(const Opening &opening)
{
    auto bus = PortalBus::connect(opening.seams.busAddress, opening.seams.patience, opening.interrupt);
    if (!bus)
        return std::unexpected(bus.error());
    std::unique_ptr<PortalSession> session(new PortalSession(std::move(*bus), opening.seams));
    if (const auto created = session->create(); !created)
        return std::unexpected(created.error());
    const ToldMonitors before = readMonitors(session->m_bus->line(), session->m_seams);
    const PortalGrantFile::Grant grant = opening.grantFor(before);
    if (const auto selected = session->selectMonitors(grant.restoreToken); !selected)
        return std::unexpected(selected.error());
    if (const auto started = session->startStreams(opening.onUnanswered); !started)
        return std::unexpected(started.error());
    session->m_monitors = before.names;
    if (grant.restoreToken.isEmpty()) {
        // Others may have come while the user was thinking.
        const QStringList after = readMonitors(session->m_bus->line(), session->m_seams).names;
        session->m_monitors = after.isEmpty() ? before.names : after;
    } else if (!grant.monitors.isEmpty()) {
        // It shows those that it was given for.
        session->m_monitors = grant.monitors;
    }
    return session;
}

PortalSession::PortalSession(std::unique_ptr<PortalBus> bus, const PortalSeams &seams)
    : m_bus(std::move(bus)), m_seams(seams)
{}

PortalSession::~PortalSession()
{
    const MainContextScope scope(m_bus->context());
    const bool isOver = isClosed() || isLost();
    m_signals.reset();
    m_closing.reset();
    // Closing the connection ends the session as well, but only when the portal notices.
    GlibHandle<GError> error;
    if (!m_handle.isEmpty() && !isOver)
        callBus({.connection = m_bus->connection()},
                {PortalNames::service, m_handle.constData(), PortalNames::session, "Close"}, nullptr, "()", error);
}

Result<PortalResponse> PortalSession::askForSession()
{
    PortalOptions options;
    options.emplace_back("session_handle_token", g_variant_new_string("ostrel"));
    return grantedOnly(m_bus->request(
        "CreateSession", std::move(options), [](GVariant *given) { return g_variant_new("(@a{sv})", given); },
        m_bus->line().patience));
}

Result<> PortalSession::create()
{
    auto response = askForSession();
    // GNOME 43's part of the portal ends when a question of it is withdrawn, and the next call starts it again: it is
    // on the bus a moment before it can do anything.
    for (int again = 0; again < mostAttempts && !response && isFault(response.error(), Fault::PictureRefused);
         ++again) {
        if (const auto paused = m_bus->pause(beforeTheNextAttempt); !paused)
            return std::unexpected(paused.error());
        response = askForSession();
    }
    if (!response)
        return std::unexpected(response.error());
    // Portals disagree on whether it is a text or a path.
    auto handle = valueIn(response->results.get(), "session_handle", "s");
    if (!handle)
        handle = valueIn(response->results.get(), "session_handle", "o");
    if (!handle || g_variant_is_object_path(g_variant_get_string(handle.get(), nullptr)) == FALSE)
        return std::unexpected(faultError(Fault::NoScreenPortal, QStringLiteral("it opens no session")));
    m_handle = g_variant_get_string(handle.get(), nullptr);
    return listen();
}

Result<> PortalSession::listen()
{
    const MainContextScope scope(m_bus->context());
    m_signals = std::make_unique<BusSignals>(m_bus->connection());
    m_signals->listenToOwner(PortalNames::service, [this](bool isThere) { m_isPortalGone |= !isThere; });
    m_closing = std::make_unique<SessionClosing>(
        m_bus->line(), m_handle,
        SessionClosing::Timing{.monotonicTime = m_seams.monotonicTime, .patience = m_seams.reasonPatience});
    if (!m_closing->isListening())
        return std::unexpected(faultError(Fault::NoScreenPortal, QStringLiteral("it has left the bus")));
    return {};
}

Result<> PortalSession::selectMonitors(const QString &restoreToken)
{
    GlibHandle<GError> error;
    const auto modes = callBus(m_bus->line(), {PortalNames::service, PortalNames::path, BusNames::properties, "Get"},
                               g_variant_new("(ss)", PortalNames::screenCast, "AvailableCursorModes"), "(v)", error);
    guint32 cursorModes = 0;
    if (modes) {
        GlibHandle<GVariant> value;
        GVariant *raw = nullptr;
        g_variant_get(modes.get(), "(v)", &raw);
        value.reset(raw);
        if (g_variant_is_of_type(value.get(), G_VARIANT_TYPE_UINT32))
            cursorModes = g_variant_get_uint32(value.get());
    }
    PortalOptions options;
    options.emplace_back("types", g_variant_new_uint32(wholeMonitors));
    options.emplace_back("multiple", g_variant_new_boolean(TRUE));
    options.emplace_back("persist_mode", g_variant_new_uint32(keepUntilWithdrawn));
    if ((cursorModes & cursorInPicture) != 0)
        options.emplace_back("cursor_mode", g_variant_new_uint32(cursorInPicture));
    if (!restoreToken.isEmpty())
        options.emplace_back("restore_token", g_variant_new_string(restoreToken.toUtf8().constData()));
    const auto response = grantedOnly(m_bus->request(
        "SelectSources", std::move(options),
        [this](GVariant *given) { return g_variant_new("(o@a{sv})", m_handle.constData(), given); },
        m_bus->line().patience));
    if (!response)
        return std::unexpected(response.error());
    return {};
}

Result<> PortalSession::startStreams(const std::function<void(const Error &)> &onUnanswered)
{
    auto response = grantedOnly(m_bus->request(
        "Start", {},
        [this](GVariant *given) {
            constexpr const char *noParentWindow = "";
            return g_variant_new("(os@a{sv})", m_handle.constData(), noParentWindow, given);
        },
        m_seams.userPatience));
    if (!response && isFault(response.error(), Fault::TimedOut)) {
        response = std::unexpected(faultError(Fault::ScreenQuestionUnanswered));
        onUnanswered(response.error());
    }
    if (!response)
        return std::unexpected(response.error());
    const auto streams = valueIn(response->results.get(), "streams", "a(ua{sv})");
    for (gsize i = 0; streams && i < g_variant_n_children(streams.get()); ++i) {
        const GlibHandle<GVariant> stream(g_variant_get_child_value(streams.get(), i));
        m_streams.append(factsIn(stream.get()));
    }
    m_restoreToken = textIn(response->results.get(), "restore_token");
    return {};
}

Result<int> PortalSession::openPipeWire()
{
    GlibHandle<GError> error;
    const auto answer = callBusForFiles(
        m_bus->line(), {PortalNames::service, PortalNames::path, PortalNames::screenCast, "OpenPipeWireRemote"},
        g_variant_new("(o@a{sv})", m_handle.constData(), g_variant_new("a{sv}", nullptr)), "(h)", error);
    gint32 index = -1;
    if (answer.value)
        g_variant_get(answer.value.get(), "(h)", &index);
    const int descriptor = answer.files ? g_unix_fd_list_get(answer.files.get(), index, ErrorOut(error)) : -1;
    if (descriptor < 0)
        return std::unexpected(faultError(Fault::NoScreenPortal, error ? QString::fromUtf8(error->message)
                                                                       : QStringLiteral("it opens no PipeWire")));
    return descriptor;
}

bool PortalSession::isClosed() const
{
    return m_closing && m_closing->isClosed();
}

PortalSession::State PortalSession::state()
{
    const MainContextScope scope(m_bus->context());
    m_bus->handleSignals();
    // The portal may go after it has said that the session is closed: what it said counts.
    if (!isClosed())
        return isLost() ? State::Lost : State::Open;
    return m_closing->isExplained() ? end() : State::Unexplained;
}

PortalSession::State PortalSession::explainedState(GCancellable *interrupt)
{
    m_bus->watch([this] { return isClosed() || isLost(); }, m_seams.reasonPatience, interrupt);
    if (isClosed())
        m_bus->watch([this] { return m_closing->isExplained(); }, m_seams.reasonPatience, interrupt);
    if (g_cancellable_is_cancelled(interrupt) != FALSE)
        return State::Unexplained;
    const MainContextScope scope(m_bus->context());
    return isClosed() ? end() : state();
}

PortalSession::State PortalSession::end()
{
    if (m_end)
        return *m_end;
    using Reason = SessionClosing::Reason;
    const Reason reason = m_closing->reason();
    m_end =
        reason == Reason::UsersWish ? State::Ended : (reason == Reason::Either ? State::Doubtful : State::Unplugged);
    if (m_end != State::Ended)
        qCWarning(logPlatform, "a monitor was unplugged, and the desktop has ended the sharing of all monitors; "
                               "those that are left are shared when the user has said so, now or before");
    return *m_end;
}

} // namespace ostrel
