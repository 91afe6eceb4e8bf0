#pragma once

#include "platform/sessionbus/BusSocket.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QHash>
#include <QSet>

#include <chrono>
#include <memory>
#include <vector>

namespace ostrel {

struct AtspiKnownAnswer;

/// The accessibility bus, found through the session bus and found again when it was lost.
///
/// A call waits 250 ms at most and never past the sample's deadline. Whoever let one pass in silence is not asked again
/// within the sample. Nothing is started by a call. What is subscribed to waits to be read until the next sample: no
/// signal ever wakes this process up.
///
/// What a sample costs is the waits, not the questions: each wakes up the bus and the program that is asked. One sample
/// asks nearly what the one before it asked, so those questions can be asked ahead, all in one wait. One thread at a
/// time.
class AtspiBus
{
public:
    enum class Outcome {
        Answered,
        Refused,  ///< also an answer of another type, and no bus
        Unknown,  ///< there is no such method, or not for this object
        NotThere, ///< there is no such object
        Silent,
        Gone, ///< nobody has that name any more
    };

    struct Call {
        QByteArray name; ///< unique, or a well-known one of the bus's own services
        QByteArray path;
        const char *interface = nullptr;
        const char *method = nullptr;
        GlibHandle<GVariant> arguments;
        const char *replyType = nullptr;
        bool isAskedAhead = true;                                ///< whether the next sample may ask it ahead
        QByteArray encoded = {};                                 ///< as it travels, once it was asked
        std::shared_ptr<const AtspiKnownAnswer> known = nullptr; ///< the last one, once there was one
    };

    struct Reply {
        Outcome outcome = Outcome::Refused;
        GlibHandle<GVariant> value; ///< of the type asked for; null unless answered
        qint64 elapsedMs = 0;       ///< from asking, together with others, to the answer
    };

    AtspiBus() = default;
    AtspiBus(const AtspiBus &) = delete;
    AtspiBus &operator=(const AtspiBus &) = delete;
    ~AtspiBus() = default;

    /// Connects where there is no connection. What was learnt about the silent, and all answers, end here.
    void beginSample(QDeadlineTimer deadline);
    /// Asks a program at once what the last sample asked it, as far as it answered soon; `ask` finds the answers
    /// wherever it comes to the same questions within this sample. The others are dropped.
    void askAhead(const QByteArray &name);
    bool isConnected() const { return m_bus && !m_bus->isLost(); }
    /// Changes whenever another connection was made: names of earlier ones mean nothing on it.
    int generation() const { return m_generation; }

    /// Asks everything at once and waits for all answers. @return one for each call, in their order
    std::vector<Reply> ask(std::vector<Call> calls);
    Reply ask(Call call);
    /// Sends, along with the next question, what needs no answer.
    void tell(const Call &call);
    /// Sends now what was told, as far as the bus takes it without a wait.
    void flush();
    /// How many signals have come on this connection. They are not looked at: what is subscribed to says all it has to
    /// say by coming.
    quint64 signalCount() const { return m_bus ? m_bus->signalCount() : 0; }

    static GlibHandle<GVariant> arguments(GVariant *floating);
    /// Of calls that are made often: to find that two have the same ones is quick then.
    static GlibHandle<GVariant> sharedArguments(const GlibHandle<GVariant> &arguments);

private:
    struct Question {
        Call call = {};
        Reply reply = {};
        bool isAnswered = false; ///< in whichever way
    };

    void connect();
    std::unique_ptr<BusSocket> open(const QByteArray &address) const;
    QByteArray findAddress();
    int patienceMs() const;
    void exchange(std::vector<Question> &questions, std::chrono::nanoseconds gathering = {});
    static void take(Question &question, BusAnswerBytes answer);
    QHash<quint32, Question *> post(std::vector<Question> &questions);
    const Question *answeredAhead(const Call &call) const;
    void remember(std::vector<Question> questions);
    void forget(const QByteArray &name);

    QDeadlineTimer m_deadline;
    std::unique_ptr<BusSocket> m_bus;
    QSet<QByteArray> m_silent;
    std::vector<Question> m_ahead; ///< answers of this sample that nobody may have come to yet
    std::vector<Call> m_asked;     ///< in this sample, and answered soon
    std::vector<Call> m_askedBefore;
    std::chrono::nanoseconds m_usualTime{0}; ///< that it takes until all that is asked ahead is answered
    int m_generation = 0;
};

/// An answer and what it says: the same bytes need not be read again.
struct AtspiKnownAnswer {
    QByteArray content;
    AtspiBus::Reply reply;
};

} // namespace ostrel
