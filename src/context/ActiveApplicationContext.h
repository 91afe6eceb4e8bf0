#pragma once

#include "context/ActiveDisplay.h"

#include <QList>
#include <QRectF>
#include <QString>
#include <QStringList>
#include <optional>

namespace ostrel {

class AccessibilityAccess;
class ForegroundSource;

/// What travels with each frame besides its picture.
struct ActiveRecordingContext {
    std::optional<QString> appContextText;
    std::optional<ActiveDisplaySelection> activeDisplay;

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
};

/// Describes the foreground application. Keeps nothing between calls.
class ActiveApplicationContext
{
public:
    /// Both outlive this object.
    ActiveApplicationContext(ForegroundSource &foreground, AccessibilityAccess &accessibility);

    /// One sample, everything read afresh. Blocks for a few round trips to the window system and the bus: worker
    /// thread only, one call at a time.
    ActiveRecordingContext currentRecordingContext(const QList<ActiveDisplayCandidate> &displays);

    static std::optional<QString> promptText(const ActiveApplicationContextDetails &details);
    /// The host of a page's address, without a leading "www.".
    static std::optional<QString> domain(const std::optional<QString> &url);
    /// Runs of white space become one space; nothing is left of an empty text.
    static std::optional<QString> normalize(const std::optional<QString> &text);
    static void appendLine(const QString &label, const std::optional<QString> &value, QStringList &lines);

private:
    /// Adds what the window itself says. Only where names may be read.
    void readFocusedWindow(ActiveApplicationContextDetails &details);

    ForegroundSource &m_foreground;
    AccessibilityAccess &m_accessibility;
};

} // namespace ostrel
