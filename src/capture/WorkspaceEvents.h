#pragma once

#include <QObject>
#include <memory>

namespace ostrel {

/// Holds up the system's sleep or shutdown until it is destroyed, or until the system's own patience ends (5 s as a
/// rule). Main thread.
class SystemHold
{
public:
    virtual ~SystemHold() = default;
};

/// What happens to the session as a whole. Lives on the main thread and emits there.
class WorkspaceEvents : public QObject
{
    Q_OBJECT

public:
    ~WorkspaceEvents() override;

    /// Whether the session is locked now; false where nobody tells.
    virtual bool isLocked() const = 0;

Q_SIGNALS:
    /// The system goes to sleep once everybody has let go of the hold. A hold that nobody keeps ends at once.
    void willSleep(std::shared_ptr<ostrel::SystemHold> hold);
    void didWake();
    /// The system shuts down or restarts.
    void willShutDown(std::shared_ptr<ostrel::SystemHold> hold);
    void lockedChanged(bool locked);
};

} // namespace ostrel
