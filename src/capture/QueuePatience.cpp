#include "capture/QueuePatience.h"

#include "base/Clock.h"

namespace ostrel {

QueuePatience::QueuePatience(Clock &clock, std::chrono::milliseconds limit, std::function<void()> onLost)
    : m_clock(clock), m_limit(limit), m_onLost(std::move(onLost))
{}

QueuePatience::~QueuePatience()
{
    withdrawLimit();
}

void QueuePatience::setHurried(bool isHurried)
{
    m_isHurried = isHurried;
    if (isHurried)
        limit();
    else
        withdrawLimit();
}

void QueuePatience::beginWait(SerialQueue *queue)
{
    m_awaited = queue;
    limit();
}

void QueuePatience::endWait()
{
    m_awaited = nullptr;
    withdrawLimit();
}

void QueuePatience::withdrawLimit()
{
    if (const auto withdraw = std::exchange(m_withdrawLimit, nullptr))
        withdraw();
}

void QueuePatience::limit()
{
    if (m_awaited != nullptr && m_isHurried && !m_withdrawLimit)
        m_withdrawLimit = m_clock.schedule(m_limit, [this] { lose(); });
}

void QueuePatience::lose()
{
    m_withdrawLimit = nullptr;
    m_hung = m_awaited;
    m_answersAgain = std::make_shared<std::atomic<bool>>(false);
    m_hung->post([answers = m_answersAgain] { *answers = true; });
    m_onLost();
    // Last: who is resumed may let go of this object.
    std::exchange(m_waits, {}).request_stop();
}

} // namespace ostrel
