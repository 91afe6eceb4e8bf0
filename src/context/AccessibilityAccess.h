#pragma once

namespace ostrel {

/// The user's consent to window, site and page names. May block for a bus round trip (bounded); any one thread at a
/// time.
class AccessibilityAccess
{
public:
    virtual ~AccessibilityAccess() = default;

    virtual bool isTrusted() = 0;
    /// Asks for it where the desktop lets us. @return whether it is granted now
    virtual bool request() = 0;
};

} // namespace ostrel
