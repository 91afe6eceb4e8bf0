#pragma once

#include "ObserverFixture.h"
#include "model/NativeModals.h"
#include "support/FakeDialogHost.h"

#include <latch>

namespace ostrel {

/// What the archive's areas are built on.
class ArchiveFixture : public ObserverFixture
{
protected:
    ArchiveFixture()
    {
        m_observer.hooks = {.applyObserverStatus = [this](const ObserverStatus &status) { m_state.setStatus(status); },
                            .stopCapture = [] { ADD_FAILURE() << "capture is nobody's business here"; },
                            .startPolling = [] { ADD_FAILURE() << "nor is the polling"; }};
        m_launcher.allowLaunches();
    }

    static FakeHttpTransport::Answer refused() { return FakeHttpTransport::answer({}, 409); }

    void settle() override
    {
        if (m_workerHeld)
            settleEvents({&m_observerQueue});
        else
            settleEvents({&m_worker, &m_observerQueue});
    }
    void advance(std::chrono::milliseconds duration)
    {
        m_clock.advance(duration);
        settle();
    }
    /// From now on the disk hangs until `releaseDisk`.
    void holdDisk()
    {
        m_workerHeld = true;
        m_worker.post([this] { m_disk.wait(); });
    }
    void releaseDisk()
    {
        m_disk.count_down();
        m_workerHeld = false;
        settle();
    }
    /// Whether the main thread still does what it is given.
    static bool handlesEvents()
    {
        bool handled = false;
        QMetaObject::invokeMethod(qApp, [&handled] { handled = true; }, Qt::QueuedConnection);
        settleEvents();
        return handled;
    }
    /// What was sent to the observer, less the waiting for it.
    QStringList requests() const
    {
        QStringList requests = m_transport.endpoints();
        requests.removeAll(getStatus);
        return requests;
    }
    QByteArray lastBody() const { return m_transport.requests().constLast().body.value_or("none"); }

    std::latch m_disk{1};
    bool m_workerHeld = false;
    SerialQueue m_worker{QStringLiteral("test.worker")};
    FakeDialogHost m_dialogs;
    NativeModals m_modals{m_clock, m_dialogs};
};

} // namespace ostrel
