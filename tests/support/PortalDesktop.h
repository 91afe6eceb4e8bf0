#pragma once

#include "support/PipeWireSession.h"
#include "support/SessionBus.h"
#include "support/TestProcess.h"
#include "support/WaylandDesktop.h"

#include <QProcessEnvironment>
#include <QString>

#include <memory>

namespace ostrel {

/// A sway session whose screens can be seen through the desktop portal: with a message bus, PipeWire, and the real
/// portal with its part for wlroots, whose user answers as the test says. This process belongs to it until it is
/// destroyed. Main thread.
class PortalDesktop
{
public:
    explicit PortalDesktop(QList<WaylandDesktop::Output> outputs);
    ~PortalDesktop();

    WaylandDesktop &screens() { return m_screens; }
    SessionBus &bus() { return m_bus; }
    /// What programs of the session run with.
    QProcessEnvironment environment() const;

    /// Whose question is answered next, until told otherwise: with this output, at first the first one.
    void willChoose(qsizetype output);
    void willDecline();

    TestProcess &pipeWire() { return m_pipeWire->daemon(); }
    TestProcess &backend() { return *m_backend; } ///< the portal's part for wlroots
    TestProcess &portal() { return *m_portal; }
    void startBackend();

private:
    void writeConfiguration() const;
    void answer(const QByteArray &line) const;
    std::unique_ptr<TestProcess> launch(const QString &program, const QProcessEnvironment &environment) const;
    void waitForName(const char *name) const;

    SessionBus m_bus; ///< before the screens: theirs is the runtime folder
    WaylandDesktop m_screens;
    std::unique_ptr<PipeWireSession> m_pipeWire;
    std::unique_ptr<TestProcess> m_grants;
    std::unique_ptr<TestProcess> m_backend;
    std::unique_ptr<TestProcess> m_portal;
};

} // namespace ostrel
