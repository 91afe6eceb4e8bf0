#pragma once

#include "app/popover/AppearanceSource.h"
#include "platform/sessionbus/BusSignals.h"
#include "platform/sessionbus/BusThread.h"

#include <functional>
#include <memory>

namespace ostrel {

/// Reads the desktop portal's settings and follows them. All on the thread of a `BusThread`.
class PortalSettings final : public BusVisitor
{
public:
    /// @param tell called on that thread with every change, and once for each portal that answers
    explicit PortalSettings(std::function<void(const AppearanceWishes &)> tell);

    void visit(const BusLine &line, BusLoop &loop) override;
    /// What was wished for last holds on: a portal that ends takes nobody's wishes back.
    void leave() override;

private:
    void readAll();
    void take(const char *name, const char *key, GVariant *value);

    const std::function<void(const AppearanceWishes &)> m_tell;
    AppearanceWishes m_wishes;
    BusLine m_line; ///< of this visit
    std::unique_ptr<BusSignals> m_signals;
};

} // namespace ostrel
