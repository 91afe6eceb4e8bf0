#pragma once

#include "context/AccessibilityTree.h"

#include <QStringList>

#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <map>
#include <optional>
#include <vector>

namespace ostrel {

/// An element with the attributes that the test gave it; all others are absent.
struct FakeAccessibilityElement final : AccessibilityElement {
    std::map<QString, AccessibilityValue> attributes;
};

/// Accessibility trees that the test builds. A call that the test has no answer for fails it, and so does asking for an
/// attribute that nobody has business with: above all for what the user typed ("AXValue").
/// Build the tree before the calls begin; they come on the caller's thread.
class FakeAccessibilityTree final : public AccessibilityTree
{
public:
    using Attributes = std::initializer_list<std::pair<const QString, AccessibilityValue>>;

    FakeAccessibilityTree() = default;
    FakeAccessibilityTree(const FakeAccessibilityTree &) = delete;
    FakeAccessibilityTree &operator=(const FakeAccessibilityTree &) = delete;
    ~FakeAccessibilityTree() override
    {
        // Trees with cycles would keep themselves alive.
        for (const auto &element : m_elements)
            element->attributes.clear();
    }

    AccessibilityElementPtr add(Attributes attributes)
    {
        auto element = std::make_shared<FakeAccessibilityElement>();
        element->attributes = attributes;
        m_elements.push_back(element);
        return element;
    }
    /// @param element from `add` of this tree
    void set(const AccessibilityElementPtr &element, const QString &name, AccessibilityValue value)
    {
        for (const auto &own : m_elements) {
            if (own == element)
                own->attributes[name] = std::move(value);
        }
    }

    std::function<AccessibilityElementPtr(qint32)> onApplication;
    std::function<AccessibilityElementPtr()> onSystemWide;
    /// What the application finds by itself. Left empty, it can't search.
    std::function<std::optional<QList<AccessibilityElementPtr>>(const AccessibilityElementPtr &, const QString &)>
        onFind;
    /// Called before each attribute is read; may be left empty.
    std::function<void(const AccessibilityElementPtr &, const QString &)> onRead;

    /// The deadlines of the samples that were begun.
    const QList<QDeadlineTimer> &samples() const { return m_samples; }
    /// How often the attribute was asked for, of any element.
    int readCount(const QString &name) const { return int(m_reads.count(name)); }

    void beginSample(QDeadlineTimer deadline) override { m_samples.append(deadline); }
    void endSampling() override { ++endingCount; }
    /// How often no sample was to follow.
    int endingCount = 0;

    AccessibilityElementPtr application(qint32 processIdentifier) override
    {
        EXPECT_FALSE(m_samples.isEmpty()) << "no sample was begun";
        if (onApplication)
            return onApplication(processIdentifier);
        ADD_FAILURE() << "unexpected call of AccessibilityTree::application";
        return nullptr;
    }

    AccessibilityElementPtr systemWide() override
    {
        if (onSystemWide)
            return onSystemWide();
        ADD_FAILURE() << "unexpected call of AccessibilityTree::systemWide";
        return nullptr;
    }

    AccessibilityValue attribute(const AccessibilityElementPtr &element, const QString &name) override
    {
        static const QStringList expected = {QStringLiteral("AXChildren"),
                                             QStringLiteral("AXDescription"),
                                             QStringLiteral("AXDocument"),
                                             QStringLiteral("AXFocusedWindow"),
                                             QStringLiteral("AXFocusedUIElement"),
                                             QStringLiteral("AXPosition"),
                                             QStringLiteral("AXRole"),
                                             QStringLiteral("AXSize"),
                                             QStringLiteral("AXTitle"),
                                             QStringLiteral("AXURL")};
        EXPECT_TRUE(expected.contains(name)) << "unexpected attribute " << qPrintable(name);
        const auto *own = dynamic_cast<const FakeAccessibilityElement *>(element.get());
        if (!own) {
            ADD_FAILURE() << "an attribute of no element is asked for: " << qPrintable(name);
            return {};
        }
        m_reads.append(name);
        if (onRead)
            onRead(element, name);
        const auto found = own->attributes.find(name);
        return found == own->attributes.end() ? AccessibilityValue() : found->second;
    }

    std::optional<QList<AccessibilityElementPtr>> find(const AccessibilityElementPtr &root,
                                                       const QString &role) override
    {
        return onFind ? onFind(root, role) : std::nullopt;
    }

private:
    std::vector<std::shared_ptr<FakeAccessibilityElement>> m_elements;
    QList<QDeadlineTimer> m_samples;
    QStringList m_reads;
};

} // namespace ostrel
