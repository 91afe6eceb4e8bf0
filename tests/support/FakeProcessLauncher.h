#pragma once

#include "observer/ProcessLauncher.h"

#include <QList>

#include <memory>
#include <optional>

#include <gtest/gtest.h>

namespace ostrel {

/// Launches nothing. A launch that was not announced fails the test, and so does an announced one that never came.
class FakeProcessLauncher final : public ProcessLauncher
{
public:
    /// One launched child, as the test sees it; it stays when the program has let it go.
    struct Child {
        ProcessDescription description;
        qint64 processId = 0;
        bool running = true; ///< set it to false for a child that ends by itself
        int terminateCount = 0;
        bool isHeld = true; ///< whether the program still has it
    };

    ~FakeProcessLauncher() override
    {
        EXPECT_TRUE(m_outcomes.isEmpty()) << m_outcomes.size() << " launches never came";
    }

    /// The next launch succeeds.
    void expectLaunch() { m_outcomes.append(std::nullopt); }
    /// The next launch fails.
    void expectFailure(Error error) { m_outcomes.append(std::move(error)); }
    /// Every launch from now on succeeds, none included.
    void allowLaunches() { m_allowsAll = true; }

    /// All children so far, in the order of their launches.
    const QList<std::shared_ptr<Child>> &children() const { return m_children; }

    /// What was to be launched, also what failed.
    const QList<ProcessDescription> &descriptions() const { return m_descriptions; }

    Result<std::unique_ptr<ChildProcess>> launch(const ProcessDescription &description) override
    {
        m_descriptions.append(description);
        std::optional<Error> failure;
        if (!m_outcomes.isEmpty())
            failure = m_outcomes.takeFirst();
        else if (!m_allowsAll)
            ADD_FAILURE() << "unexpected launch of " << description.executable.toStdString();
        if (failure)
            return std::unexpected(*failure);
        auto child = std::make_shared<Child>();
        child->description = description;
        child->processId = 1000 + m_children.size();
        m_children.append(child);
        return std::make_unique<Handle>(std::move(child));
    }

private:
    class Handle final : public ChildProcess
    {
    public:
        explicit Handle(std::shared_ptr<Child> child) : m_child(std::move(child)) {}
        ~Handle() override { m_child->isHeld = false; }
        bool isRunning() const override { return m_child->running; }
        qint64 processId() const override { return m_child->processId; }
        void terminate() override
        {
            ++m_child->terminateCount;
            m_child->running = false;
        }

    private:
        const std::shared_ptr<Child> m_child;
    };

    QList<std::optional<Error>> m_outcomes;
    bool m_allowsAll = false;
    QList<std::shared_ptr<Child>> m_children;
    QList<ProcessDescription> m_descriptions;
};

} // namespace ostrel
