#pragma once

#include "observer/Keyring.h"
#include "platform/sessionbus/GlibHandles.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <atomic>
#include <expected>
#include <optional>
#include <stop_token>

namespace ostrel {

/// Why the keyring could not be used.
struct KeyringFailure {
    KeyringState state = KeyringState::Failed;
    QString detail; ///< the other side's own words, where there are any
};

template <class T = void>
using KeyringResult = std::expected<T, KeyringFailure>;

/// Whose answer a call waits for.
enum class Awaited { Bus, Service };

/// Talks to the keyring. It never prompts: it goes no further where the collection is locked, and an operation that
/// would want to ask its user is taken for refused. The calls are made one by one over a connection of our own; why not
/// by libsecret is told in docs/decisions.
///
/// Belongs to one thread, whose calls may hang for ever. `awaited` and `cancel` may be used by others meanwhile.
class SecretServiceClient
{
public:
    explicit SecretServiceClient(QByteArray busAddress);
    SecretServiceClient(const SecretServiceClient &) = delete;
    SecretServiceClient &operator=(const SecretServiceClient &) = delete;
    ~SecretServiceClient();

    struct Item {
        QString service;
        QString account;
    };

    /// Whether the default collection is there and unlocked.
    KeyringResult<> check();
    KeyringResult<std::optional<QString>> lookUp(const Item &item);
    /// @param givenUp nothing is changed any more once this is stopped
    KeyringResult<> write(const Item &item, const QString &value, const std::stop_token &givenUp);
    KeyringResult<> remove(const Item &item, const std::stop_token &givenUp);

    Awaited awaited() const { return m_awaited; }
    /// Ends the call under way, and all later ones.
    void cancel() { g_cancellable_cancel(m_cancellable.get()); }

private:
    struct Found {
        QList<QByteArray> unlocked; ///< object paths, those of the default collection first
        bool anyLocked = false;
    };

    KeyringResult<> connect();
    /// The service's unique name. Starts the service where the bus knows how.
    KeyringResult<QByteArray> owner();
    /// The object path of the default collection, which is unlocked.
    KeyringResult<QByteArray> unlockedCollection();
    KeyringResult<QByteArray> session();
    KeyringResult<Found> search(const QByteArray &collection, const Item &item);
    /// Sends a message to the bus itself or to the service and waits for as long as it takes.
    /// @param arguments taken over
    KeyringResult<GlibHandle<GVariant>> callBus(const char *method, GVariant *arguments, const char *answerType);
    KeyringResult<GlibHandle<GVariant>> callService(const QByteArray &path, const char *interface, const char *method,
                                                    GVariant *arguments, const char *answerType);

    const QByteArray m_busAddress;
    const GlibHandle<GCancellable> m_cancellable;
    /// Takes what GLib wants to tell the thread, so that it does not end up in the main thread's event loop.
    const GlibHandle<GMainContext> m_context;
    std::atomic<Awaited> m_awaited = Awaited::Bus;
    GlibHandle<GDBusConnection> m_connection;
    QByteArray m_owner;
    QByteArray m_session;      ///< an object path
    QByteArray m_sessionOwner; ///< who has it
};

} // namespace ostrel
