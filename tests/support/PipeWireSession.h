#pragma once

#include "support/TestProcess.h"

#include <QProcessEnvironment>
#include <QString>

#include <memory>

namespace ostrel {

/// PipeWire of a test's own, with the session manager that links its streams. Main thread.
class PipeWireSession
{
public:
    /// Returns when programs can connect.
    /// @param environment names the runtime folder that it listens in
    /// @param logFolder takes what the two write
    PipeWireSession(const QProcessEnvironment &environment, const QString &logFolder);
    ~PipeWireSession();

    QString socket() const { return m_socket; }
    TestProcess &daemon() { return *m_daemon; }

private:
    const QString m_socket;
    std::unique_ptr<TestProcess> m_daemon;
    std::unique_ptr<TestProcess> m_manager;
};

} // namespace ostrel
