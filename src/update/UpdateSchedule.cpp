#include "update/UpdateSchedule.h"

#include "base/Clock.h"
#include "update/UpdateMemory.h"

namespace ostrel {

using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds interval = 24h;
constexpr std::chrono::milliseconds tick = 1h;

} // namespace

void UpdateSchedule::start(std::function<void()> check)
{
    // The slot keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    m_ticking.start([this, check = std::move(check)](std::stop_token stop) -> Task<> {
        do {
            if (isDue())
                check();
        } while (co_await m_clock.sleepFor(tick, stop));
    });
}

void UpdateSchedule::noteCheck()
{
    m_memory.setLastCheckMs(m_clock.nowMs());
}

bool UpdateSchedule::isDue() const
{
    const auto last = m_memory.lastCheckMs();
    const qint64 now = m_clock.nowMs();
    return !last || now < *last || now - *last >= interval.count();
}

} // namespace ostrel
