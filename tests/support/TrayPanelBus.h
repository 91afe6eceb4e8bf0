#pragma once

#include "platform/sessionbus/BusConnection.h"

#include <QByteArray>
#include <QHash>
#include <QList>

#include <vector>

namespace ostrel {

/// The accessibility bus of the session that this process belongs to, for tests: patient, and many questions at once
/// are one wait. Main thread.
class TrayPanelBus
{
public:
    /// A program's object.
    struct Object {
        QByteArray program; ///< its name on the bus
        QByteArray path;
    };

    struct Question {
        Object object;
        const char *interface = nullptr;
        const char *method = nullptr;
        const char *answerType = nullptr;
        GVariant *arguments = nullptr; ///< floating, taken over; null for none
    };

    /// Ends the test when there is no such bus.
    TrayPanelBus();
    TrayPanelBus(const TrayPanelBus &) = delete;
    TrayPanelBus &operator=(const TrayPanelBus &) = delete;
    ~TrayPanelBus();

    /// @return an answer for each, in their order; null for what was refused or has gone
    std::vector<GlibHandle<GVariant>> ask(const std::vector<Question> &questions);
    GlibHandle<GVariant> ask(const Question &question) { return std::move(ask(std::vector{question}).front()); }

    /// What the process is called on the bus; empty while it is not on it.
    QByteArray programOf(qint64 processIdentifier);
    static QList<Object> objectsIn(GVariant *answer);
    /// The first value of an answer, out of its box where it is in one.
    static GlibHandle<GVariant> valueIn(GVariant *answer);

private:
    QByteArray findAddress();

    const GlibHandle<GMainContext> m_context{g_main_context_new()};
    GlibHandle<GDBusConnection> m_connection;
};

} // namespace ostrel
