#pragma once

#include "support/PlayedService.h"

#include <QByteArray>
#include <QList>
#include <QPoint>
#include <QSize>
#include <QString>

#include <mutex>
#include <optional>

namespace ostrel {

/// The desktop portal's screen casts, played as the test says: several monitors, tokens, users who change their mind.
/// Lives on a bus and a PipeWire of the test's. Answers come on a thread of GLib's; everything here is for any thread.
class TestPortal
{
public:
    struct Stream {
        quint32 node = 0;
        QByteArray id = {};
        std::optional<QPoint> corner = {};
        std::optional<QSize> size = {};
    };
    enum class Answer { Grants, Declines, Fails, None };

    TestPortal(const QByteArray &busAddress, QString pipeWireSocket);
    TestPortal(const TestPortal &) = delete;
    TestPortal &operator=(const TestPortal &) = delete;

    struct Behaviour {
        QList<Stream> streams = {};
        Answer answer = Answer::Grants; ///< to the question whether the screen may be seen
        QByteArray newToken = {};       ///< what a granted session brings
        QByteArray refusedToken = {};   ///< sessions that come with it fail
        int failingSessions = 0;        ///< that many are not opened at all
    };
    void behave(const Behaviour &behaviour);
    /// The question that was not answered when it was asked is now, by a user who grants it.
    void answerLate(const Behaviour &behaviour);

    /// What it was asked for so far.
    struct Seen {
        QList<QByteArray> tokens; ///< of each selection; empty where there was none
        guint32 kinds = 0;        ///< of the last selection
        guint32 cursorMode = 0;
        guint32 persistMode = 0;
        bool several = false;
        int sessions = 0; ///< asked for
        int questions = 0;
        int withdrawnQuestions = 0;
        int closedSessions = 0;
    };
    Seen seen() const;

    /// The session is closed: the user ends the sharing in the desktop, or the desktop ends it by itself. Returns when
    /// the bus has passed it on.
    void endSharing();
    /// Who has asked last, as the bus calls it.
    QByteArray client() const;
    QByteArray session() const;

private:
    bool handle(GDBusMessage *message);
    void answerRequest(GDBusMessage *message, const QByteArray &member);
    void answerPipeWire(GDBusMessage *message);
    void respond(const QByteArray &path, guint32 code, GVariant *results);
    GVariant *startResults();
    void noteSelection(GVariant *options);

    const QString m_pipeWireSocket;

    mutable std::mutex m_mutex;
    Behaviour m_behaviour;
    Seen m_seen;
    QByteArray m_client;
    QByteArray m_session;
    QByteArray m_lastQuestion;

    PlayedService m_service; ///< the last, for it calls the others
};

} // namespace ostrel
