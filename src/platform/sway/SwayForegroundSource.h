#pragma once

#include "context/ForegroundSource.h"
#include "platform/sway/SwayTree.h"

#include <QByteArray>

#include <functional>
#include <optional>

namespace ostrel {

/// The focused window as sway tells it over its socket; one question for application and window together. Sway does not
/// tell where the pointer is.
class SwayForegroundSource final : public ForegroundSource
{
public:
    /// Names the application of a window by its app id; the process identifier is filled in here.
    using ApplicationLookup = std::function<ForegroundApplication(const QString &windowClass)>;

    /// @param socketPath as in $SWAYSOCK; empty means that $SWAYSOCK decides, at each question
    SwayForegroundSource(QByteArray socketPath, ApplicationLookup lookup);

    /// Blocks for 250 ms at the most.
    std::optional<ForegroundApplication> frontmostApplication() override;
    /// As it was when `frontmostApplication` was asked; no question of its own.
    std::optional<FocusedWindow> focusedWindow() override;
    std::optional<QPointF> mouseLocation() override { return std::nullopt; }
    QList<UnavailableFact> unavailableFacts() override;

private:
    const QByteArray m_socketPath;
    const ApplicationLookup m_lookup;
    std::optional<SwayFocus> m_focus;
};

} // namespace ostrel
