#include "platform/devtools/DevToolsSession.h"

#include <QJsonDocument>

namespace ostrel {

namespace {

/// Two or three events follow each question; a browser that sends only events is not answering.
constexpr int mostEvents = 64;

} // namespace

std::optional<QJsonObject> DevToolsSession::call(const QString &method, const QJsonObject &parameters,
                                                 const QString &page)
{
    QJsonObject question{
        {QStringLiteral("id"), ++m_lastId}, {QStringLiteral("method"), method}, {QStringLiteral("params"), parameters}};
    if (!page.isEmpty())
        question.insert(QStringLiteral("sessionId"), page);
    if (!m_socket.send(QJsonDocument(question).toJson(QJsonDocument::Compact)))
        return std::nullopt;
    for (int events = 0; events <= mostEvents; ++events) {
        const auto message = m_socket.receive();
        if (!message)
            return std::nullopt;
        const QJsonObject answer = QJsonDocument::fromJson(*message).object();
        if (answer.value(QStringLiteral("id")).toInt() != m_lastId)
            continue;
        const QJsonValue result = answer.value(QStringLiteral("result"));
        return result.isObject() ? std::optional(result.toObject()) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace ostrel
