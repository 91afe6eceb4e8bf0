#pragma once

#include "capture/WorkspaceEvents.h"
#include "platform/logind/LockState.h"

#include <functional>
#include <memory>
#include <variant>

namespace ostrel {

/// What the threads that watch the buses tell the main thread.
namespace News {

struct WillSleep {
    std::shared_ptr<SystemHold> hold;
};
struct DidWake {};
struct WillShutDown {
    std::shared_ptr<SystemHold> hold;
};
struct LockRequest {
    bool isLock = true; ///< or its withdrawal
};
struct Lock {
    LockState::Voice voice;
    bool isLocked = false;
};

} // namespace News

using WorkspaceNews = std::variant<News::WillSleep, News::DidWake, News::WillShutDown, News::LockRequest, News::Lock>;
/// Called on the threads that watch.
using TellNews = std::function<void(WorkspaceNews)>;

} // namespace ostrel
