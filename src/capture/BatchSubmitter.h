#pragma once

#include "base/AsyncLock.h"
#include "base/Task.h"
#include "capture/FrameGate.h"
#include "observer/LocalObserverAPI.h"
#include "observer/WireRecords.h"

#include <QString>
#include <functional>
#include <memory>
#include <stop_token>

namespace ostrel {

class CaptureSources;
class SerialQueue;

/// Posts what the gate has buffered to the observer, one batch at a time. Main thread.
///
/// A batch that fails ends the recording that it belongs to: the error is published, the observer is asked to stop,
/// and whatever is flushed later in that recording is ignored.
class BatchSubmitter
{
public:
    struct Outlets {
        std::function<void(ObserverStatus)> publishStatus;
        std::function<void(QString)> publishError;
    };

    /// The queue outlives this object.
    BatchSubmitter(SerialQueue &sampleQueue, Outlets outlets);

    /// Opens a recording: from here on, what `sources` buffer goes to `api`.
    void open(std::shared_ptr<CaptureSources> sources, std::shared_ptr<LocalObserverAPI> api);
    /// Closes it. Await `settled` first.
    void close() { m_api.reset(); }

    /// Takes everything that is buffered, posts it in one call and waits for the answer; a flush under way is waited
    /// for first. Without a recording, or with nothing buffered, no call is made.
    /// @param stop aborts even a batch on its way, so pass a token of your own lifetime and not that of a timer
    /// @param patience ends the wait for the sample queue: what is buffered is then taken over its head
    /// @return false when this flush ended the recording
    Task<bool> flush(std::stop_token stop, std::stop_token patience);
    /// Those that were taken from the buffer and not answered for yet.
    qint64 framesOnTheirWay() const { return m_framesOnTheirWay; }
    /// Waits until no batch is on its way.
    Task<> settled(std::stop_token stop);

private:
    Task<FrameGate::Batch> take(std::stop_token patience);
    Task<bool> submit(std::shared_ptr<LocalObserverAPI> api, QList<CapturedFramePayload> frames, std::stop_token stop);

    SerialQueue &m_sampleQueue;
    const Outlets m_outlets;
    AsyncLock m_turn;
    std::shared_ptr<CaptureSources> m_sources;
    std::shared_ptr<LocalObserverAPI> m_api;
    qint64 m_framesOnTheirWay = 0;
};

} // namespace ostrel
