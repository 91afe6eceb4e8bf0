#pragma once

#include "context/AccessibilityTree.h"

#include <chrono>
#include <functional>
#include <memory>

namespace ostrel {

/// The accessibility trees of programs, as they show them on the accessibility bus.
///
/// Of an application only its active window counts: that is what "AXFocusedWindow", "AXFocusedUIElement" and
/// "AXChildren" of an application lead to. Where it isn't certain which one is active, there is none. There is no
/// system-wide element on this bus. Positions and sizes are absent, for many programs give them relative to something
/// else. What the user typed is never asked for.
///
/// Connects at the first sample, and again when the bus was lost. What a program doesn't answer within 250 ms is
/// absent, and it is not asked again within the sample. An element is good for the sample in which it was found.
class AtspiTree final : public AccessibilityTree
{
public:
    /// The time for what is to be asked again after a while.
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    explicit AtspiTree(Clock now = std::chrono::steady_clock::now);
    ~AtspiTree() override;

    void beginSample(QDeadlineTimer deadline) override;
    void endSampling() override;
    AccessibilityElementPtr application(qint32 processIdentifier) override;
    AccessibilityElementPtr systemWide() override { return nullptr; }
    AccessibilityValue attribute(const AccessibilityElementPtr &element, const QString &name) override;
    /// Finds "AXWebArea" only.
    std::optional<QList<AccessibilityElementPtr>> find(const AccessibilityElementPtr &root,
                                                       const QString &role) override;

private:
    class Reader;
    std::unique_ptr<Reader> m_reader;
};

} // namespace ostrel
