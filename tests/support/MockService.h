#pragma once

#include "support/SessionBus.h"
#include "support/TestProcess.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>

namespace ostrel {

/// A service on a test's bus that does what the test tells it, played by python3-dbusmock. Main thread.
class MockService
{
public:
    struct Object {
        QByteArray service;
        QByteArray path;
        QByteArray interface;
    };

    /// One with nothing in it; its name is had when this returns.
    /// @param bus outlives it, and may be started anew
    MockService(MessageBus &bus, Object object);
    /// One of the library's own templates.
    MockService(MessageBus &bus, Object object, const QString &templateName);
    ~MockService();

    /// Adds a method, or replaces one that was added.
    /// @param code Python; sets "ret" where there is an answer
    void addMethod(const char *name, const char *argumentTypes, const char *answerType, const QByteArray &code);
    /// @param arguments as GVariant's text form, each in a variant: "[<true>]"
    void emitSignal(const char *name, const char *types, const QByteArray &arguments);
    void emitSignal(const Object &from, const char *name, const char *types, const QByteArray &arguments);
    /// Calls a method with arguments in GVariant's text form. @return the answer, in the same; ends the test on an
    /// error
    QByteArray call(const Object &object, const char *method, const QByteArray &arguments = "()") const;

    TestProcess &process() { return *m_process; }
    /// Ends it and starts it anew; what was added is gone.
    void restart();

private:
    class Connection;

    void start();

    MessageBus &m_bus;
    const Object m_object;
    const QStringList m_arguments;
    std::unique_ptr<TestProcess> m_process;
    std::unique_ptr<Connection> m_connection;
};

} // namespace ostrel
