#include "app/WaitingSecrets.h"

#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "observer/SecretStore.h"
#include "observer/SettingsStore.h"
#include "observer/TokenStore.h"

namespace ostrel {

WaitingSecrets::WaitingSecrets(Clock &clock, SecretStore &secrets, SerialQueue &queue)
    : m_clock(clock), m_secrets(secrets), m_queue(queue)
{}

void WaitingSecrets::start()
{
    m_task.start([this](std::stop_token stop) { return lookUpForEver(std::move(stop)); });
}

Task<> WaitingSecrets::lookUpForEver(std::stop_token stop)
{
    while (co_await m_clock.sleepFor(interval, stop)) {
        co_await m_queue.run(stop, [&secrets = m_secrets] {
            for (const QString &service : {localApiTokenService, analysisApiTokenService, vertexApiKeyService})
                static_cast<void>(secrets.lookUp(service, secretAccount)); // one that can't be read is tried again
        });
        if (stop.stop_requested())
            co_return;
    }
}

} // namespace ostrel
