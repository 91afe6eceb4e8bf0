#pragma once

#include "base/Error.h"
#include "platform/sessionbus/BusCall.h"
#include "platform/sessionbus/GlibHandles.h"

#include <QByteArray>

#include <chrono>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace ostrel {

/// The names that the desktop portal is called by.
namespace PortalNames {
constexpr const char *service = "org.freedesktop.portal.Desktop";
constexpr const char *path = "/org/freedesktop/portal/desktop";
constexpr const char *screenCast = "org.freedesktop.portal.ScreenCast";
constexpr const char *request = "org.freedesktop.portal.Request";
constexpr const char *session = "org.freedesktop.portal.Session";
} // namespace PortalNames

/// Options as the portal takes them, by name. The values are taken over when they are passed on.
using PortalOptions = std::vector<std::pair<const char *, GVariant *>>;

/// How the portal, or the user behind it, answered a request.
struct PortalResponse {
    static constexpr guint32 granted = 0;
    static constexpr guint32 declined = 1; ///< by the user

    /// Nobody reads a question and answers it in less.
    static constexpr std::chrono::milliseconds fastestUser{300};

    guint32 code = 0;
    GlibHandle<GVariant> results;                   ///< by name
    std::chrono::milliseconds waited = fastestUser; ///< for it

    /// What to say of one that is not granted.
    Error refusal() const;
};

/// A conversation with the desktop portal on a connection of its own. The portal ends what it has opened for somebody
/// when the connection closes. One thread at a time, but not always the same.
class PortalBus
{
public:
    /// Starts the portal where it does not run.
    /// @param interrupt ends every wait, from any thread
    /// @return Fault::NoScreenPortal
    static Result<std::unique_ptr<PortalBus>> connect(const QByteArray &address, std::chrono::milliseconds patience,
                                                      GCancellable *interrupt);
    PortalBus(const PortalBus &) = delete;
    PortalBus &operator=(const PortalBus &) = delete;
    ~PortalBus();

    GDBusConnection *connection() const { return m_connection.get(); }
    GMainContext *context() const { return m_context.get(); }
    BusLine line() const
    {
        return {.connection = m_connection.get(), .patience = m_patience, .cancellable = m_interrupt.get()};
    }

    /// Asks for what is answered later, and waits for the answer.
    /// @param makeArguments is given the options, with the request's own among them
    /// @param patience for the answer; a question that nobody answers is withdrawn
    /// @return Fault::TimedOut, Cancelled, NoScreenPortal, PictureRefused
    Result<PortalResponse> request(const char *method, PortalOptions options,
                                   const std::function<GVariant *(GVariant *options)> &makeArguments,
                                   std::chrono::milliseconds patience);
    /// Lets a while pass. @return Fault::Cancelled
    Result<> pause(std::chrono::milliseconds time);
    /// Handles signals until the condition holds, at most for this time.
    /// @param interrupt ends it early, from any thread
    void watch(const std::function<bool()> &isMet, std::chrono::milliseconds patience, GCancellable *interrupt);
    /// Handles the signals that are there already.
    void handleSignals();
    bool isClosed() const { return g_dbus_connection_is_closed(m_connection.get()) != FALSE; }

private:
    PortalBus(std::chrono::milliseconds patience, GCancellable *interrupt);
    Result<> open(const QByteArray &address);
    /// Takes a request back that is not answered yet. Not interrupted itself.
    void withdraw(const char *request);
    /// Handles signals until the condition holds. @return Fault::TimedOut, Cancelled
    Result<> waitUntil(const std::function<bool()> &isMet, std::chrono::milliseconds patience, GCancellable *interrupt);
    /// Where the answer to a request will come from.
    QByteArray requestPath(const QByteArray &token) const;

    const std::chrono::milliseconds m_patience;
    const GlibHandle<GCancellable> m_interrupt;
    const GlibHandle<GMainContext> m_context;
    GlibHandle<GDBusConnection> m_connection;
    int m_requests = 0;
};

} // namespace ostrel
