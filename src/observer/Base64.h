#pragma once

#include <QByteArray>
#include <QByteArrayView>

namespace ostrel {

/// How many characters that many bytes become.
constexpr qsizetype base64Size(qsizetype bytes)
{
    return (bytes + 2) / 3 * 4;
}

/// Appends standard base64 with padding and without line breaks; the same as QByteArray::toBase64 at several times its
/// speed, which a picture is large enough to show. Pieces may follow each other where all but the last are multiples of
/// three bytes. Any thread.
void appendBase64(QByteArray &text, QByteArrayView bytes);

} // namespace ostrel
