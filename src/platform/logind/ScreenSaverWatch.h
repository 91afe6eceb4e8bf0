#pragma once

#include "platform/logind/WorkspaceNews.h"
#include "platform/sessionbus/BusSignals.h"
#include "platform/sessionbus/BusThread.h"

#include <memory>

namespace ostrel {

/// Listens to the screen savers on the session bus, which lock it on many desktops. Starts none.
class ScreenSaverWatch final : public BusVisitor
{
public:
    explicit ScreenSaverWatch(TellNews tell) : m_tell(std::move(tell)) {}

    void visit(const BusLine &line, BusLoop &loop) override;
    void leave() override;

private:
    const TellNews m_tell;
    std::unique_ptr<BusSignals> m_signals;
};

} // namespace ostrel
