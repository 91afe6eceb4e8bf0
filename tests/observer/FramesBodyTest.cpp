#include "observer/FramesBody.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

CapturedFramePayload frameOf(const QByteArray &picture)
{
    CapturedFramePayload frame;
    frame.receivedAtMs = 1'795'250'000'123;
    frame.videoBase64 = Base64Text::ofBytes(picture);
    frame.videoMimeType = QStringLiteral("image/jpeg");
    frame.text = QStringLiteral("Window: \"é\\\n\x01\u2028\U0001F600");
    frame.displayLabel = QStringLiteral("\"videoBase64\":\"\"");
    return frame;
}

/// As the whole would be written by the record itself.
QByteArray expectedBody(const QList<CapturedFramePayload> &frames)
{
    QByteArrayList encoded;
    for (const CapturedFramePayload &frame : frames)
        encoded.append(frame.toJson());
    return "{\"frames\":[" + encoded.join(',') + "]}";
}

/// Reads a body to its end and expects it to keep its promises.
QByteArray whole(FramesBody body)
{
    QByteArray read;
    for (QByteArray piece = body.nextPiece(); !piece.isEmpty(); piece = body.nextPiece()) {
        EXPECT_LE(piece.size(), FramesBody::pieceBytes);
        read += piece;
    }
    EXPECT_EQ(read.size(), body.size());
    EXPECT_TRUE(body.nextPiece().isEmpty()) << "the end stays the end";
    return read;
}

TEST(FramesBody, noFrames_areAnEmptyList)
{
    EXPECT_EQ(whole(FramesBody({})), QByteArray(R"({"frames":[]})"));
}

TEST(FramesBody, framesOfEveryTextAndShortPicture_areTheRecordsOwnJson)
{
    QList<CapturedFramePayload> frames;
    for (int size = 0; size < 40; ++size) {
        frames.append(frameOf(QByteArray(size, char(size))));
        frames.last().frameIndex = size;
    }
    frames[7].text.reset();
    frames[8].videoBase64 = Base64Text::ofText("no \"base64\" at all");
    EXPECT_EQ(whole(FramesBody(frames)), expectedBody(frames));
}

TEST(FramesBody, piecesThatEndAnywhere_makeTheSameBody)
{
    // What precedes the picture moves its place in the piece through every remainder, and so does its length.
    for (int shift = 0; shift < 12; ++shift) {
        CapturedFramePayload first = frameOf(QByteArray(FramesBody::pieceBytes * 3 / 4 - 300 + shift, 'p'));
        first.text = QString(shift, u'x');
        const QList<CapturedFramePayload> frames = {first, frameOf(QByteArray(700'000 + shift, 'q')), frameOf("r")};
        ASSERT_TRUE(whole(FramesBody(frames)) == expectedBody(frames)) << shift;
    }
}

TEST(FramesBody, everyPictureLengthAroundAPiecesEnd_makesTheSameBody)
{
    for (int size = FramesBody::pieceBytes * 3 / 4 - 300; size < FramesBody::pieceBytes * 3 / 4 + 10; ++size) {
        const QList<CapturedFramePayload> frames = {frameOf(QByteArray(size, 'p'))};
        ASSERT_TRUE(whole(FramesBody(frames)) == expectedBody(frames)) << size;
    }
}

TEST(FramesBody, textLargerThanAPiece_isCutAsWell)
{
    CapturedFramePayload frame = frameOf("p");
    frame.text = QString(int(FramesBody::pieceBytes) * 2, u'\n'); // twice as long when it is escaped
    EXPECT_TRUE(whole(FramesBody({frame})) == expectedBody({frame}));
}

TEST(FramesBody, picture_isSharedAndLetGoWhenItIsPassed)
{
    const QByteArray first(int(FramesBody::pieceBytes), 'p');
    const QByteArray second(int(FramesBody::pieceBytes), 'q');
    FramesBody body({frameOf(first), frameOf(second)});
    EXPECT_FALSE(first.isDetached()) << "the body holds the bytes themselves";
    body.nextPiece();
    body.nextPiece();
    EXPECT_TRUE(first.isDetached());
    EXPECT_FALSE(second.isDetached());
}

} // namespace
