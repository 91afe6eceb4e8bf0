#pragma once

#include "FakeBrowser.h"
#include "FakeProcesses.h"

#include "platform/devtools/DevToolsScriptRunner.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <future>

namespace ostrel {

/// A runner, and a browser in front of it that listens for debuggers.
class RunnerFixture : public testing::Test
{
protected:
    static QString text(const char *utf8) { return QString::fromUtf8(utf8); }

    RunnerFixture() { m_machine.addBrowser(m_browser.port()); }

    /// Asks on a worker, as a recording does, while the browser answers on the main thread.
    std::optional<QString> ask(const std::optional<QString> &windowTitle,
                               std::chrono::milliseconds time = std::chrono::seconds(10))
    {
        const BrowserScriptRunner::Browser browser{.bundleIdentifier = text("com.google.Chrome"),
                                                   .processIdentifier = FakeProcesses::browser,
                                                   .windowTitle = windowTitle};
        QElapsedTimer elapsed;
        elapsed.start();
        auto answer =
            std::async(std::launch::async, [&] { return m_runner.run(browser, text("tell"), QDeadlineTimer(time)); });
        while (answer.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        m_duration = std::chrono::milliseconds(elapsed.elapsed());
        return answer.get();
    }

    FakeProcesses m_machine;
    FakeBrowser m_browser;
    std::chrono::steady_clock::time_point m_now;
    DevToolsScriptRunner m_runner{m_machine.ports(), [this] { return m_now; }};
    std::chrono::milliseconds m_duration{}; ///< of the last question
};

} // namespace ostrel
