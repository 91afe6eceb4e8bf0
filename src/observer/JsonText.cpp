#include "observer/JsonText.h"

#include <QStringDecoder>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <optional>

namespace ostrel {

namespace {

constexpr int maximumDepth = 256;
constexpr qsizetype maximumNumberLength = 1024;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

std::optional<char16_t> simpleEscape(char letter)
{
    constexpr char letters[] = "\"\\/bfnrt";
    constexpr char16_t values[] = u"\"\\/\b\f\n\r\t";
    const char *found = letter == '\0' ? nullptr : std::strchr(letters, letter);
    return found ? std::optional(values[found - letters]) : std::nullopt;
}

/// Reads one text from its beginning. After the first fault nothing more is read.
class Reader
{
public:
    explicit Reader(const QByteArray &json) : m_json(json) {}

    std::expected<QList<JsonMember>, QString> readObject()
    {
        QList<JsonMember> members;
        skipBlanks();
        if (peek() != '{')
            fail("an object is expected");
        else
            readMembers(&members, 1);
        skipBlanks();
        if (m_position < m_json.size())
            fail("there is text after the value");
        if (!m_fault.isEmpty())
            return std::unexpected(m_fault);
        return members;
    }

private:
    bool failed() const { return !m_fault.isEmpty(); }

    void fail(const char *what)
    {
        if (!failed())
            m_fault = QStringLiteral("%1 near byte %2").arg(QLatin1String(what)).arg(m_position);
        m_position = m_json.size();
    }

    /// The next byte; 0 at the end, which is no valid byte anywhere.
    char peek() const { return m_position < m_json.size() ? m_json.at(m_position) : '\0'; }

    bool take(char expected)
    {
        if (m_position >= m_json.size() || peek() != expected)
            return false;
        ++m_position;
        return true;
    }

    void skipBlanks()
    {
        while (peek() == ' ' || peek() == '\n' || peek() == '\r' || peek() == '\t')
            ++m_position;
    }

    /// @param members where to put what is read; null to check it only
    void readMembers(QList<JsonMember> *members, int depth)
    {
        ++m_position; // the opening brace
        skipBlanks();
        if (take('}'))
            return;
        do {
            skipBlanks();
            JsonMember member;
            member.key = readText();
            skipBlanks();
            if (!take(':'))
                return fail("a colon is expected");
            member.value = readValue(depth);
            if (members)
                members->append(std::move(member));
            skipBlanks();
        } while (take(','));
        if (!take('}'))
            fail("a comma or the object's end is expected");
    }

    void readElements(int depth)
    {
        ++m_position; // the opening bracket
        skipBlanks();
        if (take(']'))
            return;
        do {
            readValue(depth);
            skipBlanks();
        } while (take(','));
        if (!take(']'))
            fail("a comma or the list's end is expected");
    }

    JsonValue readValue(int depth)
    {
        skipBlanks();
        JsonValue value;
        value.begin = m_position;
        const char first = peek();
        if (first == '"') {
            value.kind = JsonValue::Kind::Text;
            value.text = readText();
        } else if (first == '{' || first == '[') {
            value.kind = JsonValue::Kind::Container;
            readContainer(depth + 1);
        } else if (first == '-' || isDigit(first)) {
            value.kind = JsonValue::Kind::Number;
            value.number = readNumber();
        } else {
            readWord(value);
        }
        value.end = m_position;
        return value;
    }

    void readContainer(int depth)
    {
        if (depth > maximumDepth)
            return fail("values are nested too deeply");
        if (peek() == '{')
            readMembers(nullptr, depth);
        else
            readElements(depth);
    }

    void readWord(JsonValue &value)
    {
        const auto takeWord = [this](const char *word) {
            const auto length = qsizetype(std::strlen(word));
            if (m_json.mid(m_position, length) != word)
                return false;
            m_position += length;
            return true;
        };
        if (takeWord("null"))
            return;
        value.kind = JsonValue::Kind::Boolean;
        value.boolean = takeWord("true");
        if (!value.boolean && !takeWord("false"))
            fail("a value is expected");
    }

    void skipDigits()
    {
        if (!isDigit(peek()))
            return fail("a digit is expected");
        while (isDigit(peek()))
            ++m_position;
    }

