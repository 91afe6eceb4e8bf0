#include "platform/secretfile/FallbackSecretStore.h"

#include "base/Fault.h"
#include "base/FileLock.h"
#include "base/Log.h"
#include "platform/secretfile/FileSecretStore.h"

namespace ostrel {

Result<std::optional<QString>> FallbackSecretStore::lookUp(const QString &service, const QString &account)
{
    // The file first: an item on its way is in the keyring before it leaves the file.
    const auto waiting = m_file.entry(service, account);
    if (!waiting)
        qCWarning(logPlatform, "the file of secrets can't be read: %ls",
                  qUtf16Printable(waiting.error().localizedDescription));
    if (!waiting || !*waiting)
        return m_keyring.lookUp(service, account);
    static_cast<void>(bringOver(service, account)); // else it waits for the next time
    return (*waiting)->value;
}

Result<> FallbackSecretStore::write(const QString &service, const QString &account, const QString &value)
{
    return change(service, account, {.value = value});
}

Result<> FallbackSecretStore::remove(const QString &service, const QString &account)
{
    return change(service, account, {});
}

Result<> FallbackSecretStore::change(const QString &service, const QString &account, const SecretEntry &wanted)
{
    const auto waiting = m_file.entry(service, account);
    // Where it can't be read, something may wait there that would later be taken for younger than this.
    if (!waiting)
        return std::unexpected(waiting.error());
    if (!*waiting) {
        const Result<> told = exchange([&] { return tellKeyring(service, account, wanted); });
        if (told)
            return {};
        qCInfo(logPlatform, "a change of %ls waits for the keyring: %ls", qUtf16Printable(service),
               qUtf16Printable(told.error().localizedDescription));
        return m_file.put(service, account, wanted);
    }
    const Result<> filed = m_file.put(service, account, wanted);
    if (filed)
        static_cast<void>(bringOver(service, account));
    return filed;
}

Result<> FallbackSecretStore::tellKeyring(const QString &service, const QString &account, const SecretEntry &entry)
{
    return entry.value ? m_keyring.write(service, account, *entry.value) : m_keyring.remove(service, account);
}

Result<> FallbackSecretStore::bringOver(const QString &service, const QString &account)
{
    return exchange([&]() -> Result<> {
        const auto waiting = m_file.entry(service, account); // again, as another process may have been quicker
        if (!waiting)
            return std::unexpected(waiting.error());
        if (!*waiting)
            return {};
        const Result<> told = tellKeyring(service, account, **waiting);
        return told ? m_file.erase(service, account, *waiting) : told;
    });
}

/// Runs what tells the keyring of items, in one process at a time: an older value must not overtake a younger one.
template <class F>
Result<> FallbackSecretStore::exchange(F talk)
{
    FileLock lock(m_file.path() + QLatin1String(".exchange.lock"));
    // Without a folder for the lock there is no file either in which anything could wait.
    if (lock.acquire(exchangePatience) == FileLock::Outcome::HeldByAnother)
        return std::unexpected(faultError(Fault::FileFailed, m_file.path() + QLatin1String(" (it is being moved)")));
    return talk();
}

} // namespace ostrel
