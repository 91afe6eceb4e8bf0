#pragma once

#include "app/RunningApplication.h"
#include "base/Mailbox.h"
#include "base/TaskScope.h"

#include <QByteArray>

#include <memory>
#include <optional>
#include <thread>

namespace ostrel {

class BusService;
class SettingCall;

/// Has the name "com.tamsk.ostrel" on the session bus while it is open, and takes calls there on a thread of its own.
class BusRemoteControl final : public RemoteControl
{
public:
    /// @param busAddress where the bus listens; the session's unless one is given
    explicit BusRemoteControl(std::optional<QByteArray> busAddress = std::nullopt);
    BusRemoteControl(const BusRemoteControl &) = delete;
    BusRemoteControl &operator=(const BusRemoteControl &) = delete;
    ~BusRemoteControl() override;

    void open(Calls calls) override;
    void close() override;

private:
    void serve(std::shared_ptr<SettingCall> call);

    const std::optional<QByteArray> m_busAddress;
    Calls m_calls;
    std::shared_ptr<Mailbox> m_home;
    std::unique_ptr<BusService> m_service;
    std::thread m_thread;
    TaskScope m_tasks;
};

} // namespace ostrel
