#include "platform/secretservice/SecretServiceStore.h"

#include "base/Fault.h"
#include "platform/secretservice/DeadlineThread.h"
#include "platform/secretservice/SecretServiceClient.h"
#include "platform/sessionbus/SessionBusAddress.h"

namespace ostrel {

namespace {

QString reason(const KeyringFailure &failure)
{
    switch (failure.state) {
    case KeyringState::Locked:
        return QStringLiteral("it is locked");
    case KeyringState::NoDefaultCollection:
        return QStringLiteral("it has no default collection");
    case KeyringState::NoService:
        return QStringLiteral("there is none on the session bus");
    case KeyringState::ServiceSilent:
        return QStringLiteral("it does not answer");
    case KeyringState::NoBus:
        return QStringLiteral("there is no session bus");
    case KeyringState::BusSilent:
        return QStringLiteral("the session bus does not answer");
    case KeyringState::Ready:
    case KeyringState::Failed:
        break;
    }
    return failure.detail;
}

} // namespace

struct SecretServiceStore::Parts {
    using Client = SecretServiceClient;

    /// Has the client do something on the thread.
    template <class T>
    KeyringResult<T> ask(std::function<KeyringResult<T>(Client &, std::stop_token)> job)
    {
        auto answer = thread.call(deadline, [client = client, job = std::move(job)](std::stop_token givenUp) {
            return job(*client, std::move(givenUp));
        });
        if (answer)
            return *std::move(answer);
        const bool bus = client->awaited() == Awaited::Bus;
        return std::unexpected(
            KeyringFailure{.state = bus ? KeyringState::BusSilent : KeyringState::ServiceSilent, .detail = {}});
    }

    template <class T>
    Result<T> askInWords(std::function<KeyringResult<T>(Client &, std::stop_token)> job)
    {
        auto answer = ask(std::move(job));
        if (!answer)
            return std::unexpected(faultError(Fault::KeyringUnavailable, reason(answer.error())));
        if constexpr (std::is_void_v<T>)
            return {};
        else
            return *std::move(answer);
    }

    const std::chrono::milliseconds deadline;
    const std::shared_ptr<Client> client; ///< shared with a job that may be left behind
    DeadlineThread thread;
};

SecretServiceStore::SecretServiceStore(std::chrono::milliseconds deadline)
    : m_parts(new Parts{.deadline = deadline,
                        .client = std::make_shared<SecretServiceClient>(sessionBusAddress().toLocal8Bit()),
                        .thread = {}})
{}

SecretServiceStore::~SecretServiceStore()
{
    m_parts->client->cancel();
}

Result<std::optional<QString>> SecretServiceStore::lookUp(const QString &service, const QString &account)
{
    const SecretServiceClient::Item item{.service = service, .account = account};
    return m_parts->askInWords<std::optional<QString>>(
        [item](SecretServiceClient &client, const std::stop_token &) { return client.lookUp(item); });
}

Result<> SecretServiceStore::write(const QString &service, const QString &account, const QString &value)
{
    const SecretServiceClient::Item item{.service = service, .account = account};
    return m_parts->askInWords<void>([item, value](SecretServiceClient &client, const std::stop_token &givenUp) {
        return client.write(item, value, givenUp);
    });
}

Result<> SecretServiceStore::remove(const QString &service, const QString &account)
{
    const SecretServiceClient::Item item{.service = service, .account = account};
    return m_parts->askInWords<void>(
        [item](SecretServiceClient &client, const std::stop_token &givenUp) { return client.remove(item, givenUp); });
}

KeyringState SecretServiceStore::state()
{
    const auto usable =
        m_parts->ask<void>([](SecretServiceClient &client, const std::stop_token &) { return client.check(); });
    return usable ? KeyringState::Ready : usable.error().state;
}

} // namespace ostrel
