#pragma once

#include "platform/devtools/WebSocket.h"

#include <QJsonObject>
#include <QString>
#include <optional>

namespace ostrel {

/// A conversation with a browser in its debugging protocol: questions and answers in turn.
class DevToolsSession
{
public:
    explicit DevToolsSession(WebSocket socket) : m_socket(std::move(socket)) {}

    /// Asks and waits for the answer; events that come in between are left aside.
    /// @param page the session of a page, from "Target.attachToTarget"; empty asks the browser itself
    /// @return the result; nothing when it refuses, does not answer in time or not in the protocol's terms
    std::optional<QJsonObject> call(const QString &method, const QJsonObject &parameters, const QString &page = {});

private:
    WebSocket m_socket;
    int m_lastId = 0;
};

} // namespace ostrel
