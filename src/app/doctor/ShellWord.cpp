#include "app/doctor/ShellWord.h"

#include "base/Paths.h"

#include <QRegularExpression>

namespace ostrel {

namespace {

/// The part below the home folder; nothing for other paths.
QString belowHome(const QString &path)
{
    const QString home = homeDirectory();
    return home.size() > 1 && path.startsWith(home + u'/') ? path.mid(home.size() + 1) : QString();
}

QString quoted(const QString &text)
{
    static const QRegularExpression plain(QStringLiteral("\\A[A-Za-z0-9_./:@%+=,-]+\\z"));
    if (plain.match(text).hasMatch())
        return text;
    QString inner = text;
    return u'\'' + inner.replace(u'\'', QStringLiteral("'\\''")) + u'\'';
}

} // namespace

QString shownPath(const QString &path)
{
    const QString below = belowHome(path);
    return below.isEmpty() ? path : QStringLiteral("~/") + below;
}

QString shellWord(const QString &path)
{
    const QString below = belowHome(path);
    // The tilde means the home folder only outside of quotes.
    return below.isEmpty() ? quoted(path) : QStringLiteral("~/") + quoted(below);
}

} // namespace ostrel
