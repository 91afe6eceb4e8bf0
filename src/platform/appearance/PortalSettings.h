#pragma once

#include "app/popover/AppearanceSource.h"
#include "platform/sessionbus/BusSignals.h"
#include "platform/sessionbus/BusThread.h"

#include <functional>
#include <memory>
#include <optional>

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
    AppearanceWishes wishes() const;

    const std::function<void(const AppearanceWishes &)> m_tell;
    AppearanceWishes m_wishes;                ///< but for the motion, of which two settings speak
    std::optional<bool> m_wantsReducedMotion; ///< as all desktops may say it
    std::optional<bool> m_animates;           ///< as GNOME says it
    BusLine m_line;                           ///< of this visit
    std::unique_ptr<BusSignals> m_signals;
};

} // namespace ostrel
