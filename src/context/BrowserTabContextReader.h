#pragma once

#include "context/BrowserScriptRunner.h"
#include "context/ForegroundSource.h"

#include <QDeadlineTimer>
#include <QSet>
#include <QString>
#include <optional>

namespace ostrel {

/// What a browser says about its front-most tab, white space normalised.
struct ActiveBrowserTabContext {
    std::optional<QString> url;
    std::optional<QString> title;

    bool operator==(const ActiveBrowserTabContext &) const = default;
};

/// Asks browsers of the Chromium family for their front-most tab. Keeps nothing between calls. Blocks as its runner
/// does: worker thread only.
class BrowserTabContextReader
{
public:
    /// @param runner outlives this object
    explicit BrowserTabContextReader(BrowserScriptRunner &runner) : m_runner(runner) {}

    /// The browsers that are asked; of all others the accessibility tree alone tells.
    static const QSet<QString> &chromiumBundleIdentifiers();

    /// @param windowTitle as the window system tells it: by it the runner recognises the tab
    /// @return nothing where it is no such browser, has no window, or couldn't be asked
    std::optional<ActiveBrowserTabContext> read(const ForegroundApplication &application,
                                                const std::optional<QString> &windowTitle, QDeadlineTimer deadline);

    /// The query for a browser's script interface.
    static QString script(const QString &bundleIdentifier);
    /// @param output the address, a line feed and the title; lines beyond are ignored
    static std::optional<ActiveBrowserTabContext> parse(const std::optional<QString> &output);

private:
    BrowserScriptRunner &m_runner;
};

} // namespace ostrel
