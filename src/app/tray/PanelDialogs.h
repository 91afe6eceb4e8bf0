#pragma once

#include "app/popover/DialogSheet.h"
#include "model/DialogHost.h"

#include <QQuickWindow>
#include <functional>
#include <memory>
#include <stop_token>

class QFileDialog;

namespace ostrel {

/// The model's dialogs on a desktop: alerts are sheets on the panel, choosers are those of the desktop where it offers
/// them to programs, else the toolkit's. Main thread.
class PanelDialogs final : public DialogHost
{
public:
    /// The sheet that the panel's screens draw; one at a time, the others wait behind it.
    DialogSheet &sheet() { return m_sheet; }
    /// @param panel null as long as it has not been made; otherwise it outlives its use here
    void setPanel(QQuickWindow *panel) { m_panel = panel; }
    /// @param open brings the panel to the front, making it where needed
    void setPanelOpener(std::function<void()> open) { m_openPanel = std::move(open); }

    bool hasPresentationWindow() const override;
    void activateApplication() override;
    void refocusPopoverWindow() override;

    Task<DialogAlertAnswer> showAlert(DialogAlert alert, DialogPlacement placement, std::stop_token stop) override;
    Task<PanelAnswer> showOpenPanel(OpenPanel panel, DialogPlacement placement, std::stop_token stop) override;
    Task<PanelAnswer> showSavePanel(SavePanel panel, DialogPlacement placement, std::stop_token stop) override;

    void setPasteboard(const QString &text, PasteboardText kind) override;
    void openFolder(const QString &path) override;

private:
    Task<PanelAnswer> choose(std::shared_ptr<QFileDialog> dialog, DialogPlacement placement, std::stop_token stop);

    DialogSheet m_sheet;
    QQuickWindow *m_panel = nullptr;
    std::function<void()> m_openPanel;
};

} // namespace ostrel
