#pragma once

#include "context/ForegroundSource.h"

#include <functional>
#include <memory>
#include <optional>

namespace ostrel {

/// The active window as programs tell it over the accessibility bus, for desktops where no window system does. It knows
/// programs that show a tree only, and those only while the accessibility switch is on; where more than one window says
/// that it is active, none is believed. Nobody tells positions.
///
/// Each call of `frontmostApplication` is four waits for all programs together; one that hangs holds it up for 250 ms.
class AtspiForegroundSource final : public ForegroundSource
{
public:
    /// Names an application by what its windows would be called; the process identifier is filled in here.
    using ApplicationLookup = std::function<ForegroundApplication(const QString &windowClass)>;

    explicit AtspiForegroundSource(ApplicationLookup lookup);
    ~AtspiForegroundSource() override;

    /// Blocks for 400 ms at the most.
    std::optional<ForegroundApplication> frontmostApplication() override;
    /// As it was when `frontmostApplication` was asked; no question of its own.
    std::optional<FocusedWindow> focusedWindow() override;
    std::optional<QPointF> mouseLocation() override { return std::nullopt; }
    QList<UnavailableFact> unavailableFacts() override;

private:
    class Reader;

    const ApplicationLookup m_lookup;
    const std::unique_ptr<Reader> m_reader;
    std::optional<QString> m_title;
};

} // namespace ostrel
