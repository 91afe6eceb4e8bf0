#include "app/tray/StatusItemController.h"

#include "base/Clock.h"
#include "model/AppModel.h"

#include <utility>

namespace ostrel {

StatusItemController::StatusItemController(AppModel &model, Clock &clock, std::unique_ptr<TrayItem> statusItem,
                                           MakePanel makePanel)
    : m_model(model), m_clock(clock), m_statusItem(std::move(statusItem)), m_makePanel(std::move(makePanel))
{}

StatusItemController::~StatusItemController()
{
    if (m_withdrawForgetting)
        m_withdrawForgetting();
}

void StatusItemController::setUp()
{
    m_statusItem->setRecording(m_model.isRecording());
    m_statusItem->setToolTip(QStringLiteral("Tamsk Ostrel"));
    connect(&m_model, &AppModel::recordingChanged, m_statusItem.get(), &TrayItem::setRecording);
    connect(m_statusItem.get(), &TrayItem::clicked, this, &StatusItemController::handleStatusItemClick);
    connect(m_statusItem.get(), &TrayItem::menuAboutToShow, this, &StatusItemController::closePanel);
    connect(m_statusItem.get(), &TrayItem::quitChosen, this, &StatusItemController::quitFromStatusMenu);
    m_statusItem->show();
}

void StatusItemController::handleStatusItemClick(bool secondary)
{
    const bool isSameClick = std::exchange(m_hasJustBeenLeft, false);
    if (secondary) {
        closePanel();
        m_statusItem->popUpMenu();
    } else if (isPanelShown()) {
        closePanel();
    } else if (!isSameClick) {
        showPanel();
    }
}

void StatusItemController::showPanel()
{
    if (!m_panel)
        makePanel();
    m_panel->showAt(m_statusItem->geometry());
}

void StatusItemController::makePanel()
{
    m_panel = m_makePanel();
    connect(m_panel.get(), &PopoverWindow::escapePressed, this, &StatusItemController::closePanel);
    connect(m_panel.get(), &PopoverWindow::leftByUser, this, &StatusItemController::noteLeaving);
    connect(m_panel.get(), &PopoverWindow::quitPressed, this, &StatusItemController::quitFromStatusMenu);
}

void StatusItemController::noteLeaving()
{
    if (!isPanelShown())
        return;
    closePanel();
    m_hasJustBeenLeft = true;
    if (m_withdrawForgetting)
        m_withdrawForgetting();
    m_withdrawForgetting = m_clock.schedule(sameClick, [this] { m_hasJustBeenLeft = false; });
}

void StatusItemController::closePanel()
{
    if (isPanelShown())
        m_panel->hide();
}

void StatusItemController::quitFromStatusMenu()
{
    m_model.quit();
}

} // namespace ostrel
