#pragma once

#include "base/Error.h"

#include <QList>
#include <QSize>

#include <pipewire/pipewire.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace ostrel {

/// A connection to PipeWire, with the thread that its events come on. Whoever touches anything of PipeWire on another
/// thread holds a `Lock` meanwhile.
class PipeWireRemote
{
public:
    /// @param descriptor of the connection; taken over
    /// @return Fault::PictureStreamEnded, Fault::TimedOut
    static Result<std::shared_ptr<PipeWireRemote>> connect(int descriptor, std::chrono::milliseconds patience);
    PipeWireRemote(const PipeWireRemote &) = delete;
    PipeWireRemote &operator=(const PipeWireRemote &) = delete;
    /// What was made with it has gone by then. Not on its own thread.
    ~PipeWireRemote();

    class Lock
    {
    public:
        explicit Lock(const PipeWireRemote &remote) : m_loop(remote.m_loop) { pw_thread_loop_lock(m_loop); }
        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;
        ~Lock() { pw_thread_loop_unlock(m_loop); }

    private:
        pw_thread_loop *const m_loop;
    };

    pw_core *core() const { return m_core; }
    pw_loop *loop() const { return pw_thread_loop_get_loop(m_loop); }

    /// True for ever after the connection was lost. With a lock held.
    bool isBroken() const { return m_isBroken; }
    /// Lets events be handled until the condition holds. With a lock held, which is given up meanwhile.
    /// @return whether it does; not when the time is over
    bool waitUntil(const std::function<bool()> &isMet, std::chrono::milliseconds atMost) const;
    /// Has everybody look at their conditions again. On the thread of events.
    void wake() const { pw_thread_loop_signal(m_loop, false); }
    /// Returns when everything that was asked before is answered. With a lock held.
    /// @return Fault::PictureStreamEnded, Fault::TimedOut
    Result<> roundTrip(std::chrono::milliseconds patience);

    /// Asks for a sign of life, without waiting for it. With a lock held.
    /// @return the question
    int ask();
    /// Whether an earlier question has been answered. With a lock held.
    bool isAnswered(int question) const;

    /// The size in pixels of what these nodes show; absent for those that don't tell. Waits for a round trip, with no
    /// lock held.
    QList<std::optional<QSize>> pictureSizes(const QList<quint32> &nodes, std::chrono::milliseconds patience);

private:
    PipeWireRemote();
    Result<> open(int descriptor, std::chrono::milliseconds patience);
    void noteDone(uint32_t id, int sequence);
    void noteError(uint32_t id, int result);

    pw_thread_loop *const m_loop;
    pw_context *m_context = nullptr;
    pw_core *m_core = nullptr;
    spa_hook m_listener{};
    bool m_isBroken = false;
    std::optional<int> m_done; ///< the question that was answered last
};

} // namespace ostrel
