#pragma once

#include "observer/HttpTransport.h"
#include "observer/WireRecords.h"

#include <deque>

namespace ostrel {

/// The body of "/api/frames": an object whose `frames` are a batch. Beside the pictures as they are, it takes up one
/// piece and the texts of one frame, however large the batch. Frames are let go once they are in a piece.
class FramesBody final : public BodySource
{
public:
    /// No piece is larger.
    static constexpr qsizetype pieceBytes = qsizetype(256) * 1024;

    /// Escapes every text once, to know the size.
    explicit FramesBody(QList<CapturedFramePayload> frames);

    qint64 size() const override { return m_size; }
    QByteArray nextPiece() override;

private:
    /// Bytes to be sent as they are, or in base64.
    struct Segment {
        QByteArray bytes;
        bool inBase64 = false;
        qsizetype taken = 0;

        /// Appends as much as fits. @return whether that was the rest
        bool moveInto(QByteArray &piece);
    };

    /// Lines up what comes after the present segments. @return false when that is nothing
    bool openNext();

    QList<CapturedFramePayload> m_frames; ///< that are not lined up yet
    std::deque<Segment> m_segments;
    bool m_isFirst = true;
    bool m_isClosed = false;
    qint64 m_size = 0;
};

} // namespace ostrel
