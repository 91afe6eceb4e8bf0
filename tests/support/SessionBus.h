#pragma once

#include "support/ScopedVariable.h"
#include "support/TestProcess.h"

#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <initializer_list>
#include <memory>
#include <vector>

namespace ostrel {

/// A message bus of the test's own, with a private home and runtime folder but without a display. Nothing is ever on it
/// but what the test starts. This process belongs to it until it is destroyed. Main thread.
class MessageBus
{
public:
    QByteArray address() const;
    /// What programs on the bus run with.
    const QProcessEnvironment &environment() const { return m_environment; }
    /// A file or folder in the bus's private folder.
    QString path(const QString &name) const { return m_directory.filePath(name); }
    TestProcess &process() { return *m_process; }

    /// Ends the bus and starts a new one at the same address.
    void restart();

protected:
    /// @param variable names the bus to programs
    /// @param entered  the variables that this process gets as well
    MessageBus(const char *variable, std::initializer_list<const char *> entered);
    ~MessageBus() = default;

private:
    void start();

    QTemporaryDir m_directory;
    QProcessEnvironment m_environment;
    std::unique_ptr<TestProcess> m_process;
    std::vector<std::unique_ptr<ScopedVariable>> m_entered;
};

/// As a login session has it.
class SessionBus : public MessageBus
{
public:
    SessionBus() : MessageBus("DBUS_SESSION_BUS_ADDRESS", {"XDG_RUNTIME_DIR", "DBUS_SESSION_BUS_ADDRESS"}) {}
};

/// As a machine has it.
class SystemBus : public MessageBus
{
public:
    SystemBus() : MessageBus("DBUS_SYSTEM_BUS_ADDRESS", {"DBUS_SYSTEM_BUS_ADDRESS"}) {}
};

} // namespace ostrel
