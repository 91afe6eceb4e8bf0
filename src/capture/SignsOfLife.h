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
    /// A picture came.
    void notePicture()
    {
        m_hasPicture.store(true, std::memory_order_relaxed);
        note();
    }
    /// It was looked whether there ever was a picture, and nothing was known that would keep one from coming.
    void lookForPicture()
    {
        if (!m_hasPicture.load(std::memory_order_relaxed))
            m_looksWithoutPicture.fetch_add(1, std::memory_order_relaxed);
    }
    /// No more are to be expected: its capture has ended, which is told by other means.
    void end() { m_hasEnded.store(true, std::memory_order_relaxed); }

    /// Differs from an earlier answer when there were signs in between.
    quint32 count() const { return m_count.load(std::memory_order_relaxed); }
    bool hasEnded() const { return m_hasEnded.load(std::memory_order_relaxed); }
    /// How often it was looked for a first picture in vain; 0 from the first picture on.
    quint32 looksWithoutPicture() const
    {
        return m_hasPicture.load(std::memory_order_relaxed) ? 0 : m_looksWithoutPicture.load(std::memory_order_relaxed);
    }

private:
    std::atomic<quint32> m_count = 0;
    std::atomic<bool> m_hasEnded = false;
    std::atomic<bool> m_hasPicture = false;
    std::atomic<quint32> m_looksWithoutPicture = 0;
};

} // namespace ostrel
