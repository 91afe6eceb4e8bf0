#pragma once

#include "platform/sessionbus/BusCall.h"
#include "platform/sessionbus/BusLoop.h"

#include <QByteArray>

#include <chrono>
#include <memory>
#include <thread>

namespace ostrel {

/// What somebody does with a bus while there is one. Everything happens on the thread of its `BusThread`.
class BusVisitor
{
public:
    virtual ~BusVisitor() = default;

    /// There is a connection, until `leave`. What it subscribes to is told later, from the loop.
    virtual void visit(const BusLine &line, BusLoop &loop) = 0;
    /// The connection is lost or about to be closed; undoes `visit`.
    virtual void leave() = 0;
};

/// Keeps a connection to a bus, on a thread of its own, and looks for a new one when it is lost: after a pause that
/// doubles with each failure, up to a minute. Neither a bus that hangs nor one that is gone holds anybody up, nor does
/// the end of this.
class BusThread
{
public:
    static constexpr std::chrono::milliseconds longestPause{60'000};

    struct Bus {
        QByteArray address;
        const char *name; ///< for the log: "system bus"
        std::chrono::milliseconds firstPause{1000};
    };

    BusThread(Bus bus, std::unique_ptr<BusVisitor> visitor);
    BusThread(const BusThread &) = delete;
    BusThread &operator=(const BusThread &) = delete;
    ~BusThread();

private:
    void run();
    GlibHandle<GDBusConnection> connect();
    void serve(GDBusConnection *connection, BusLoop &loop);

    const Bus m_bus;
    const std::unique_ptr<BusVisitor> m_visitor;
    const GlibHandle<GCancellable> m_stopped;
    bool m_isMissed = false;
    std::thread m_thread; ///< the last, for it uses the others
};

} // namespace ostrel
