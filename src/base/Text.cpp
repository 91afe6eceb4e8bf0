#include "base/Text.h"

#include <algorithm>

namespace ostrel {

namespace {

template <class Predicate>
QString trimmedWhere(const QString &text, Predicate drop)
{
    const auto first = std::find_if_not(text.begin(), text.end(), drop);
    const auto last = std::find_if_not(text.rbegin(), std::make_reverse_iterator(first), drop).base();
    return QString(first, last - first);
}

template <class Predicate>
QStringList splitWhere(const QString &text, Predicate separates, Qt::SplitBehavior behavior)
{
    QStringList pieces;
    qsizetype start = 0;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        if (i < text.size() && !separates(text[i]))
            continue;
        if (i > start || behavior == Qt::KeepEmptyParts)
            pieces.append(text.mid(start, i - start));
        start = i + 1;
    }
    return pieces;
}

bool isBlankOrNewline(QChar c)
{
    return isBlank(c) || isNewline(c);
}

bool isAsciiDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

} // namespace

bool isBlank(QChar c)
{
    return c == u'\t' || c.category() == QChar::Separator_Space;
}

bool isNewline(QChar c)
{
    return (c >= u'\n' && c <= u'\r') || c == QChar(0x85) || c == QChar(0x2028) || c == QChar(0x2029);
}

QString trimmedBlanks(const QString &text)
{
    return trimmedWhere(text, isBlank);
}

QString trimmedBlanksAndNewlines(const QString &text)
{
    return trimmedWhere(text, isBlankOrNewline);
}

QStringList splitLines(const QString &text)
{
    return splitWhere(text, isNewline, Qt::KeepEmptyParts);
}

QStringList splitWords(const QString &text)
{
    return splitWhere(text, isBlankOrNewline, Qt::SkipEmptyParts);
}

bool containsCaseFolded(const QString &text, const QString &part)
{
    return text.toCaseFolded().contains(part.toCaseFolded());
}

QString escapedForTerminal(const QString &text)
{
    QString shown;
    for (const uint character : text.toUcs4()) {
        const bool breaksLine = character == QChar::LineSeparator || character == QChar::ParagraphSeparator;
        if (QChar::isPrint(character) && !breaksLine)
            shown += QChar::fromUcs4(character);
        else
            shown += QStringLiteral("\\u{%1}").arg(character, 0, 16);
    }
    return shown;
}

QString harmless(const QString &text)
{
    constexpr qsizetype longest = 60;
    const QList<uint> characters = text.toUcs4();
    if (characters.size() <= longest)
        return escapedForTerminal(text);
    const auto beginning = reinterpret_cast<const char32_t *>(characters.constData());
    return escapedForTerminal(QString::fromUcs4(beginning, longest)) + QStringLiteral("...");
}

std::optional<qint64> parseInteger(const QString &text)
{
    const bool hasSign = text.startsWith(u'+') || text.startsWith(u'-');
    const auto digits = QStringView(text).mid(hasSign ? 1 : 0);
    if (digits.isEmpty() || !std::all_of(digits.begin(), digits.end(), isAsciiDigit))
        return std::nullopt;
    bool fits = false;
    const qint64 value = text.toLongLong(&fits, 10);
    return fits ? std::optional(value) : std::nullopt;
}

} // namespace ostrel
