#pragma once

#include "ObserverRoot.h"
#include "base/Files.h"
#include "base/SerialQueue.h"
#include "model/ModelState.h"
#include "model/ObserverControl.h"
#include "support/FakeHttpTransport.h"
#include "support/FakeProcessLauncher.h"
#include "support/ManualClock.h"
#include "support/Printers.h"
#include "support/TestHome.h"

#include <gmock/gmock.h>

namespace ostrel {

inline const QString getStatus = QStringLiteral("GET /api/status");

/// What an area of the model is built on, with an observer by script and a home of its own. The observer answers that
/// it is there, unless a test says otherwise.
class ObserverFixture : public testing::Test
{
protected:
    ObserverFixture() { m_transport.always(getStatus, complaining({})); }

    /// The status of an observer that complains of something.
    static FakeHttpTransport::Answer complaining(const std::optional<QString> &lastError)
    {
        ObserverStatus status;
        status.lastError = lastError;
        return FakeHttpTransport::answer(status.toJson());
    }
    static QString words(Fault fault) { return faultError(fault).localizedDescription; }

    /// Until everything that is under way has come to rest.
    virtual void settle() { settleEvents({&m_observerQueue}); }

    TestHome m_home;
    ObserverRoot m_root;
    SerialQueue m_observerQueue{QStringLiteral("test.observer")};
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
};

} // namespace ostrel
