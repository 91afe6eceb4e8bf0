#pragma once

#include "context/AccessibilityTree.h"
#include "context/ActiveApplicationContext.h"

#include <QPointF>
#include <QSizeF>
#include <QString>
#include <optional>

namespace ostrel {

/// Finds an application's window, page and focused control in its accessibility tree. Keeps nothing between calls, and
/// whatever can't be read is absent. Blocks as its tree does: worker thread only, within a sample that was begun there.
class AccessibilityContextReader
{
public:
    /// What a browser's window tells of the page in it; neither is certain.
    struct WebContext {
        std::optional<QString> url;
        std::optional<QString> title;

        bool operator==(const WebContext &) const = default;
    };

    /// @param tree outlives this object
    explicit AccessibilityContextReader(AccessibilityTree &tree) : m_tree(tree) {}

    /// @param base gives the application's name; all else is read afresh
    ActiveApplicationContextDetails read(qint32 processIdentifier, const ActiveApplicationContextDetails &base);

    /// Of an application that can search its tree by itself: the outermost web area that has an address or a title.
    /// Of any other, searches breadth-first for the first address and for the first web area's title. Looks at no more
    /// than 160 elements and no deeper than five levels below the root: a page with an endless tree must not hold up
    /// the sample.
    WebContext findWebContext(const AccessibilityElementPtr &root);

    /// A few words about a control. What was typed into it is never asked for, and a text input's label isn't told
    /// either: it may be what others wrote to the user.
    std::optional<QString> describeFocusedElement(const AccessibilityElementPtr &element);

    static std::optional<QString> humanRoleName(const std::optional<QString> &role);
    /// The text of a text, an address or a styled text, its white space normalised.
    static std::optional<QString> stringValue(const AccessibilityValue &value);

    /// Null where the attribute is absent or anything but an element; so are the other two where it isn't theirs.
    AccessibilityElementPtr elementAttribute(const AccessibilityElementPtr &element, const QString &name);
    std::optional<QPointF> pointAttribute(const AccessibilityElementPtr &element, const QString &name);
    std::optional<QSizeF> sizeAttribute(const AccessibilityElementPtr &element, const QString &name);

private:
    AccessibilityValue attribute(const AccessibilityElementPtr &element, const QString &name);
    std::optional<QString> stringAttribute(const AccessibilityElementPtr &element, const QString &name);
    WebContext firstDescribed(const QList<AccessibilityElementPtr> &webAreas);
    AccessibilityElementPtr focusedElement(const AccessibilityElementPtr &application);
    /// Position and size together, or nothing.
    std::optional<QRectF> frame(const AccessibilityElementPtr &window);

    AccessibilityTree &m_tree;
};

} // namespace ostrel
