#include "model/NativeModals.h"

#include "base/Clock.h"

#include <algorithm>
#include <utility>

namespace ostrel {

NativeModals::NativeModals(Clock &clock, DialogHost &dialogs) : m_clock(clock), m_dialogs(dialogs) {}

template <class Dialog, class Answer>
Task<Answer> NativeModals::run(Task<Answer> (DialogHost::*show)(Dialog, DialogPlacement, std::stop_token),
                               Dialog dialog, std::stop_token stop)
{
    beginNativeModal();
    m_dialogs.activateApplication();
    auto answer = co_await (m_dialogs.*show)(std::move(dialog), DialogPlacement::ApplicationModal, std::move(stop));
    endNativeModalAfterDismissal();
    co_return answer;
}

Task<DialogAlertAnswer> NativeModals::runNativeModal(DialogAlert alert, std::stop_token stop)
{
    return run(&DialogHost::showAlert, std::move(alert), std::move(stop));
}

Task<PanelAnswer> NativeModals::runNativeModal(OpenPanel panel, std::stop_token stop)
{
    return run(&DialogHost::showOpenPanel, std::move(panel), std::move(stop));
}

Task<PanelAnswer> NativeModals::runNativeModal(SavePanel panel, std::stop_token stop)
{
    return run(&DialogHost::showSavePanel, std::move(panel), std::move(stop));
}

Task<DialogAlertAnswer> NativeModals::presentAlert(DialogAlert alert, int fallbackResponse, std::stop_token stop)
{
    beginNativeModal();
    DialogAlertAnswer answer{.response = fallbackResponse, .fields = {}};
    if (m_dialogs.hasPresentationWindow())
        answer = co_await m_dialogs.showAlert(std::move(alert), DialogPlacement::Sheet, std::move(stop));
    endNativeModalAfterDismissal();
    co_return answer;
}

Task<PanelAnswer> NativeModals::presentOpenPanel(OpenPanel panel, std::stop_token stop)
{
    beginNativeModal();
    const auto placement =
        m_dialogs.hasPresentationWindow() ? DialogPlacement::Sheet : DialogPlacement::ApplicationModal;
    auto answer = co_await m_dialogs.showOpenPanel(std::move(panel), placement, std::move(stop));
    endNativeModalAfterDismissal();
    co_return answer;
}

void NativeModals::beginNativeModal()
{
    ++m_nativeModalDepth;
    ++m_nativeModalDismissalGeneration;
    if (!std::exchange(m_nativeModalActive, true))
        Q_EMIT nativeModalActiveChanged();
}

void NativeModals::endNativeModalAfterDismissal()
{
    m_nativeModalDepth = std::max(m_nativeModalDepth - 1, 0);
    m_dialogs.refocusPopoverWindow();
    m_tasks.spawn([this, generation = m_nativeModalDismissalGeneration](std::stop_token stop) {
        return endGrace(generation, std::move(stop));
    });
}

/// A dialog that was opened meanwhile has a grace of its own.
Task<> NativeModals::endGrace(qint64 generation, std::stop_token stop)
{
    if (!co_await m_clock.sleepFor(std::chrono::milliseconds(dismissalGraceMs), std::move(stop)))
        co_return;
    if (m_nativeModalDepth > 0 || generation != m_nativeModalDismissalGeneration || !m_nativeModalActive)
        co_return;
    m_dialogs.refocusPopoverWindow();
    m_nativeModalActive = false;
    Q_EMIT nativeModalActiveChanged();
}

} // namespace ostrel
