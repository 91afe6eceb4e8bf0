#pragma once

#include <array>
#include <cstddef>

namespace ostrel {

/// Whether the session is locked, by all who may say so. A plain value.
class LockState
{
public:
    /// Who knows.
    enum class Voice { Session, ScreenSaver, GnomeScreenSaver };

    void say(Voice voice, bool isLocked);
    /// Somebody has asked the desktop to lock the session. It counts as locked from now on: whoever does it needs a
    /// moment, and not every locker tells. The end of a lock that was told ends the request too.
    void request() { m_isRequested = true; }
    void withdrawRequest() { m_isRequested = false; }

    bool isLocked() const { return m_isRequested || isConfirmed(); }
    /// A request that nobody has answered: on desktops without a locker nobody ever does.
    bool isOpenRequest() const { return m_isRequested && !isConfirmed(); }

private:
    bool isConfirmed() const;

    std::array<bool, 3> m_voices{}; ///< by `Voice`
    bool m_isRequested = false;
};

} // namespace ostrel
