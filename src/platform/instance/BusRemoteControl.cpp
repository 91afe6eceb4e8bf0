#include "platform/instance/BusRemoteControl.h"

#include "platform/instance/BusService.h"
#include "platform/sessionbus/SessionBusAddress.h"

namespace ostrel {

BusRemoteControl::BusRemoteControl(std::optional<QByteArray> busAddress) : m_busAddress(std::move(busAddress)) {}

BusRemoteControl::~BusRemoteControl()
{
    close();
}

void BusRemoteControl::open(Calls calls)
{
    close();
    const QByteArray address = m_busAddress ? *m_busAddress : sessionBusAddress().toUtf8();
    if (address.isEmpty())
        return;
    m_calls = std::move(calls);
    m_home = std::make_shared<Mailbox>();
    BusService::Calls home{
        .changeSetting =
            [this, home = m_home](std::shared_ptr<SettingCall> call) {
                home->post([this, call = std::move(call)] { serve(call); });
            },
        .complaint =
            [home = m_home, complaint = m_calls.complaint](std::shared_ptr<ComplaintCall> call) {
                home->post([complaint, call = std::move(call)] { call->answer(complaint ? complaint() : QString()); });
            },
        .activate = {}};
    if (m_calls.activate)
        home.activate = [home = m_home, activate = m_calls.activate] { home->post(activate); };
    m_service = std::make_unique<BusService>(address, std::move(home));
    m_thread = std::thread([service = m_service.get()] { service->run(); });
}

void BusRemoteControl::close()
{
    if (!m_service)
        return;
    m_tasks.cancelAll();
    m_service->stop();
    m_thread.join();
    m_home.reset(); // with the calls that came too late, which are answered with an error
    m_service.reset();
}

void BusRemoteControl::serve(std::shared_ptr<SettingCall> call)
{
    // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    m_tasks.spawn([change = m_calls.changeSetting, call = std::move(call)](std::stop_token stop) -> Task<> {
        const SettingAnswer answer = co_await change(call->change());
        if (!stop.stop_requested())
            call->answer(answer);
    });
}

} // namespace ostrel
