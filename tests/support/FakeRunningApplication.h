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

    /// What is wrong with the recorder; by default nothing is.
    std::expected<QString, RemoteFailure> complaintAnswer = QString();
    std::expected<QString, RemoteFailure> complaint(qint64 processId) override
    {
        EXPECT_GT(processId, 0);
        return complaintAnswer;
    }

    /// Answers one activation.
    void expectActivation(std::expected<bool, RemoteFailure> answer) { m_activation = answer; }
    std::expected<bool, RemoteFailure> activate(qint64 processId) override
    {
        EXPECT_GT(processId, 0);
        if (!m_activation) {
            ADD_FAILURE() << "unexpected activation";
            return std::unexpected(RemoteFailure::Broken);
        }
        return *std::exchange(m_activation, std::nullopt);
    }

private:
    std::optional<std::expected<bool, RemoteFailure>> m_activation;
    QList<std::pair<Answer, std::function<void()>>> m_answers;
    QList<Request> m_requests;
};

/// Listens to nobody. Opening it twice without closing fails the test.
class FakeRemoteControl final : public RemoteControl
{
public:
    void open(Calls calls) override
    {
        EXPECT_FALSE(m_calls.changeSetting) << "it is open already";
        m_calls = std::move(calls);
    }
    void close() override { m_calls = {}; }

    bool isOpen() const { return bool(m_calls.changeSetting); }
    /// A change as it would come from outside.
    Task<SettingAnswer> changeSetting(SettingChange change) { return m_calls.changeSetting(std::move(change)); }
    const Calls &calls() const { return m_calls; }

private:
    Calls m_calls;
};

} // namespace ostrel
