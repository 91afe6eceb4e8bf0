#include "app/tray/QuitRequests.h"

#include <QCoreApplication>
#include <QEvent>

#include <utility>

namespace ostrel {

QuitRequests::QuitRequests(std::function<bool()> grant) : m_grant(std::move(grant))
{
    QCoreApplication::instance()->installEventFilter(this);
}

bool QuitRequests::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != QCoreApplication::instance() || event->type() != QEvent::Quit || m_grant())
        return false;
    event->ignore();
    return true;
}

} // namespace ostrel
