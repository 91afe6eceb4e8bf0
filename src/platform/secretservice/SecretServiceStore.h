#pragma once

#include "observer/Keyring.h"
#include "observer/SecretStore.h"

#include <chrono>
#include <memory>

namespace ostrel {

/// Secrets in the desktop's keyring, by the Secret Service on the session bus: items of the default collection, which
/// can be read once their user has logged in and unlocked it. It never prompts. Any thread.
///
/// The bus and the service may hang. Each call is given up after the deadline, and until the one that hangs has
/// returned, later ones fail at once: a stopped keyring costs one deadline, however much is asked of it. A change that
/// was given up while it was on its way may still be made.
class SecretServiceStore final : public SecretStore, public Keyring
{
public:
    static constexpr std::chrono::milliseconds defaultDeadline{2000};

    /// Connects at the first call, to the bus that the environment names now.
    explicit SecretServiceStore(std::chrono::milliseconds deadline = defaultDeadline);
    SecretServiceStore(const SecretServiceStore &) = delete;
    SecretServiceStore &operator=(const SecretServiceStore &) = delete;
    /// Gives up what is under way.
    ~SecretServiceStore() override;

    /// All fail with Fault::KeyringUnavailable.
    Result<std::optional<QString>> lookUp(const QString &service, const QString &account) override;
    Result<> write(const QString &service, const QString &account, const QString &value) override;
    Result<> remove(const QString &service, const QString &account) override;

    KeyringState state() override;

private:
    struct Parts;
    const std::unique_ptr<Parts> m_parts;
};

} // namespace ostrel
