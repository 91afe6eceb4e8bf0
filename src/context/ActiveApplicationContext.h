#pragma once

#include "context/ActiveDisplay.h"
#include "context/PrivacyRules.h"

#include <QDeadlineTimer>
#include <QList>
#include <QRectF>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

namespace ostrel {

class AccessibilityAccess;
class AccessibilityTree;
class BrowserScriptRunner;
class ForegroundSource;
struct ForegroundApplication;

/// What travels with each frame besides its picture.
struct ActiveRecordingContext {
    std::optional<QString> appContextText;
    std::optional<ActiveDisplaySelection> activeDisplay;
    /// The window in front is to be in no picture, as far as is known: the privacy rules exclude it, or it is our own.
    bool isPrivateInFront = false;
    /// It is private for the page in it, which nobody knows who looks at windows alone.
    bool isPrivatePageInFront = false;

    bool operator==(const ActiveRecordingContext &) const = default;
};

/// The facts gathered before they are put into words.
struct ActiveApplicationContextDetails {
    std::optional<QString> appName;
    std::optional<QString> website;
    std::optional<QString> pageTitle;
    std::optional<QString> windowTitle;
    std::optional<QString> focusedElement;
    std::optional<QRectF> windowFrame;
    bool isPrivate = false;                  ///< by the privacy rules: then nothing of the window but its frame is here
    std::optional<QString> pageAddress = {}; ///< never told in words
    bool isPrivatePage = false;              ///< as `isPrivate`, for the page's address alone
};

/// Describes the foreground application. Keeps nothing between calls.
class ActiveApplicationContext
{
public:
    /// What the facts come from; the references outlive this object.
    struct Sources {
        ForegroundSource &foreground;
        AccessibilityAccess &accessibility;
        AccessibilityTree &tree;
        BrowserScriptRunner &browserScripts;
        /// Whether a window is nobody's business. Called on the worker thread.
        std::function<bool(const WindowIdentity &)> excludesWindow;
        qint32 ownProcess = 0; ///< whose windows are ours; 0 where there are none
    };

    explicit ActiveApplicationContext(Sources sources);

    /// One sample, everything read afresh. Blocks for round trips to the window system, the accessibility tree and the
    /// browser; after 400 ms the latter two are asked for nothing more. Worker thread only, one call at a time.
    ///
    /// While a window that the rules exclude is in front, the text is the application's name alone.
    ActiveRecordingContext currentRecordingContext(const QList<ActiveDisplayCandidate> &displays);
    /// To be called when no sample follows for now. Worker thread only.
    void endSampling();

    /// The facts in words. A fact of more than 1,000 UTF-16 units is cut; control characters become blanks.
    static std::optional<QString> promptText(const ActiveApplicationContextDetails &details);
    /// The host of a page's address, without a leading "www.".
    static std::optional<QString> domain(const std::optional<QString> &url);
    /// Runs of white space become one space; nothing is left of an empty text.
    static std::optional<QString> normalize(const std::optional<QString> &text);
    static void appendLine(const QString &label, const std::optional<QString> &value, QStringList &lines);

private:
    std::optional<ActiveDisplaySelection> findActiveDisplay(const std::optional<QRectF> &windowFrame,
                                                            const QList<ActiveDisplayCandidate> &displays) const;
    /// Everything that is told only with the user's consent. Of an excluded window that is its frame alone.
    ActiveApplicationContextDetails readWindow(const ForegroundApplication &application,
                                               ActiveApplicationContextDetails base, QDeadlineTimer deadline);
    ActiveApplicationContextDetails readTree(const ForegroundApplication &application,
                                             const ActiveApplicationContextDetails &base, QDeadlineTimer deadline);
    void addBrowserTab(ActiveApplicationContextDetails &details, const ForegroundApplication &application,
                       const std::optional<QString> &windowTitle, QDeadlineTimer deadline);
    bool isOurs(const ForegroundApplication &application) const;
    bool isExcluded(const ForegroundApplication &application, const std::optional<QString> &title) const;
    bool isPageExcluded(const std::optional<QString> &address) const;

    const Sources m_sources;
};

} // namespace ostrel
