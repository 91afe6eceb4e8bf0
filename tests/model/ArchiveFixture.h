#pragma once

#include "ObserverRoot.h"
#include "base/Files.h"
#include "base/SerialQueue.h"
#include "model/ModelState.h"
#include "model/NativeModals.h"
#include "model/ObserverControl.h"
#include "support/FakeDialogHost.h"
#include "support/FakeHttpTransport.h"
#include "support/FakeProcessLauncher.h"
#include "support/ManualClock.h"
#include "support/Printers.h"
#include "support/TestHome.h"

#include <gmock/gmock.h>

#include <latch>

namespace ostrel {

inline const QString getStatus = QStringLiteral("GET /api/status");

/// What the archive's areas are built on, with an observer by script and a home of its own. The observer answers that
/// it is there, unless a test says otherwise.
class ArchiveFixture : public testing::Test
{
protected:
    ArchiveFixture()
    {
        m_observer.hooks = {.applyObserverStatus = [this](const ObserverStatus &status) { m_state.setStatus(status); },
                            .stopCapture = [] { ADD_FAILURE() << "capture is nobody's business here"; },
                            .startPolling = [] { ADD_FAILURE() << "nor is the polling"; }};
        m_launcher.allowLaunches();
        m_transport.always(getStatus, complaining({}));
    }

    /// The status of an observer that complains of something.
    static FakeHttpTransport::Answer complaining(const std::optional<QString> &lastError)
    {
        ObserverStatus status;
        status.lastError = lastError;
        return FakeHttpTransport::answer(status.toJson());
    }
    static FakeHttpTransport::Answer refused() { return FakeHttpTransport::answer({}, 409); }
    static QString words(Fault fault) { return faultError(fault).localizedDescription; }

    void settle()
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

    TestHome m_home;
    ObserverRoot m_root;
    SerialQueue m_observerQueue{QStringLiteral("test.observer")};
    std::latch m_disk{1};
    bool m_workerHeld = false;
    SerialQueue m_worker{QStringLiteral("test.worker")};
    ManualClock m_clock{[this] { settle(); }};
    ModelState m_state{ObserverSettings::defaults()};
    FakeProcessLauncher m_launcher;
    FakeHttpTransport m_transport;
    ObserverControl m_observer{{.clock = m_clock,
                                .state = m_state,
                                .launcher = m_launcher,
                                .transport = m_transport,
                                .worker = m_observerQueue,
                                .localAPIToken = QStringLiteral("token"),
                                .repoRoot = m_root.path()}};
    FakeDialogHost m_dialogs;
    NativeModals m_modals{m_clock, m_dialogs};
};

} // namespace ostrel
