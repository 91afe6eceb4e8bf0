#pragma once

#include "base/Task.h"
#include "base/TaskSlot.h"

#include <chrono>
#include <stop_token>

namespace ostrel {

class Clock;
class SecretStore;
class SerialQueue;

/// Looks every secret up now and then. A store that keeps secrets elsewhere while the keyring is locked brings them
/// over when they are looked up, and a program that runs for days has no other reason to do so. Main thread.
class WaitingSecrets
{
public:
    static constexpr std::chrono::minutes interval{5};

    /// @param queue where secrets are read and written; like the others, it outlives this object
    WaitingSecrets(Clock &clock, SecretStore &secrets, SerialQueue &queue);

    /// The first look comes after an interval.
    void start();

private:
    Task<> lookUpForEver(std::stop_token stop);

    Clock &m_clock;
    SecretStore &m_secrets;
    SerialQueue &m_queue;
    TaskSlot m_task;
};

} // namespace ostrel
