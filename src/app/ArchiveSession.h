#pragma once

#include "app/FoundObserver.h"
#include "app/Platform.h"
#include "app/RecorderLock.h"
#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "model/ArchiveArea.h"
#include "model/ArchiveTargetArea.h"
#include "model/ExportArea.h"
#include "model/ModelState.h"
#include "model/NativeModals.h"
#include "model/ObserverControl.h"

#include <QEventLoop>

#include <expected>
#include <functional>
#include <memory>
#include <optional>

namespace ostrel {

class HttpTransport;

/// The archive's part of the model for one command, over the observer that runs already, or else over one of its own
/// that ends with it. Main thread, outside of an event loop.
class ArchiveSession
{
public:
    using Opened = std::expected<std::unique_ptr<ArchiveSession>, QString>;

    /// Finds the observer. Where none runs, the first request starts one; until the session ends no recording can
    /// begin, whose observer would end with it.
    /// @return why there can be none, in words for the user
    static Opened open(const Platform &platform);
    /// Finds the observer that runs, and changes nothing: where none runs there is no session.
    static Opened openToRead(const Platform &platform);

    ArchiveSession(const ArchiveSession &) = delete;
    ArchiveSession &operator=(const ArchiveSession &) = delete;
    ~ArchiveSession();

    Clock &clock() { return m_clock; }
    const ModelState &state() const { return m_state; }
    ArchiveArea &archive() { return m_archive; }
    ArchiveTargetArea &target() { return m_target; }
    ExportArea &exporting() { return m_export; }

    /// Asks what there is, and waits for the answer.
    Result<ArchiveStatus> fetchArchiveStatus();
    Result<ArchiveExportStatus> fetchExportStatus();
    /// None where the observer lets nobody choose.
    Result<std::optional<ArchiveTarget>> fetchArchiveTarget();
    Result<ArchiveTarget> storeArchiveTarget(const ArchiveTarget &target);
    /// Begins an operation of the archive and waits until it is done.
    /// @return the error's words, where it ended with one
    std::optional<QString> perform(const std::function<void(ArchiveArea &archive)> &begin);

private:
    ArchiveSession(const Platform &platform, FoundObserver found);

    std::optional<RecorderLock> m_lock;
    SystemClock m_clock;
    std::unique_ptr<HttpTransport> m_transport;
    SerialQueue m_observerQueue;
    SerialQueue m_worker;
    ModelState m_state;
    ObserverControl m_observer;
    NativeModals m_modals;
    ArchiveArea m_archive;
    ArchiveTargetArea m_target;
    ExportArea m_export;
};

/// Runs the event loop until something holds, looking again after each time that the signal was sent.
template <class Sender, class Signal>
void runUntil(const Sender &sender, Signal signal, const std::function<bool()> &holds)
{
    QEventLoop loop;
    const auto look = [&] {
        if (holds())
            loop.quit();
    };
    // Queued, so that whoever sends it has come to rest.
    QObject::connect(&sender, signal, &loop, look, Qt::QueuedConnection);
    if (!holds())
        loop.exec();
}

} // namespace ostrel
