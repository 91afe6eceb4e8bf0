#include "platform/x11/foreground/CompoundText.h"

#include <array>
#include <iconv.h>
#include <optional>

namespace ostrel {

namespace {

/// A character set that a passage can be switched to.
struct CharacterSet {
    const char *escape; ///< what follows ESC
    const char *name;   ///< for iconv
    /// The set's bytes come without the high bit that iconv's encoding of it has.
    bool needsHighBit = false;
};

constexpr std::array characterSets = {
    CharacterSet{"(B", "ISO-8859-1"},
    CharacterSet{"(J", "ISO-8859-1"}, // JIS X 0201's left half: ASCII but for the
                                      // yen sign and the overline
    CharacterSet{")I", "SHIFT_JIS"},  // JIS X 0201's right half
    CharacterSet{"-A", "ISO-8859-1"},
    CharacterSet{"-B", "ISO-8859-2"},
    CharacterSet{"-C", "ISO-8859-3"},
    CharacterSet{"-D", "ISO-8859-4"},
    CharacterSet{"-L", "ISO-8859-5"},
    CharacterSet{"-G", "ISO-8859-6"},
    CharacterSet{"-F", "ISO-8859-7"},
    CharacterSet{"-H", "ISO-8859-8"},
    CharacterSet{"-M", "ISO-8859-9"},
    CharacterSet{"-V", "ISO-8859-10"},
    CharacterSet{"-T", "ISO-8859-11"},
    CharacterSet{"-Y", "ISO-8859-13"},
    CharacterSet{"-_", "ISO-8859-14"},
    CharacterSet{"-b", "ISO-8859-15"},
    CharacterSet{"-f", "ISO-8859-16"},
    CharacterSet{"$(A", "EUC-CN", true},
    CharacterSet{"$)A", "EUC-CN"},
    CharacterSet{"$(B", "EUC-JP", true},
    CharacterSet{"$)B", "EUC-JP"},
    CharacterSet{"$(C", "EUC-KR", true},
    CharacterSet{"$)C", "EUC-KR"},
};

constexpr char escapeByte = '\x1b';

QString convert(QByteArray bytes, const CharacterSet &set)
{
    if (set.needsHighBit) {
        for (char &byte : bytes)
            byte = char(byte | '\x80');
    }
    const iconv_t converter = ::iconv_open("UTF-16LE", set.name);
    if (converter == iconv_t(-1)) // NOLINT(performance-no-int-to-ptr): its word for failure
        return {};
    QByteArray output(bytes.size() * 4, '\0');
    char *from = bytes.data();
    char *to = output.data();
    auto left = size_t(bytes.size());
    auto room = size_t(output.size());
    ::iconv(converter, &from, &left, &to, &room);
    ::iconv_close(converter);
    return QString(reinterpret_cast<const QChar *>(output.constData()), (to - output.constData()) / 2);
}

/// Reads the text passage by passage.
class Decoder
{
public:
    explicit Decoder(const QByteArray &bytes) : m_bytes(bytes) {}

    QString decode()
    {
        while (m_at < m_bytes.size()) {
            if (m_bytes[m_at] == escapeByte)
                readEscape();
            else
                readPassage();
        }
        return m_text;
    }

private:
    void readPassage()
    {
        qsizetype end = m_bytes.indexOf(escapeByte, m_at);
        if (end < 0)
            end = m_bytes.size();
        const QByteArray passage = m_bytes.mid(m_at, end - m_at);
        m_at = end;
        if (m_set)
            m_text += convert(passage, *m_set);
    }

    void readEscape()
    {
        ++m_at;
        if (startsWith("%G"))
            return readUtf8();
        for (const CharacterSet &set : characterSets) {
            if (startsWith(set.escape)) {
                m_set = set;
                m_at += qsizetype(std::char_traits<char>::length(set.escape));
                return;
            }
        }
        skipUnknownEscape();
    }

    void readUtf8()
    {
        m_at += 2;
        const QByteArray end = QByteArray("\x1b%@");
        const qsizetype found = m_bytes.indexOf(end, m_at);
        m_text += QString::fromUtf8(m_bytes.mid(m_at, found < 0 ? -1 : found - m_at));
        m_at = found < 0 ? m_bytes.size() : found + end.size();
    }

    /// Intermediate bytes are 0x20 to 0x2F, and one more ends the sequence. What it switches to is not known.
    void skipUnknownEscape()
    {
        while (m_at < m_bytes.size() && m_bytes[m_at] >= 0x20 && m_bytes[m_at] <= 0x2f)
            ++m_at;
        ++m_at;
        m_set.reset();
    }

    bool startsWith(const char *sequence) const
    {
        return m_bytes.mid(m_at, qsizetype(std::char_traits<char>::length(sequence))) == sequence;
    }

    QByteArray m_bytes;
    qsizetype m_at = 0;
    std::optional<CharacterSet> m_set = characterSets.front();
    QString m_text;
};

} // namespace

QString decodeCompoundText(const QByteArray &bytes)
{
    return Decoder(bytes).decode();
}

} // namespace ostrel
