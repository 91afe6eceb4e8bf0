#pragma once

#include <QDeadlineTimer>
#include <QList>
#include <QPointF>
#include <QSizeF>
#include <QString>
#include <QUrl>
#include <memory>
#include <optional>
#include <variant>

namespace ostrel {

/// One element of an application's accessibility tree: a handle that only its tree understands.
class AccessibilityElement
{
public:
    virtual ~AccessibilityElement() = default;
};
using AccessibilityElementPtr = std::shared_ptr<const AccessibilityElement>;

/// A text with styles, of which only the characters count.
struct AttributedText {
    QString plainText;
};

/// What an attribute holds; `std::monostate` stands for an attribute that is absent or could not be read.
using AccessibilityValue = std::variant<std::monostate, QString, QUrl, AttributedText, QPointF, QSizeF,
                                        AccessibilityElementPtr, QList<AccessibilityElementPtr>>;

/// The accessibility trees of the running applications. All calls come from one worker thread at a time and may block
/// for round trips, each no longer than 250 ms and none past the sample's deadline; what isn't there by then is absent.
class AccessibilityTree
{
public:
    virtual ~AccessibilityTree() = default;

    /// Begins a new sample: what was read for the last one is forgotten.
    virtual void beginSample(QDeadlineTimer deadline) = 0;
    /// No sample follows for now: whatever programs were asked to tell is taken back, lest it gather.
    virtual void endSampling() {}
    /// Null where the application shows no tree.
    virtual AccessibilityElementPtr application(qint32 processIdentifier) = 0;
    /// The element from which whatever has the keyboard's focus can be asked. Null where there is none.
    virtual AccessibilityElementPtr systemWide() = 0;
    /// Names are those of the attribute table in the README: "AXRole", "AXTitle", "AXChildren", ...
    virtual AccessibilityValue attribute(const AccessibilityElementPtr &element, const QString &name) = 0;
    /// The elements with this role at and below `root` that the application finds by itself, outermost first; a few at
    /// most. That is one round trip instead of hundreds.
    /// @return nothing where it can't search: walking the tree may still find some
    virtual std::optional<QList<AccessibilityElementPtr>> find(const AccessibilityElementPtr & /*root*/,
                                                               const QString & /*role*/)
    {
        return std::nullopt;
    }
};

} // namespace ostrel
