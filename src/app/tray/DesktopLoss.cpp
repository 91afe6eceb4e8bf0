#include "app/tray/DesktopLoss.h"

#include <QCoreApplication>
#include <QThread>

#include <utility>

namespace ostrel {

namespace {

// A message handler is told of no object. Only the main thread looks at the first.
DesktopLoss *watching = nullptr;
QtMessageHandler previous = nullptr;

/// Whether the toolkit may have said it: a message of our own comes from the middle of something.
bool isOfTheToolkit(QtMsgType type, const QMessageLogContext &context)
{
    return type == QtWarningMsg && qstrcmp(context.category, "default") == 0;
}

void passOn(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    previous(type, context, message);
    const bool isMainThread = QThread::currentThread() == QCoreApplication::instance()->thread();
    if (isMainThread && watching != nullptr && isOfTheToolkit(type, context))
        watching->look();
}

} // namespace

DesktopLoss::DesktopLoss(std::function<bool()> isLost, std::function<void()> end)
    : m_isLost(std::move(isLost)), m_end(std::move(end))
{
    watching = this;
    previous = qInstallMessageHandler(nullptr); // known before ours is called, on whichever thread
    qInstallMessageHandler(passOn);
}

DesktopLoss::~DesktopLoss()
{
    qInstallMessageHandler(previous);
    watching = nullptr;
}

void DesktopLoss::look()
{
    if (m_isTold || !m_isLost())
        return;
    m_isTold = true;
    m_end();
}

} // namespace ostrel
