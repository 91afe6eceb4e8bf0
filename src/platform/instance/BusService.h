#pragma once

#include "app/RunningApplication.h"
#include "platform/sessionbus/GlibHandles.h"

#include <QByteArray>

#include <functional>
#include <memory>

namespace ostrel {

/// A call that waits for its answer. One that is let go of without an answer is answered with an error. Any thread.
class PendingCall
{
public:
    explicit PendingCall(GDBusMethodInvocation *invocation) : m_invocation(invocation) {}
    PendingCall(const PendingCall &) = delete;
    PendingCall &operator=(const PendingCall &) = delete;
    ~PendingCall();

protected:
    /// Called once.
    void answerWith(GVariant *body);

private:
    GDBusMethodInvocation *m_invocation; ///< null once it is answered
};

class SettingCall : public PendingCall
{
public:
    SettingCall(SettingChange change, GDBusMethodInvocation *invocation);

    const SettingChange &change() const { return m_change; }
    /// Called once.
    void answer(const SettingAnswer &answer);

private:
    const SettingChange m_change;
};

class ComplaintCall : public PendingCall
{
public:
    using PendingCall::PendingCall;
    /// Called once.
    void answer(const QString &complaint);
};

/// The recorder's object on the bus. Lives on one thread, from `run` to its return.
class BusService
{
public:
    /// Called on the thread of `run`.
    struct Calls {
        std::function<void(std::shared_ptr<SettingCall>)> changeSetting;
        std::function<void(std::shared_ptr<ComplaintCall>)> complaint;
        std::function<void()> activate; ///< empty where there is nothing to bring to the front
    };

    BusService(QByteArray busAddress, Calls calls);

    /// Connects, takes the name, and serves until `stop`. Returns at once where there is no bus or the name is taken.
    void run();
    /// Any thread, at any time, once.
    void stop();

private:
    bool connect();
    bool exportObject();
    bool exportInterface(GDBusNodeInfo *node, const char *name, const GDBusInterfaceVTable &table);
    bool takeName();
    void receive(GDBusMethodInvocation *invocation, const QByteArray &method, GVariant *arguments) const;
    void receiveChange(GDBusMethodInvocation *invocation, GVariant *arguments) const;
    void receiveActivation(GDBusMethodInvocation *invocation) const;
    void flush();

    const QByteArray m_busAddress;
    const Calls m_calls;
    const GlibHandle<GCancellable> m_stopped;
    GlibHandle<GDBusConnection> m_connection;
};

} // namespace ostrel
