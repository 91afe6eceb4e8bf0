#pragma once

namespace ostrel {

/// Whether the session lets us see its screens. May block for a round trip. A check may come while a request waits, on
/// another thread; otherwise one call at a time.
class ScreenCaptureAccess
{
public:
    virtual ~ScreenCaptureAccess() = default;

    /// Checks without ever showing a prompt.
    virtual bool preflight() = 0;
    /// Asks for it, where asking means something; that may wait for the user. @return whether it is granted now
    virtual bool request() = 0;
};

} // namespace ostrel
