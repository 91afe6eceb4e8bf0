#pragma once

#include <QtGlobal>

#include <atomic>

namespace ostrel {

/// Whether capture of one display goes on, as somebody sees who watches from outside. Any thread: the one that captures
/// may be what hangs.
class SignsOfLife
{
public:
    /// Something was done for the display: a frame came, it was asked whether there is anything new to see, or was left
    /// alone on purpose.
    void note() { m_count.fetch_add(1, std::memory_order_relaxed); }
    /// No more are to be expected: its capture has ended, which is told by other means.
    void end() { m_hasEnded.store(true, std::memory_order_relaxed); }

    /// Differs from an earlier answer when there were signs in between.
    quint32 count() const { return m_count.load(std::memory_order_relaxed); }
    bool hasEnded() const { return m_hasEnded.load(std::memory_order_relaxed); }

private:
    std::atomic<quint32> m_count = 0;
    std::atomic<bool> m_hasEnded = false;
};

} // namespace ostrel
