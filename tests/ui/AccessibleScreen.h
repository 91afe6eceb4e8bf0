#pragma once

#include <QAccessible>
#include <QQuickItem>
#include <QQuickView>
#include <QString>
#include <QStringList>

#include <optional>

#include <gtest/gtest.h>

namespace ostrel {

/// Everything that is drawn as part of an item, in the order of drawing.
inline QList<QQuickItem *> partsOf(const QQuickItem &item)
{
    QList<QQuickItem *> parts;
    for (QQuickItem *part : item.childItems()) {
        parts.append(part);
        parts.append(partsOf(*part));
    }
    return parts;
}

/// A window as somebody who can't see it is told of it: by roles and names. What is not visible is not there.
class AccessibleScreen
{
public:
    explicit AccessibleScreen(QQuickView &view) : m_view(view) {}

    /// All names, in the order of the tree.
    QStringList names() const
    {
        QStringList names;
        walk(root(), [&names](QAccessibleInterface *part) {
            if (const QString name = part->text(QAccessible::Name); !name.isEmpty())
                names.append(name);
            return false;
        });
        return names;
    }
    bool has(const QString &name) const { return find(name) != nullptr; }
    bool hasButton(const QString &name) const { return find(name, QAccessible::Button) != nullptr; }

    /// Fails the test where there is none.
    QQuickItem *item(const QString &name, std::optional<QAccessible::Role> role = {}) const
    {
        QAccessibleInterface *part = find(name, role);
        EXPECT_NE(part, nullptr) << "nothing is called " << name.toStdString() << "; there are "
                                 << names().join(QStringLiteral(" | ")).toStdString();
        return part ? qobject_cast<QQuickItem *>(part->object()) : nullptr;
    }
    QQuickItem *button(const QString &name) const { return item(name, QAccessible::Button); }

    /// Presses a button as an assistive technology does.
    void press(const QString &name) const
    {
        QAccessibleInterface *part = find(name, QAccessible::Button);
        ASSERT_NE(part, nullptr) << "no button is called " << name.toStdString() << "; there are "
                                 << names().join(QStringLiteral(" | ")).toStdString();
        ASSERT_NE(part->actionInterface(), nullptr);
        part->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    }

    /// What has the keyboard: its name, or its class where it has none.
    QString focused() const
    {
        QQuickItem *item = m_view.activeFocusItem();
        QAccessibleInterface *part = item ? QAccessible::queryAccessibleInterface(item) : nullptr;
        return part ? part->text(QAccessible::Name) : QString();
    }

    /// Every part that can be operated, yet has no name that says what for.
    QStringList nameless() const
    {
        QStringList found;
        walk(root(), [&found](QAccessibleInterface *part) {
            if (isControl(part->role()) && part->text(QAccessible::Name).isEmpty())
                found.append(QString::fromLatin1(part->object()->metaObject()->className()));
            return false;
        });
        return found;
    }

private:
    static bool isControl(QAccessible::Role role)
    {
        return role == QAccessible::Button || role == QAccessible::EditableText || role == QAccessible::CheckBox ||
               role == QAccessible::RadioButton || role == QAccessible::ProgressBar || role == QAccessible::List ||
               role == QAccessible::ListItem;
    }

    QAccessibleInterface *root() const { return QAccessible::queryAccessibleInterface(&m_view); }

    QAccessibleInterface *find(const QString &name, std::optional<QAccessible::Role> role = {}) const
    {
        return walk(root(), [&](QAccessibleInterface *part) {
            return part->text(QAccessible::Name) == name && (!role || part->role() == *role);
        });
    }

    template <class Match>
    static QAccessibleInterface *walk(QAccessibleInterface *part, const Match &matches)
    {
        if (!part || part->state().invisible)
            return nullptr;
        if (matches(part))
            return part;
        for (int i = 0; i < part->childCount(); ++i) {
            if (QAccessibleInterface *found = walk(part->child(i), matches))
                return found;
        }
        return nullptr;
    }

    QQuickView &m_view;
};

} // namespace ostrel
