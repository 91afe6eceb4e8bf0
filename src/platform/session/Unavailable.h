#pragma once

#include "capture/DisplaySource.h"
#include "capture/ScreenCaptureAccess.h"
#include "context/ForegroundSource.h"

#include <QString>

namespace ostrel {

/// What stands in where a session offers nothing: it claims no capability and says why.

class UnavailableDisplaySource final : public DisplaySource
{
public:
    /// @param reason a sentence that also says what to do about it
    explicit UnavailableDisplaySource(QString reason) : m_reason(std::move(reason)) {}

    CaptureMode captureMode() const override { return CaptureMode::Screenshots; }
    Result<ShareableContent> shareableContent() override;
    Result<std::unique_ptr<DisplayScreenshotter>>
    makeScreenshotter(const DisplayContentFilter &filter, const DisplayCaptureConfiguration &configuration) override;

private:
    Error unavailable() const;

    const QString m_reason;
};

class UnavailableScreenCapture final : public ScreenCaptureAccess
{
public:
    bool preflight() override { return false; }
    bool request() override { return false; }
};

class UnavailableForeground final : public ForegroundSource
{
public:
    /// @param reason what goes on after "because"
    explicit UnavailableForeground(QString reason) : m_reason(std::move(reason)) {}

    std::optional<ForegroundApplication> frontmostApplication() override { return std::nullopt; }
    std::optional<FocusedWindow> focusedWindow() override { return std::nullopt; }
    std::optional<QPointF> mouseLocation() override { return std::nullopt; }
    QList<UnavailableFact> unavailableFacts() override;

private:
    const QString m_reason;
};

} // namespace ostrel
