#include "observer/Base64Text.h"

#include "observer/Base64.h"

#include <utility>

namespace ostrel {

Base64Text Base64Text::ofBytes(QByteArray bytes)
{
    Base64Text made;
    made.m_bytes = std::move(bytes);
    return made;
}

Base64Text Base64Text::ofText(const QByteArray &text)
{
    const auto decoded = QByteArray::fromBase64Encoding(text, QByteArray::AbortOnBase64DecodingErrors);
    if (decoded) {
        const Base64Text made = ofBytes(*decoded);
        // Padding that is missing, or bits in it, would be lost.
        if (made.text() == text)
            return made;
    }
    Base64Text other;
    other.m_otherText = text;
    return other;
}

QByteArray Base64Text::text() const
{
    if (!m_otherText.isEmpty())
        return m_otherText;
    QByteArray text;
    appendBase64(text, m_bytes);
    return text;
}

} // namespace ostrel
