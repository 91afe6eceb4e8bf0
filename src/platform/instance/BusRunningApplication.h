#pragma once

#include "app/RunningApplication.h"

#include <QByteArray>

#include <chrono>
#include <optional>

namespace ostrel {

/// Finds the program that records by its name on the session bus, makes sure that it is the right process, and speaks
/// to that one alone.
class BusRunningApplication final : public RunningApplication
{
public:
    /// @param busAddress where the bus listens; the session's unless one is given
    /// @param patience   for all of a call, of which two seconds at most for a recorder that has just started
    explicit BusRunningApplication(std::optional<QByteArray> busAddress = std::nullopt,
                                   std::chrono::milliseconds patience = defaultPatience);

    static constexpr std::chrono::milliseconds defaultPatience{5000};

    std::expected<QString, RemoteFailure> complaint(qint64 processId) override;
    std::expected<bool, RemoteFailure> activate(qint64 processId) override;
    std::expected<SettingAnswer, RemoteFailure> changeSetting(qint64 processId, const SettingChange &change) override;

private:
    QByteArray address() const;

    const std::optional<QByteArray> m_busAddress;
    const std::chrono::milliseconds m_patience;
};

} // namespace ostrel
