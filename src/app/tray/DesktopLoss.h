#pragma once

#include <functional>

namespace ostrel {

/// Notices that the window system has gone while something can still be done about it: the toolkit says so in a
/// message, and ends the process as soon as that is said. Have one object at a time; main thread.
class DesktopLoss
{
public:
    /// @param isLost whether it has gone; asked at each warning that bears no category, of the main thread
    /// @param end    called once, from within a message; when it returns, the toolkit ends the process
    DesktopLoss(std::function<bool()> isLost, std::function<void()> end);
    DesktopLoss(const DesktopLoss &) = delete;
    DesktopLoss &operator=(const DesktopLoss &) = delete;
    ~DesktopLoss();

    /// The toolkit has said something.
    void look();

private:
    const std::function<bool()> m_isLost;
    const std::function<void()> m_end;
    bool m_isTold = false;
};

} // namespace ostrel
