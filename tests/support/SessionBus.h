#pragma once

#include "support/ScopedVariable.h"
#include "support/TestProcess.h"

#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <memory>
#include <vector>

namespace ostrel {

/// A message bus of the test's own, with a private home and runtime folder but without a display. Nothing is ever on it
/// but what the test starts. This process belongs to the session until it is destroyed. Main thread.
class SessionBus
{
public:
    SessionBus();

    QByteArray address() const;
    /// What programs of the session run with.
    const QProcessEnvironment &environment() const { return m_environment; }
    /// A file or folder in the session's private folder.
    QString path(const QString &name) const { return m_directory.filePath(name); }
    TestProcess &process() { return *m_process; }

    /// Ends the bus and starts a new one at the same address.
    void restart();

private:
    void enter();
    void start();

    QTemporaryDir m_directory;
    QProcessEnvironment m_environment;
    std::unique_ptr<TestProcess> m_process;
    std::vector<std::unique_ptr<ScopedVariable>> m_entered;
};

} // namespace ostrel
