#pragma once

#include <QString>
#include <QStringList>
#include <optional>

/// Characters and words as the whole program counts them. Qt's own `trimmed` and `simplified` use another set.
namespace ostrel {

/// White space within a line: the Unicode category Zs, and TAB.
bool isBlank(QChar c);
/// A line break: U+000A to U+000D, U+0085, U+2028 and U+2029.
bool isNewline(QChar c);

QString trimmedBlanks(const QString &text);
QString trimmedBlanksAndNewlines(const QString &text);

/// The pieces between line breaks, empty ones kept. A CR LF pair counts as two breaks.
QStringList splitLines(const QString &text);
/// The non-empty pieces between blanks and line breaks.
QStringList splitWords(const QString &text);

/// Whether `text` holds `part` when both are case-folded by the Unicode rules.
bool containsCaseFolded(const QString &text, const QString &part);

/// What somebody else wrote, fit for a terminal: each character that it would obey, or that would break the line, as
/// "\u{1b}".
QString escapedForTerminal(const QString &text);

/// The same, to be repeated within a sentence: 60 characters at most.
QString harmless(const QString &text);

/// A decimal integer of the form [+-]?[0-9]+ that fits into 64 bits, and nothing else around it.
std::optional<qint64> parseInteger(const QString &text);

} // namespace ostrel
