#pragma once

#include "app/RunningApplication.h"

#include <QList>

#include <functional>
#include <optional>
#include <utility>

#include <gtest/gtest.h>

namespace ostrel {

/// A recorder by script. A change that nothing was scripted for fails the test.
class FakeRunningApplication final : public RunningApplication
{
public:
    using Answer = std::expected<SettingAnswer, RemoteFailure>;
    struct Request {
        qint64 processId = 0;
        SettingChange change;
    };

    ~FakeRunningApplication() override { EXPECT_TRUE(m_answers.isEmpty()) << "changes that never came"; }

    /// Answers one change; several are used in order.
    /// @param meanwhile what happens before the answer
    void expect(Answer answer, std::function<void()> meanwhile = [] {})
    {
        m_answers.append({std::move(answer), std::move(meanwhile)});
    }
    const QList<Request> &requests() const { return m_requests; }

    Answer changeSetting(qint64 processId, const SettingChange &change) override
    {
        m_requests.append({.processId = processId, .change = change});
        if (m_answers.isEmpty()) {
            ADD_FAILURE() << "unexpected change of " << change.key.toStdString();
            return std::unexpected(RemoteFailure::Broken);
        }
        const auto [answer, meanwhile] = m_answers.takeFirst();
        meanwhile();
        return answer;
    }

private:
    QList<std::pair<Answer, std::function<void()>>> m_answers;
    QList<Request> m_requests;
};

/// Listens to nobody. Opening it twice without closing fails the test.
class FakeRemoteControl final : public RemoteControl
{
public:
    void open(ChangeSetting changeSetting) override
    {
        EXPECT_FALSE(m_changeSetting) << "it is open already";
        m_changeSetting = std::move(changeSetting);
    }
    void close() override { m_changeSetting = nullptr; }

    bool isOpen() const { return bool(m_changeSetting); }
    /// A change as it would come from outside.
    Task<SettingAnswer> changeSetting(SettingChange change) { return m_changeSetting(std::move(change)); }

private:
    ChangeSetting m_changeSetting;
};

} // namespace ostrel
