#pragma once

#include "context/AccessibilityAccess.h"

#include <memory>
#include <optional>

namespace ostrel {

/// The user's consent as the desktop keeps it: the accessibility switch (`org.a11y.Status.IsEnabled`) on the session
/// bus. Asking for consent turns it on.
///
/// Asked once, and again whenever the bus has told that the switch, or the service that has it, has changed: so asking
/// this object twice a second costs next to nothing. What was told last holds while that service hangs.
///
/// The connection is made at the first call, is this object's own, and is closed with it; one that was lost is made
/// again. What the bus doesn't answer within 250 ms counts as "no", and is asked again. Without a bus everything is
/// "no", at once. One thread at a time.
class AtspiAccess final : public AccessibilityAccess
{
public:
    AtspiAccess();
    AtspiAccess(const AtspiAccess &) = delete;
    AtspiAccess &operator=(const AtspiAccess &) = delete;
    ~AtspiAccess() override;

    bool isTrusted() override;
    bool request() override;

private:
    class Switch;
    std::unique_ptr<Switch> m_switch;
};

} // namespace ostrel
