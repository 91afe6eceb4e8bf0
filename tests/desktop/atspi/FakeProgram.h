#pragma once

#include "platform/sessionbus/BusConnection.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QString>

#include <functional>
#include <map>
#include <optional>

namespace ostrel {

/// A program on the real accessibility bus that shows whatever tree a test gives it, and answers as rudely as it is
/// told to. It belongs to this process and answers on a thread of its own.
class FakeProgram
{
public:
    struct Object {
        quint32 role = 0;
        QString name = {};
        QString description = {};
        QList<int> states = {};
        QList<QByteArray> children = {}; ///< names of other objects
        QHash<QByteArray, QByteArray> attributes = {};
        QHash<QByteArray, QByteArray> documentAttributes = {};
    };
    /// Makes an answer, floating; null for none at all. Called on the answering thread.
    using Answer = std::function<GVariant *()>;

    /// Connects and registers; the desktop's accessibility is running.
    FakeProgram();
    FakeProgram(const FakeProgram &) = delete;
    FakeProgram &operator=(const FakeProgram &) = delete;
    ~FakeProgram();

    /// @param name "root" is the program itself
    void set(const QByteArray &name, const Object &object);
    /// Instead of what the object would answer.
    /// @param method as in "GetRole", or "Name" for a property
    void answer(const QByteArray &name, const QByteArray &method, Answer answer);
    /// The search finds these, in their order, as many as it is asked for. Without this there is no search.
    void answerSearch(const QByteArray &window, const QList<QByteArray> &found);

    /// Says to whoever listens that the focus has come to an object, or left it.
    void tellFocus(const QByteArray &name, bool isFocused);
    /// Whether the bus would pass on to anybody what an object says.
    bool isListenedTo(const QByteArray &name) const;

    /// What it was asked since the last call of this, as in "root.GetChildren" or "frame.Name".
    QList<QByteArray> takeQuestions();
    QByteArray busName() const;
    /// As it travels: (so). @return floating
    GVariant *reference(const QByteArray &name) const;
    /// The answer (a(so)). @return floating
    GVariant *references(const QList<QByteArray> &names) const;

private:
    static GDBusMessage *filter(GDBusConnection *connection, GDBusMessage *message, gboolean incoming, gpointer self);
    void respond(GDBusMessage *message);
    /// @return floating; nothing for a method that there isn't
    std::optional<GVariant *> ownAnswer(const Object &object, const QByteArray &interface, const QByteArray &method,
                                        GVariant *arguments) const;
    static GVariant *property(const Object &object, const QByteArray &name);
    void embed();

    GlibHandle<GDBusConnection> m_bus;
    QMutex m_mutex;
    QHash<QByteArray, Object> m_objects;
    std::map<QByteArray, Answer> m_answers;
    QList<QByteArray> m_questions;
    QStringList m_interfaces;
    guint m_filter = 0;
};

} // namespace ostrel
