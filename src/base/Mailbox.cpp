#include "base/Mailbox.h"

#include <QCoreApplication>
#include <QEvent>

namespace ostrel {

void Mailbox::post(Job job)
{
    {
        const std::lock_guard lock(m_mutex);
        m_jobs.push_back(std::move(job));
    }
    QCoreApplication::postEvent(this, new QEvent(QEvent::User));
}

bool Mailbox::event(QEvent *event)
{
    if (event->type() != QEvent::User)
        return QObject::event(event);
    Job job;
    {
        const std::lock_guard lock(m_mutex);
        if (m_jobs.empty())
            return true;
        job = std::move(m_jobs.front());
        m_jobs.pop_front();
    }
    job();
    return true;
}

} // namespace ostrel
