#include "platform/instance/BusDeadline.h"

#include <condition_variable>
#include <mutex>

namespace ostrel {

BusDeadline::BusDeadline(GCancellable *cancellable, std::chrono::milliseconds patience)
    : m_timer([cancellable, patience](const std::stop_token &stop) {
          std::mutex mutex;
          std::condition_variable_any over;
          std::unique_lock lock(mutex);
          over.wait_for(lock, stop, patience, [] { return false; });
          if (!stop.stop_requested())
              g_cancellable_cancel(cancellable);
      })
{}

} // namespace ostrel
