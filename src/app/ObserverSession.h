#pragma once

#include "app/FoundObserver.h"
#include "app/Platform.h"
#include "app/RecorderLock.h"
#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "model/ModelState.h"
#include "model/ObserverControl.h"
#include "observer/RequestPreview.h"

#include <expected>
#include <memory>
#include <optional>

namespace ostrel {

class HttpTransport;
class ProcessLauncher;

/// Questions of one command to the observer that runs already, or else to one of its own that ends with it. That one
/// analyses nothing and asks no model, so that nothing leaves the machine before the question is answered. Main thread,
/// outside of an event loop.
class ObserverSession
{
public:
    /// Finds the observer. Where none runs, the first question starts one; until the session ends no recording can
    /// begin, whose observer would end with it.
    /// @return why there can be none, in words for the user
    static std::expected<std::unique_ptr<ObserverSession>, QString> open(const Platform &platform);

    ObserverSession(const ObserverSession &) = delete;
    ObserverSession &operator=(const ObserverSession &) = delete;
    ~ObserverSession();

    /// As the operations of LocalObserverAPI; a refusal has the observer's words where it tells them in its status.
    Result<RequestPreview> preview(bool withPictures);
    Result<ForgetReport> forget(qint64 fromMs, qint64 toMs);

private:
    ObserverSession(const Platform &platform, FoundObserver found);
    template <class Answer, class Ask>
    Result<Answer> answerTo(Ask ask);

    std::optional<RecorderLock> m_lock;
    const std::unique_ptr<ProcessLauncher> m_launcher;
    SystemClock m_clock;
    std::unique_ptr<HttpTransport> m_transport;
    SerialQueue m_worker;
    ModelState m_state;
    ObserverControl m_observer;
};

} // namespace ostrel
