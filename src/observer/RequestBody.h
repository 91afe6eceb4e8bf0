#pragma once

#include "base/TaskSlot.h"
#include "observer/HttpTransport.h"

#include <QIODevice>
#include <optional>

namespace ostrel {

/// A body as the network stack reads it. Pieces are made on the body's own queue, the next one while one is read, and
/// never more than that: whoever reads slowly leaves the rest unmade. Main thread.
///
/// It can be read once. When a connection closes before its answer, the network stack would send the request again by
/// itself; it can't where the body won't rewind. Whether to try again is the caller's to decide.
class RequestBody final : public QIODevice
{
public:
    explicit RequestBody(HttpBody body);

    /// Of the whole body, read or not.
    qint64 byteCount() const { return m_byteCount; }
    /// Leaves what is not made unmade, and lets go of the source and of its queue. The reader waits from then on.
    void abandon();

    bool isSequential() const override { return true; }
    bool reset() override { return false; }
    bool atEnd() const override { return m_unread == 0; }
    qint64 bytesAvailable() const override { return m_piece.size() - m_position; }

protected:
    qint64 readData(char *target, qint64 capacity) override;
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    void fetch();
    Task<> makePiece(std::stop_token stop);
    void beginNextPiece();

    StreamedBody m_streamed; ///< without a source, the one piece is everything
    QByteArray m_piece;
    qsizetype m_position = 0;
    std::optional<QByteArray> m_nextPiece;
    qint64 m_byteCount = 0;
    qint64 m_unread = 0;
    TaskSlot m_fetching;
};

} // namespace ostrel
