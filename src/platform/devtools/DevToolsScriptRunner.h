#pragma once

#include "context/BrowserScriptRunner.h"
#include "platform/devtools/DebuggingPorts.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>

namespace ostrel {

class DevToolsSession;
struct Tab;
struct TabCandidates;

/// Asks browsers of the Chromium family by their debugging protocol, where the user has remote debugging on. It runs
/// nothing in a page but a look at whether the page shows and has the keyboard, which no script of the page can falsify
/// or see; it forgets all other tabs at once.
class DevToolsScriptRunner final : public BrowserScriptRunner
{
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    explicit DevToolsScriptRunner(DebuggingPorts ports, Clock now = std::chrono::steady_clock::now);

    /// Nothing for a private window, for one of another profile than the browser's own where the browser tells them
    /// apart, and for a window whose process nobody knows. A browser that did not answer in time is left alone for five
    /// seconds.
    std::optional<QString> run(const Browser &browser, const QString &script, QDeadlineTimer deadline) override;

private:
    std::optional<QString> ask(const Browser &browser, QDeadlineTimer deadline) const;
    std::optional<DevToolsSession> connectTo(const Browser &browser, QDeadlineTimer deadline) const;
    bool isResting(qint32 process);

    DebuggingPorts m_ports;
    Clock m_now;
    std::map<qint32, std::chrono::steady_clock::time_point> m_restUntil; ///< by process
};

} // namespace ostrel
