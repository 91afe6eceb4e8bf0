#pragma once

#include "platform/sessionbus/BusAnswerBytes.h"
#include "platform/sessionbus/GlibHandles.h"

#include <QByteArray>
#include <QDeadlineTimer>

#include <memory>
#include <optional>

namespace ostrel {

/// A connection to a bus without a thread of its own: what is there to be read waits in the kernel until somebody asks.
///
/// For those who ask much and often. GDBus reads on a thread that it keeps for that, and wakes it, and then the asking
/// thread, for every answer; here as many questions as there are leave in one go, and no other thread takes part.
///
/// Sockets of this machine only; by those the bus knows whose program calls. One thread at a time.
class BusSocket
{
public:
    /// Connects and introduces itself. Blocks until the deadline at the latest.
    /// @return null when there is no connection in time
    static std::unique_ptr<BusSocket> connect(const QByteArray &address, QDeadlineTimer deadline);
    BusSocket(const BusSocket &) = delete;
    BusSocket &operator=(const BusSocket &) = delete;
    ~BusSocket();

    /// A message as it travels, but for its number: it can be posted again and again.
    /// @return empty for one that can't be written
    static QByteArray encoded(GDBusMessage *message);
    /// Takes a message along with the next ones; it leaves when somebody waits for an answer.
    /// @return its number, by which `callAnsweredBy` knows its answer
    quint32 post(const QByteArray &encodedMessage);
    /// The next message that has come. Calls of others are refused meanwhile.
    /// @param deadline may have passed: then only what is there already is read
    /// @return null when there is none in time, and when the connection is lost
    GlibHandle<GDBusMessage> next(QDeadlineTimer deadline);
    /// The next answer that has come; whatever else comes meanwhile is dropped, and calls of others are refused.
    /// @return absent as `next`
    std::optional<BusAnswerBytes> nextAnswer(QDeadlineTimer deadline);
    /// Drops everything that is there already, as far as that takes no longer than the deadline; without a wait. Calls
    /// of others are refused.
    void drop(QDeadlineTimer deadline);
    /// Sends what was posted, as far as the bus takes it without a wait.
    void send();
    /// Whether there is a whole message that needs no wait.
    bool hasReceived() const;
    /// The number of the call that this is the answer to; 0 when it is none.
    static quint32 callAnsweredBy(GDBusMessage *message);
    /// How many signals have been read so far, by whichever function.
    quint64 signalCount() const { return m_signalCount; }
    /// For good.
    bool isLost() const { return m_isLost; }

private:
    explicit BusSocket(int descriptor) : m_descriptor(descriptor) {}

    bool introduce(QDeadlineTimer deadline);
    std::optional<QByteArray> readLine(QDeadlineTimer deadline);
    bool sayHello(QDeadlineTimer deadline);
    /// Sends what it can, and reads what there is or will be.
    /// @return whether there is something new
    bool exchange(QDeadlineTimer deadline);
    bool receive();
    qsizetype receivedLength() const;
    /// @return absent when none is whole
    std::optional<QByteArray> takeBytes();
    GlibHandle<GDBusMessage> read(QByteArray message);
    /// Reads no more of it than it takes to count a signal and to refuse a call.
    void drop(QByteArray message);
    void refuse(GDBusMessage *call);

    const int m_descriptor;
    bool m_isLost = false;
    quint32 m_lastSerial = 0;
    quint64 m_signalCount = 0;
    QByteArray m_unsent;
    QByteArray m_received;
};

} // namespace ostrel
