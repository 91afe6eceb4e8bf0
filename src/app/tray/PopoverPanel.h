#pragma once

#include "app/tray/PopoverWindow.h"

#include <QQuickView>
#include <functional>

namespace ostrel {

class DialogSheet;
class PopoverModel;

/// The panel under the tray's icon: a window without a frame that stays above the others, on every workspace.
class PopoverPanel final : public PopoverWindow
{
    Q_OBJECT

public:
    /// @param popoverModel what the screens bind to
    /// @param sheet        the alerts that are drawn on it; both outlive the panel
    /// @param isDialogUp   while it answers true, losing the keyboard is nobody's leaving
    PopoverPanel(PopoverModel &popoverModel, DialogSheet &sheet, std::function<bool()> isDialogUp);
    ~PopoverPanel() override;

    bool isShown() const override { return m_view.isVisible(); }
    void showAt(const QRect &icon) override;
    void hide() override { m_view.hide(); }
    QQuickWindow &window() { return m_view; }

private Q_SLOTS:
    void place();

private:
    class View final : public QQuickView
    {
    public:
        std::function<void()> onEscape;

    protected:
        void keyPressEvent(QKeyEvent *event) override;
    };

    void onFocusWindowChanged(const QWindow *focus);

    const std::function<bool()> m_isDialogUp;
    View m_view;
    QRect m_icon; ///< by which it stands
};

} // namespace ostrel
