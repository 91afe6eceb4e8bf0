#include "model/LimitedHold.h"

#include "base/Clock.h"
#include "base/Log.h"

#include <utility>

namespace ostrel {

LimitedHold::LimitedHold(Clock &clock, std::shared_ptr<SystemHold> hold)
    : m_hold(std::move(hold)), m_withdraw(clock.schedule(limit, [this] {
          qCWarning(logScreenCapture, "screen capture has not come to rest in time: the system sleeps before it");
          m_hold.reset();
      }))
{}

LimitedHold::~LimitedHold()
{
    m_withdraw();
}

} // namespace ostrel
