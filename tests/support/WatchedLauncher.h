#pragma once

#include "observer/QProcessLauncher.h"

#include <QList>

#include <sys/types.h>

namespace ostrel {

/// Starts real children and remembers who they are.
class WatchedLauncher final : public ProcessLauncher
{
public:
    Result<std::unique_ptr<ChildProcess>> launch(const ProcessDescription &description) override
    {
        auto child = m_launcher.launch(description);
        if (child)
            m_processes.append(pid_t((*child)->processId()));
        return child;
    }

    const QList<pid_t> &processes() const { return m_processes; }

private:
    QProcessLauncher m_launcher;
    QList<pid_t> m_processes;
};

} // namespace ostrel
