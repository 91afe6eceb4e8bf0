#include "platform/portal/PortalBus.h"

#include "base/Fault.h"
#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/BusLoop.h"
#include "platform/sessionbus/BusNames.h"
#include "platform/sessionbus/BusSignals.h"

#include <optional>

namespace ostrel {

namespace {

Error noPortal(const GlibHandle<GError> &error)
{
    return faultError(Fault::NoScreenPortal, error ? QString::fromUtf8(error->message) : QString());
}

/// @param options taken over
GVariant *asVariant(PortalOptions options)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    for (const auto &[name, value] : options)
        g_variant_builder_add(&builder, "{sv}", name, value);
    return g_variant_builder_end(&builder);
}

PortalResponse responseIn(GVariant *arguments)
{
    PortalResponse response;
    g_variant_get_child(arguments, 0, "u", &response.code);
    response.results.reset(g_variant_get_child_value(arguments, 1));
    return response;
}

/// While it lives, the context's thread wakes up when the waiting is to end.
class WakeOnInterrupt
{
public:
    WakeOnInterrupt(GCancellable *interrupt, GMainContext *context) : m_interrupt(interrupt)
    {
        const auto wake =
            +[](GCancellable *, gpointer waiting) { g_main_context_wakeup(static_cast<GMainContext *>(waiting)); };
        m_handler = g_cancellable_connect(m_interrupt, G_CALLBACK(wake), context, nullptr);
    }
    WakeOnInterrupt(const WakeOnInterrupt &) = delete;
    WakeOnInterrupt &operator=(const WakeOnInterrupt &) = delete;
    ~WakeOnInterrupt() { g_cancellable_disconnect(m_interrupt, m_handler); }

private:
    GCancellable *const m_interrupt;
    gulong m_handler = 0;
};

} // namespace

Error PortalResponse::refusal() const
{
    if (code != declined)
        return faultError(Fault::PictureRefused, QStringLiteral("the desktop's portal failed"));
    Error error = faultError(Fault::ScreenCaptureDeclined);
    // KDE's portal says so where a part of its dialog is not installed.
    if (waited < fastestUser)
        error.localizedDescription += QStringLiteral(
            " It said so at once, before anybody could have answered a question: if none was to be seen, "
            "the desktop's own dialog may not work.");
    return error;
}

Result<std::unique_ptr<PortalBus>> PortalBus::connect(const QByteArray &address, std::chrono::milliseconds patience,
                                                      GCancellable *interrupt)
{
    std::unique_ptr<PortalBus> bus(new PortalBus(patience, interrupt));
    if (const auto opened = bus->open(address); !opened)
        return std::unexpected(opened.error());
    return bus;
}

PortalBus::PortalBus(std::chrono::milliseconds patience, GCancellable *interrupt)
    : m_patience(patience), m_interrupt(G_CANCELLABLE(g_object_ref(interrupt))), m_context(g_main_context_new())
{}

PortalBus::~PortalBus()
{
    const MainContextScope scope(m_context.get());
    if (m_connection)
        closeBus(m_connection.get(), m_context.get());
    m_connection.reset();
    handleSignals();
}

Result<> PortalBus::open(const QByteArray &address)
{
    const MainContextScope scope(m_context.get());
    GlibHandle<GError> error;
    if (address.isEmpty())
        return std::unexpected(faultError(Fault::NoScreenPortal, QStringLiteral("there is no session bus")));
    m_connection = connectToBusInTime(address, m_context.get(), int(m_patience.count()));
    if (!m_connection)
        return std::unexpected(faultError(Fault::NoScreenPortal, QStringLiteral("the session bus can't be reached")));
    if (hasOwner(line(), PortalNames::service).value_or(false))
        return {};
    // Calls of ours start nothing; this does.
    constexpr guint32 noFlags = 0;
    const auto started =
        callBus(line(), {BusNames::daemon, BusNames::daemonPath, BusNames::daemon, "StartServiceByName"},
                g_variant_new("(su)", PortalNames::service, noFlags), "(u)", error);
    if (!started)
        return std::unexpected(noPortal(error));
    return {};
}

