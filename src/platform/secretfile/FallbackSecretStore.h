#pragma once

#include "observer/SecretStore.h"

#include <chrono>

namespace ostrel {

class FileSecretStore;
struct SecretEntry;

/// Secrets in the keyring where it can be written, else in the file until it can: whoever next touches an item that
/// waits there brings it over. Removals wait in the file too, or the keyring would bring back what was removed. Any
/// thread, any number of processes; blocks on both stores.
///
/// What the file says of an item is always younger than what the keyring says: a change goes past the file only when
/// nothing waits there, else through it. An item is told to the keyring under a lock that all processes share, and
/// leaves the file after that, and only if it is still the same. So whatever crashes or goes away in between, the item
/// is in both places or in one, never in none.
class FallbackSecretStore final : public SecretStore
{
public:
    /// Both outlive this object.
    /// @param keyring answers with an error when it can't be used
    FallbackSecretStore(SecretStore &keyring, FileSecretStore &file) : m_keyring(keyring), m_file(file) {}

    /// @return the keyring's error when the file knows nothing of the item and the keyring can't be read
    Result<std::optional<QString>> lookUp(const QString &service, const QString &account) override;

    /// Success means that one of the two has confirmed it. @return the file's error when neither has
    Result<> write(const QString &service, const QString &account, const QString &value) override;
    Result<> remove(const QString &service, const QString &account) override;

    /// Telling the keyring takes milliseconds; whoever takes longer waits for one that hangs.
    static constexpr std::chrono::milliseconds exchangePatience{500};

private:
    Result<> change(const QString &service, const QString &account, const SecretEntry &wanted);
    Result<> tellKeyring(const QString &service, const QString &account, const SecretEntry &entry);
    Result<> bringOver(const QString &service, const QString &account);
    template <class F>
    Result<> exchange(F talk);

    SecretStore &m_keyring;
    FileSecretStore &m_file;
};

} // namespace ostrel
