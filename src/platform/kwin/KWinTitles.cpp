#include "platform/kwin/KWinTitles.h"

#include <QRegularExpression>

namespace ostrel {

namespace {

constexpr int mostWords = 4;

// Each ends with a mark that keeps what follows from being taken for text that runs from right to left.
const QRegularExpression &numberOrHost()
{
    static const QRegularExpression expression(QStringLiteral(" <(?:[0-9]+|@[^<>]*)>\\x{200e}?$"));
    return expression;
}

const QRegularExpression &shortcut()
{
    static const QRegularExpression expression(QStringLiteral(" \\{[^{}]*\\}$"));
    return expression;
}

QString without(const QRegularExpression &ending, const QString &title)
{
    const QRegularExpressionMatch match = ending.match(title);
    return match.hasMatch() ? title.left(match.capturedStart()) : title;
}

void add(QStringList &titles, const QString &title)
{
    if (!titles.contains(title))
        titles.append(title);
}

} // namespace

QStringList possibleTitles(const QString &shown, bool isUnresponsive)
{
    QStringList beginnings{shown};
    // The word is in the user's language, and may be several.
    qsizetype end = shown.size();
    for (int words = 0; isUnresponsive && words < mostWords && end > 0; ++words) {
        end = shown.lastIndexOf(QLatin1Char(' '), end - 1);
        if (end >= 0)
            beginnings.append(shown.left(end));
    }
    QStringList titles;
    // In the order in which KWin adds them, the last first. A title may end so by itself: each step counts.
    for (QString rest : beginnings) {
        add(titles, rest);
        for (const QRegularExpression &ending : {shortcut(), numberOrHost(), numberOrHost()}) {
            rest = without(ending, rest);
            add(titles, rest);
        }
    }
    return titles;
}

} // namespace ostrel