    QByteArray readNumber()
    {
        const qsizetype begin = m_position;
        take('-');
        if (!take('0'))
            skipDigits();
        if (take('.'))
            skipDigits();
        if (take('e') || take('E')) {
            if (!take('+'))
                take('-');
            skipDigits();
        }
        if (m_position - begin > maximumNumberLength)
            fail("a number is too long");
        return m_json.mid(begin, m_position - begin);
    }

    QString readText()
    {
        QString text;
        if (!take('"')) {
            fail("a text is expected");
            return text;
        }
        while (!failed() && !take('"')) {
            if (take('\\'))
                readEscape(text);
            else
                readRun(text);
        }
        return mended(text);
    }

    /// The bytes up to the next quotation mark or backslash.
    void readRun(QString &text)
    {
        const qsizetype begin = m_position;
        while (m_position < m_json.size() && peek() != '"' && peek() != '\\') {
            if (uchar(peek()) < 0x20)
                return fail("a control character stands in a text");
            ++m_position;
        }
        if (m_position == m_json.size())
            return fail("the text ends too early");
        QStringDecoder decode(QStringDecoder::Utf8,
                              QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
        const QString run = decode(QByteArrayView(m_json).sliced(begin, m_position - begin));
        if (decode.hasError())
            return fail("a text is not UTF-8");
        text += run;
    }

    void readEscape(QString &text)
    {
        const char letter = peek();
        ++m_position;
        if (const auto simple = simpleEscape(letter)) {
            text += QChar(*simple);
            return;
        }
        bool isNumber = false;
        const QByteArray digits = m_json.mid(m_position, 4);
        const ushort unit = digits.toUShort(&isNumber, 16);
        // toUShort takes signs, blanks and "0x" as well.
        const bool isHex =
            std::all_of(digits.begin(), digits.end(), [](char c) { return std::isxdigit(uchar(c)) != 0; });
        if (letter != 'u' || digits.size() != 4 || !isNumber || !isHex)
            return fail("an escape is unknown");
        m_position += 4;
        text += QChar(unit);
    }

    static QString mended(QString text)
    {
        for (qsizetype i = 0; i < text.size(); ++i) {
            const bool pair = text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
            if (pair)
                ++i;
            else if (text[i].isSurrogate())
                text[i] = QChar::ReplacementCharacter;
        }
        return text;
    }

    const QByteArray &m_json;
    qsizetype m_position = 0;
    QString m_fault;
};

bool mustBeEscaped(char c)
{
    return uchar(c) < 0x20 || c == '"' || c == '\\';
}

/// The first character that must be escaped. Pictures pass through here by the megabyte and have none: blocks without
/// an early exit are what the compiler turns into vector instructions.
const char *findEscaped(const char *begin, const char *end)
{
    constexpr std::ptrdiff_t blockLength = 64;
    for (; end - begin >= blockLength; begin += blockLength) {
        bool found = false;
        for (std::ptrdiff_t i = 0; i < blockLength; ++i)
            found |= mustBeEscaped(begin[i]);
        if (found)
            break;
    }
    return std::find_if(begin, end, &mustBeEscaped);
}

QByteArray escaped(char c)
{
    switch (c) {
    case '"':
        return "\\\"";
    case '\\':
        return "\\\\";
    case '\b':
        return "\\b";
    case '\f':
        return "\\f";
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        return "\\u00" + QByteArray(1, c).toHex();
    }
}

} // namespace

std::expected<QList<JsonMember>, QString> parseJsonObject(const QByteArray &json)
{
    return Reader(json).readObject();
}

void appendJsonText(QByteArray &json, const QString &text)
{
    appendJsonUtf8(json, text.toUtf8());
}

void appendJsonUtf8(QByteArray &json, const QByteArray &utf8)
{
    json += '"';
    const char *run = utf8.constBegin();
    for (const char *c = findEscaped(run, utf8.constEnd()); c != utf8.constEnd();
         c = findEscaped(run, utf8.constEnd())) {
        json.append(run, c - run);
        json += escaped(*c);
        run = c + 1;
    }
    json.append(run, utf8.constEnd() - run);
    json += '"';
}

} // namespace ostrel
