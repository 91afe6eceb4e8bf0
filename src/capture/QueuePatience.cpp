#include "capture/QueuePatience.h"

#include "base/Clock.h"

namespace ostrel {

QueuePatience::QueuePatience(Clock &clock, Limits limits, Outlets outlets)
    : m_clock(clock), m_limits(limits), m_outlets(std::move(outlets))
{}

QueuePatience::~QueuePatience()
{
    endWait();
}

void QueuePatience::setHurried(bool isHurried)
{
    m_isHurried = isHurried;
    if (isHurried)
        limit();
    else
        withdraw(m_withdrawLimit);
}

void QueuePatience::beginWait(SerialQueue *queue)
{
    m_awaited = queue;
    m_withdrawLongWait = m_clock.schedule(m_limits.longWait, [this] { noteLongWait(); });
    limit();
}

void QueuePatience::endWait()
{
    m_awaited = nullptr;
    m_waitsLong = false;
    withdraw(m_withdrawLimit);
    withdraw(m_withdrawLongWait);
}

void QueuePatience::withdraw(Withdraw &timer)
{
    if (const auto withdraw = std::exchange(timer, nullptr))
        withdraw();
}

void QueuePatience::limit()
{
    if (m_awaited != nullptr && m_isHurried && !m_withdrawLimit)
        m_withdrawLimit = m_clock.schedule(m_limits.hurriedWait, [this] { lose(); });
}

void QueuePatience::noteLongWait()
{
    m_withdrawLongWait = nullptr;
    m_waitsLong = true;
    m_outlets.isLong();
}

void QueuePatience::lose()
{
    m_withdrawLimit = nullptr;
    m_hung = m_awaited;
    m_answersAgain = std::make_shared<std::atomic<bool>>(false);
    m_hung->post([answers = m_answersAgain] { *answers = true; });
    m_outlets.lost();
    // Last: who is resumed may let go of this object.
    std::exchange(m_waits, {}).request_stop();
}

} // namespace ostrel
