#include "observer/FramesBody.h"

#include "observer/Base64.h"

#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

constexpr QByteArrayView opening = R"({"frames":[)";
constexpr QByteArrayView closing = "]}";

} // namespace

FramesBody::FramesBody(QList<CapturedFramePayload> frames) : m_frames(std::move(frames))
{
    m_segments.push_back({.bytes = opening.toByteArray()});
    m_size = opening.size() + closing.size() + std::max<qint64>(0, m_frames.size() - 1); // and the commas
    for (const CapturedFramePayload &frame : std::as_const(m_frames)) {
        const auto [before, after] = frame.toJsonAroundPicture();
        m_size += before.size() + base64Size(frame.videoBase64.bytes().size()) + after.size();
    }
}

QByteArray FramesBody::nextPiece()
{
    QByteArray piece;
    piece.reserve(pieceBytes);
    while (!m_segments.empty() || openNext()) {
        if (!m_segments.front().moveInto(piece))
            break;
        m_segments.pop_front();
    }
    return piece;
}

bool FramesBody::Segment::moveInto(QByteArray &piece)
{
    const qsizetype room = pieceBytes - piece.size();
    const QByteArrayView rest = QByteArrayView(bytes).sliced(taken);
    // Where base64 is cut, three bytes have become four characters.
    const qsizetype count = std::min(rest.size(), inBase64 ? room / 4 * 3 : room);
    if (inBase64)
        appendBase64(piece, rest.first(count));
    else
        piece += rest.first(count);
    taken += count;
    return count == rest.size();
}

bool FramesBody::openNext()
{
    if (m_frames.isEmpty()) {
        if (std::exchange(m_isClosed, true))
            return false;
        m_segments.push_back({.bytes = closing.toByteArray()});
        return true;
    }
    const CapturedFramePayload frame = m_frames.takeFirst();
    auto [before, after] = frame.toJsonAroundPicture();
    if (!std::exchange(m_isFirst, false))
        before.prepend(',');
    m_segments.push_back({.bytes = std::move(before)});
    m_segments.push_back({.bytes = frame.videoBase64.bytes(), .inBase64 = true});
    m_segments.push_back({.bytes = std::move(after)});
    return true;
}

} // namespace ostrel
