#include "base/SerialQueue.h"

namespace ostrel {

SerialQueue::SerialQueue(const QString &name)
    : m_home(std::make_shared<Mailbox>()), m_inbox(std::make_unique<Mailbox>())
{
    // The kernel keeps 15 characters of a thread's name, and all of ours begin alike.
    m_thread.setObjectName(name.section(QLatin1Char('.'), -1));
    m_inbox->moveToThread(&m_thread);
    m_thread.start();
}

SerialQueue::~SerialQueue()
{
    // Whatever was posted before this job runs before it; then the thread has nothing left that refers to us.
    sync([] {});
    m_thread.quit();
    m_thread.wait();
}

} // namespace ostrel
