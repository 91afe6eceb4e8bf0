#pragma once

#include <QByteArray>

namespace ostrel {

/// A text of a record that is meant to be base64, held as the bytes that it stands for: those are a quarter smaller,
/// copies share them, and their characters need only exist on the way out. A text that is no base64, or not as we would
/// write it, is held as it stands, so that every text reads back the same.
class Base64Text
{
public:
    Base64Text() = default;
    static Base64Text ofBytes(QByteArray bytes);
    /// @param text in UTF-8
    static Base64Text ofText(const QByteArray &text);

    /// What the text stands for; empty where it is no base64.
    const QByteArray &bytes() const { return m_bytes; }
    /// The text where it is no base64, else empty.
    const QByteArray &otherText() const { return m_otherText; }
    /// The text, in UTF-8.
    QByteArray text() const;

    bool operator==(const Base64Text &) const = default;

private:
    // At most one of them holds something, so equal texts are equal members.
    QByteArray m_bytes;
    QByteArray m_otherText;
};

} // namespace ostrel
