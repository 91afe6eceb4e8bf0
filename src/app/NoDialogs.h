#pragma once

#include "model/DialogHost.h"

namespace ostrel {

/// For commands, which have no window: nobody is asked and nothing is shown. Alerts on the presentation window are
/// answered by their fallback before they come here; every other dialog is left without a choice.
class NoDialogs final : public DialogHost
{
public:
    bool hasPresentationWindow() const override { return false; }
    void activateApplication() override {}
    void refocusPopoverWindow() override {}

    Task<DialogAlertAnswer> showAlert(DialogAlert alert, DialogPlacement placement, std::stop_token stop) override;
    Task<PanelAnswer> showOpenPanel(OpenPanel panel, DialogPlacement placement, std::stop_token stop) override;
    Task<PanelAnswer> showSavePanel(SavePanel panel, DialogPlacement placement, std::stop_token stop) override;

    void setPasteboard(const QString &, PasteboardText) override {}
    void openFolder(const QString &) override {}
};

} // namespace ostrel