QByteArray PortalBus::requestPath(const QByteArray &token) const
{
    QByteArray sender = QByteArray(g_dbus_connection_get_unique_name(m_connection.get())).mid(1);
    sender.replace('.', '_');
    return QByteArray(PortalNames::path) + "/request/" + sender + '/' + token;
}

Result<PortalResponse> PortalBus::request(const char *method, PortalOptions options,
                                          const std::function<GVariant *(GVariant *options)> &makeArguments,
                                          std::chrono::milliseconds patience)
{
    const MainContextScope scope(m_context.get());
    const QByteArray token = "ostrel" + QByteArray::number(++m_requests);
    options.emplace_back("handle_token", g_variant_new_string(token.constData()));
    std::optional<PortalResponse> response;
    bool isPortalGone = false;
    BusSignals signals(m_connection.get());
    const auto listenAt = [&](const QByteArray &path) {
        signals.listen({.sender = PortalNames::service,
                        .path = path.constData(),
                        .interface = PortalNames::request,
                        .name = "Response",
                        .type = "(ua{sv})"},
                       [&response](GVariant *arguments) { response = responseIn(arguments); });
    };
    const auto asked = std::chrono::steady_clock::now();
    // Before the call, for the answer may come at once.
    const QByteArray path = requestPath(token);
    listenAt(path);
    signals.listenToOwner(PortalNames::service, [&isPortalGone](bool isThere) { isPortalGone |= !isThere; });

    GlibHandle<GError> error;
    const auto answer = callBus(line(), {PortalNames::service, PortalNames::path, PortalNames::screenCast, method},
                                makeArguments(asVariant(std::move(options))), "(o)", error);
    if (!answer && g_cancellable_is_cancelled(m_interrupt.get()) != FALSE) {
        withdraw(path.constData()); // it may have been taken all the same
        return std::unexpected(faultError(Fault::Cancelled));
    }
    if (!answer)
        return std::unexpected(noPortal(error));
    const char *handle = nullptr;
    g_variant_get(answer.get(), "(&o)", &handle);
    if (path != handle)
        listenAt(handle); // portals before 0.9 choose the path themselves
    const auto waited = waitUntil([&] { return response || isPortalGone || isClosed(); }, patience, m_interrupt.get());
    if (!waited) {
        withdraw(handle);
        return std::unexpected(waited.error());
    }
    if (!response)
        return std::unexpected(faultError(Fault::NoScreenPortal, QStringLiteral("it ended before it had answered")));
    response->waited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - asked);
    return std::move(*response);
}

void PortalBus::withdraw(const char *request)
{
    GlibHandle<GError> error;
    callBus({.connection = m_connection.get()}, {PortalNames::service, request, PortalNames::request, "Close"}, nullptr,
            "()", error);
}

Result<> PortalBus::waitUntil(const std::function<bool()> &isMet, std::chrono::milliseconds patience,
                              GCancellable *interrupt)
{
    const WakeOnInterrupt waking(interrupt, m_context.get());
    bool isLate = false;
    const BusTimer timer(m_context.get(), patience, [&isLate] { isLate = true; });
    while (!isMet()) {
        if (g_cancellable_is_cancelled(interrupt) != FALSE)
            return std::unexpected(faultError(Fault::Cancelled));
        if (isLate)
            return std::unexpected(faultError(Fault::TimedOut, QStringLiteral("desktop's portal")));
        g_main_context_iteration(m_context.get(), TRUE);
    }
    return {};
}

Result<> PortalBus::pause(std::chrono::milliseconds time)
{
    const MainContextScope scope(m_context.get());
    const auto waited = waitUntil([] { return false; }, time, m_interrupt.get());
    return waited || isFault(waited.error(), Fault::TimedOut) ? Result<>() : waited;
}

void PortalBus::watch(const std::function<bool()> &isMet, std::chrono::milliseconds patience, GCancellable *interrupt)
{
    const MainContextScope scope(m_context.get());
    static_cast<void>(waitUntil(isMet, patience, interrupt));
}

void PortalBus::handleSignals()
{
    while (g_main_context_iteration(m_context.get(), FALSE) != FALSE) {
    }
}

} // namespace ostrel
