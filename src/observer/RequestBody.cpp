#include "observer/RequestBody.h"

#include "base/SerialQueue.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace ostrel {

RequestBody::RequestBody(HttpBody body)
{
    if (auto *bytes = std::get_if<QByteArray>(&body)) {
        m_piece = std::move(*bytes);
        m_byteCount = m_piece.size();
    } else if (auto *streamed = std::get_if<StreamedBody>(&body)) {
        m_streamed = std::move(*streamed);
        m_byteCount = m_streamed.source->size();
        fetch();
    }
    m_unread = m_byteCount;
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

void RequestBody::abandon()
{
    m_fetching.cancel();
    m_streamed = {};
}

void RequestBody::fetch()
{
    m_fetching.start([this](std::stop_token stop) { return makePiece(std::move(stop)); });
}

Task<> RequestBody::makePiece(std::stop_token stop)
{
    auto piece = co_await m_streamed.worker->run(stop, [source = m_streamed.source] { return source->nextPiece(); });
    if (!piece)
        co_return;
    m_nextPiece = *std::move(piece);
    Q_EMIT readyRead();
}

/// Turns to the piece that was made meanwhile, if it was, and has the one after it made.
void RequestBody::beginNextPiece()
{
    m_piece = *std::exchange(m_nextPiece, std::nullopt);
    m_position = 0;
    if (m_piece.isEmpty())
        m_unread = 0; // a source that ends too early ends the request: the network stack misses the rest
    else if (m_streamed.source && m_piece.size() < m_unread)
        fetch();
}

qint64 RequestBody::readData(char *target, qint64 capacity)
{
    if (m_position == m_piece.size() && m_nextPiece)
        beginNextPiece();
    const qint64 count = std::min({capacity, m_piece.size() - m_position, m_unread});
    std::memcpy(target, m_piece.constData() + m_position, size_t(count));
    m_position += count;
    m_unread -= count;
    const bool isOver = m_unread == 0 && capacity > 0;
    return count == 0 && isOver ? -1 : count; // nothing yet is 0, the end is -1
}

} // namespace ostrel
