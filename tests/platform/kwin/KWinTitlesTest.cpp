#include "platform/kwin/KWinTitles.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

/// As KWin writes it.
QString numbered(const QString &title)
{
    return title + QStringLiteral(" <2>") + QChar(0x200e);
}

TEST(KWinTitles, titleWithoutAnAddition_isTheOnlyOne)
{
    for (const QString &title : {QStringLiteral("Letter"), QString(), QStringLiteral("a <b> c"), QStringLiteral("<2>"),
                                 QStringLiteral("Letter (draft)")})
        EXPECT_EQ(possibleTitles(title, false), QStringList{title});
}

TEST(KWinTitles, secondWindowOfATitle_mayHaveTheTitleOfTheFirst)
{
    EXPECT_EQ(possibleTitles(numbered(QStringLiteral("Letter")), false),
              (QStringList{numbered(QStringLiteral("Letter")), QStringLiteral("Letter")}));
    EXPECT_TRUE(possibleTitles(QStringLiteral("Letter <12>"), false).contains(QStringLiteral("Letter")));
}

TEST(KWinTitles, allThatKWinAddsAtOnce_isTakenOff)
{
    const QString shown =
        numbered(QStringLiteral("Letter <@far.example>") + QChar(0x200e)) + QStringLiteral(" {Meta+1}");
    EXPECT_TRUE(possibleTitles(shown, false).contains(QStringLiteral("Letter")));
    EXPECT_TRUE(possibleTitles(shown + QStringLiteral(" (Not Responding)"), true).contains(QStringLiteral("Letter")));
}

TEST(KWinTitles, wordForAProgramThatHangs_isTakenOffInAnyLanguage)
{
    for (const QString &word :
         {QStringLiteral("(Not Responding)"), QStringLiteral("(Keine Rückmeldung)"), QStringLiteral("（未响应）")}) {
        const QString shown = QStringLiteral("My letter ") + word;
        EXPECT_TRUE(possibleTitles(shown, true).contains(QStringLiteral("My letter"))) << qPrintable(shown);
        EXPECT_EQ(possibleTitles(shown, false), QStringList{shown});
    }
}

} // namespace
