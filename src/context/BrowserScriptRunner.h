#pragma once

#include <QDeadlineTimer>
#include <QString>
#include <optional>

namespace ostrel {

/// Asks a running browser for its front-most tab. Called from one worker thread at a time; blocks until the browser
/// has answered, no longer than 250 ms and not past the deadline.
class BrowserScriptRunner
{
public:
    /// Who is in front, as the window system knows it.
    struct Browser {
        QString bundleIdentifier;
        qint32 processIdentifier = 0;       ///< 0 where nobody tells
        std::optional<QString> windowTitle; ///< as the window shows it, not normalised
    };

    virtual ~BrowserScriptRunner() = default;

    /// @param script the query, for runners that hand it to the browser as it is
    /// @return the tab's address, a line feed and its title; an empty text where the browser has no window; nothing
    ///         when it could not be asked, or when it is not certain which tab is in front
    virtual std::optional<QString> run(const Browser &browser, const QString &script, QDeadlineTimer deadline) = 0;
};

} // namespace ostrel
