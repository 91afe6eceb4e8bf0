#pragma once

#include "app/popover/DialogSheet.h"
#include "model/DialogHost.h"

#include <QPointer>
#include <QQuickWindow>

class QFileDialog;

namespace ostrel {

/// The model's dialogs on a desktop: alerts are sheets on the panel, choosers are those of the desktop where it offers
/// them to programs, else the toolkit's. Main thread.
class PanelDialogs final : public DialogHost
{
public:
    /// The sheet that the panel's screens draw; one at a time, the others wait behind it.
    DialogSheet &sheet() { return m_sheet; }
    /// @param panel none as long as it has not been made
    /// @param show  brings it to the front, making it where needed
    void setPanel(std::function<QQuickWindow *()> panel, std::function<void()> show);

    bool hasPresentationWindow() const override;
    void activateApplication() override;
    void refocusPopoverWindow() override;

    Task<DialogAlertAnswer> showAlert(DialogAlert alert, DialogPlacement placement, std::stop_token stop) override;
    Task<PanelAnswer> showOpenPanel(OpenPanel panel, DialogPlacement placement, std::stop_token stop) override;
    Task<PanelAnswer> showSavePanel(SavePanel panel, DialogPlacement placement, std::stop_token stop) override;

    void setPasteboard(const QString &text, PasteboardText kind) override;
    void openFolder(const QString &path) override;

private:
    QQuickWindow *panelWindow() const { return m_panel ? m_panel() : nullptr; }
    Task<PanelAnswer> choose(std::shared_ptr<QFileDialog> dialog, DialogPlacement placement, std::stop_token stop);

    DialogSheet m_sheet;
    std::function<QQuickWindow *()> m_panel;
    std::function<void()> m_show;
};

} // namespace ostrel
