#pragma once

#include <QString>

#include <chrono>

namespace ostrel {

/// Ends the process when it has not come to its end in time after the system or the session has asked for it, even
/// when the main thread hangs, as with a display server that does not answer: the system waits for 5 s. Have one object
/// a program, and everything that may hang go before it does, the toolkit included.
class EndingLimit
{
public:
    static constexpr std::chrono::milliseconds limit{4'500};

    explicit EndingLimit(std::chrono::milliseconds time = limit);
    EndingLimit(const EndingLimit &) = delete;
    EndingLimit &operator=(const EndingLimit &) = delete;
    /// There is no limit any more.
    ~EndingLimit();

    /// The time begins to run, where there is such an object; once. May be called by a signal's handler.
    static void begin() noexcept;
    /// What the process becomes instead of ending when the time is over; empty for nothing. There has to be an object.
    static void setSuccessor(const QString &program);
    /// While it lives, what is being done takes the time it takes; then the whole time begins anew, where it ran.
    class Lifted
    {
    public:
        Lifted() noexcept;
        Lifted(const Lifted &) = delete;
        Lifted &operator=(const Lifted &) = delete;
        ~Lifted();

    private:
        bool m_wasRunning;
    };
};

} // namespace ostrel
