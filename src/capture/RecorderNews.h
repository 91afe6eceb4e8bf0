#pragma once

#include "base/Mailbox.h"
#include "capture/CaptureSources.h"
#include "capture/ScreenCaptureRecorder.h"

#include <QString>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace ostrel {

/// Brings word to whoever owns a recorder, through the recorder's callbacks: from the event loop, and not any more once
/// the recorder has gone. Main thread.
class RecorderNews : public std::enable_shared_from_this<RecorderNews>
{
public:
    explicit RecorderNews(const ScreenCaptureRecorder &recorder) : m_recorder(&recorder) {}

    /// The recorder goes.
    void end() { m_recorder = nullptr; }

    /// Calls a function from the event loop, if the recorder is still there by then.
    void publish(std::function<void(const ScreenCaptureRecorder &)> call);
    /// Has a callback called, where one is set.
    template <class... Words>
    void tell(std::function<void(Words...)> ScreenCaptureRecorder::*callback, std::decay_t<Words>... words)
    {
        publish([callback, ... words = std::move(words)](const ScreenCaptureRecorder &recorder) {
            if (const auto call = recorder.*callback)
                call(words...);
        });
    }
    /// By `onStreamsDied`, or by `onError` where that is unset.
    void tellThatStreamsDied(const QString &message);

    /// What the sample queue calls to have it told. This object outlives the queue's jobs.
    CaptureSources::StreamsDied streamsDiedOutlet();
    CaptureSources::DisplaysChanged displaysChangedOutlet();

private:
    const ScreenCaptureRecorder *m_recorder;
    Mailbox m_home; ///< brings word from the sample queue
};

} // namespace ostrel
