#pragma once

#include "capture/WorkspaceEvents.h"
#include "platform/sessionbus/BusCall.h"

#include <memory>

namespace ostrel {

/// logind's promise to wait for us before it sends the machine to sleep or shuts it down: a descriptor, good for one
/// such event, and over when it is closed.
class SleepInhibitor
{
public:
    /// Blocks. What was held before is given back.
    /// @return whether it is held now; the error says why not
    bool take(const BusLine &line, GlibHandle<GError> &error);
    bool isHeld() const { return m_hold != nullptr; }
    /// Gives it to whoever is to be waited for; one that holds nothing up where nothing is held.
    std::shared_ptr<SystemHold> handOver();
    void giveBack() { m_hold.reset(); }

private:
    std::shared_ptr<SystemHold> m_hold;
};

} // namespace ostrel
