#pragma once

#include "app/tray/PanelDesktop.h"
#include "app/tray/PopoverWindow.h"

#include <QQuickView>
#include <functional>
#include <memory>

namespace ostrel {

class DialogSheet;
class PopoverModel;

/// The panel under the tray's icon: a window without a frame that stays above the others. Where windows can be seen
/// through, its corners are round and it throws a shadow; elsewhere it is cut out, and has none. Main thread.
class PopoverPanel final : public PopoverWindow
{
    Q_OBJECT

public:
    /// @param popoverModel what the screens bind to
    /// @param sheet        the alerts that are drawn on it
    /// @param desktop      all three outlive the panel
    /// @param isDialogUp   while it answers true, going elsewhere is nobody's leaving
    PopoverPanel(PopoverModel &popoverModel, DialogSheet &sheet, PanelDesktop &desktop,
                 std::function<bool()> isDialogUp);
    ~PopoverPanel() override;

    bool isShown() const override { return m_view.isVisible(); }
    void showAt(const QRect &icon) override;
    void hide() override { m_view.hide(); }
    QQuickWindow &window() { return m_view; }
    /// Where its paper lies on the desktop, without the shadow.
    QRect paper() const;

private Q_SLOTS:
    void place();

private:
    class View final : public QQuickView
    {
    public:
        std::function<void()> onEscape;
        std::function<void()> onQuit;

    protected:
        void keyPressEvent(QKeyEvent *event) override;
    };

    void load(PopoverModel &popoverModel, DialogSheet &sheet);
    void shape();
    void onVisibleChanged(bool isVisible);
    void onFocusWindowChanged(const QWindow *focus);
    void onPressed();
    bool isOurs(QPoint position) const;

    PanelDesktop &m_desktop;
    const std::function<bool()> m_isDialogUp;
    View m_view;
    QRect m_icon;                                                      ///< by which it stands
    int m_shadow = 0;                                                  ///< logical pixels on each side
    bool m_hasFocus = false;                                           ///< the keyboard, or a window of its own has it
    std::unique_ptr<PanelDesktop::ClickMonitor> m_outsideClickMonitor; ///< while it is shown
};

} // namespace ostrel
