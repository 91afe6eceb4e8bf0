#pragma once

#include <QLoggingCategory>
#include <QString>
#include <QStringList>

#include <mutex>
#include <utility>

namespace ostrel {

/// Switches all of a category's messages on, or those of all our categories, and keeps them instead of printing them.
/// One at a time; main thread, but messages may come from any.
class LogRecorder
{
public:
    explicit LogRecorder(const char *category = "com.tamsk.ostrel.*")
    {
        s_current = this;
        m_category = category;
        QLoggingCategory::setFilterRules(QStringLiteral("%1=true").arg(QLatin1String(category)));
        m_previous = qInstallMessageHandler(&LogRecorder::handle);
    }
    LogRecorder(const LogRecorder &) = delete;
    LogRecorder &operator=(const LogRecorder &) = delete;
    ~LogRecorder()
    {
        qInstallMessageHandler(m_previous);
        QLoggingCategory::setFilterRules(QString());
        s_current = nullptr;
    }

    /// All that was logged since the last call.
    QStringList takeAll()
    {
        const std::lock_guard lock(m_mutex);
        QStringList taken;
        for (const Message &message : std::exchange(m_messages, {}))
            taken.append(message.text);
        return taken;
    }

    /// What was logged at a level since the last call for it.
    QStringList take(QtMsgType level)
    {
        const std::lock_guard lock(m_mutex);
        QStringList taken;
        QList<Message> kept;
        for (const Message &message : m_messages) {
            if (message.level == level)
                taken.append(message.text);
            else
                kept.append(message);
        }
        m_messages = kept;
        return taken;
    }

private:
    struct Message {
        QtMsgType level;
        QString text;
    };

    static void handle(QtMsgType level, const QMessageLogContext &context, const QString &text)
    {
        LogRecorder *recorder = s_current;
        if (recorder->records(context.category)) {
            const std::lock_guard lock(recorder->m_mutex);
            recorder->m_messages.append({level, text});
        } else if (recorder->m_previous) {
            recorder->m_previous(level, context, text);
        }
    }

    bool records(const char *category) const
    {
        const QByteArray wanted(m_category);
        return category &&
               (wanted.endsWith('*') ? QByteArray(category).startsWith(wanted.chopped(1)) : wanted == category);
    }

    static inline LogRecorder *s_current = nullptr;

    const char *m_category = nullptr;
    QtMessageHandler m_previous = nullptr;
    std::mutex m_mutex;
    QList<Message> m_messages;
};

} // namespace ostrel
