#pragma once

#include "base/Task.h"
#include "base/TaskScope.h"
#include "model/DialogHost.h"

#include <QObject>
#include <stop_token>

namespace ostrel {

class Clock;

/// The dialogs of the model, and the memory of them that keeps the popover open: a dialog takes the keyboard from the
/// popover and gives it back, and neither is a click outside of it. Dialogs nest. Main thread, which is never blocked.
class NativeModals : public QObject
{
    Q_OBJECT

public:
    /// For so long after the last dialog has closed the popover does not take a change of focus for a click outside.
    static constexpr int dismissalGraceMs = 1000;

    /// Both outlive this object.
    NativeModals(Clock &clock, DialogHost &dialogs);

    /// While a dialog is up, and until the grace after the last one is over.
    bool nativeModalActive() const { return m_nativeModalActive; }
    /// How many dialogs are open; never below 0.
    int nativeModalDepth() const { return m_nativeModalDepth; }

    /// A dialog that stands on its own. Stopped, it is taken away and answers DialogResponse::cancel.
    Task<DialogAlertAnswer> runNativeModal(DialogAlert alert, std::stop_token stop);
    Task<PanelAnswer> runNativeModal(OpenPanel panel, std::stop_token stop);
    Task<PanelAnswer> runNativeModal(SavePanel panel, std::stop_token stop);

    /// An alert on the presentation window. Where there is none it is not shown, and the answer is `fallbackResponse`.
    Task<DialogAlertAnswer> presentAlert(DialogAlert alert, int fallbackResponse, std::stop_token stop);
    /// A panel on the presentation window, or on its own where there is none.
    Task<PanelAnswer> presentOpenPanel(OpenPanel panel, std::stop_token stop);

    /// Called by itself once a dialog; a second call for the same one does no harm.
    void endNativeModalAfterDismissal();

Q_SIGNALS:
    void nativeModalActiveChanged();

private:
    template <class Dialog, class Answer>
    Task<Answer> run(Task<Answer> (DialogHost::*show)(Dialog, DialogPlacement, std::stop_token), Dialog dialog,
                     std::stop_token stop);
    void beginNativeModal();
    Task<> endGrace(qint64 generation, std::stop_token stop);

    Clock &m_clock;
    DialogHost &m_dialogs;
    bool m_nativeModalActive = false;
    int m_nativeModalDepth = 0;
    qint64 m_nativeModalDismissalGeneration = 0; ///< counts the dialogs that were opened
    TaskScope m_tasks;
};

} // namespace ostrel
