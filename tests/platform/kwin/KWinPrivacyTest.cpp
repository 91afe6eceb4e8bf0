#include "platform/kwin/KWinPrivacy.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

/// One with a place of its own.
KWinWindow window(int number, const QString &windowClass, const QString &title = {})
{
    KWinWindow made;
    made.id = QString::number(number);
    made.pid = 100 + number;
    made.windowClass = windowClass;
    made.title = title;
    made.isSeen = true;
    made.frame = QRect(number, 0, 10, 10);
    return made;
}

KWinPrivacy builtIn()
{
    return {.excludes = [rules = PrivacyRules::builtIn()](const WindowIdentity &each) { return rules.excludes(each); },
            .bundleIdentifierOf = [](const QString &) { return std::optional<QString>(); }};
}

QList<int> privateOnes(const KWinPrivacy &privacy, const QList<KWinWindow> &windows,
                       const QList<qint32> &processes = {})
{
    QList<int> numbers;
    for (const QRect &place : privacy.placesIn(windows, processes).places)
        numbers.push_back(place.x());
    return numbers;
}

const KWinWindow editor = window(1, QStringLiteral("kwrite org.kde.kwrite"), QStringLiteral("Letter"));
const KWinWindow safe = window(2, QStringLiteral("keepassxc org.keepassxc.KeePassXC"), QStringLiteral("Passwords"));

TEST(KWinPrivacy, windowThatARuleNames_isPrivate)
{
    const KWinWindow hidden =
        window(3, QStringLiteral("firefox firefox"), QStringLiteral("Page — Mozilla Firefox Private Browsing"));
    EXPECT_EQ(privateOnes(builtIn(), {editor, safe, hidden}), (QList{2, 3}));
}

TEST(KWinPrivacy, secondPrivateWindowOfATitle_isPrivate)
{
    const QString title = QStringLiteral("Page — Mozilla Firefox Private Browsing");
    KWinWindow second = window(3, QStringLiteral("firefox firefox"), title + QStringLiteral(" <2>") + QChar(0x200e));
    EXPECT_EQ(privateOnes(builtIn(), {editor, second}), (QList{3}));
    KWinWindow hanging = window(4, QStringLiteral("firefox firefox"), title + QStringLiteral(" (Not Responding)"));
    EXPECT_EQ(privateOnes(builtIn(), {hanging}), QList<int>());
    hanging.isUnresponsive = true;
    EXPECT_EQ(privateOnes(builtIn(), {hanging}), (QList{4}));
}

TEST(KWinPrivacy, desktopFile_isWhatARuleNames)
{
    KWinWindow disguised = window(3, QStringLiteral("python3 python3"));
    disguised.desktopFile = QStringLiteral("org.keepassxc.KeePassXC");
    EXPECT_EQ(privateOnes(builtIn(), {editor, disguised}), (QList{3}));
}

TEST(KWinPrivacy, menuEntryOfTheClass_countsBesideWhatTheProgramSays)
{
    KWinPrivacy privacy = builtIn();
    privacy.bundleIdentifierOf = [](const QString &windowClass) -> std::optional<QString> {
        if (windowClass == QStringLiteral("kp"))
            return QStringLiteral("org.keepassxc.KeePassXC");
        return std::nullopt;
    };
    KWinWindow known = window(3, QStringLiteral("python3 kp"));
    known.desktopFile = QStringLiteral("org.example.Harmless");
    EXPECT_EQ(privateOnes(privacy, {editor, known}), (QList{3}));
}

TEST(KWinPrivacy, windowOfAProcess_isPrivateWhateverTheRulesSay)
{
    EXPECT_EQ(privateOnes(builtIn(), {editor, safe}, {101}), (QList{1, 2}));
}

TEST(KWinPrivacy, unknownProcess_isNobodys)
{
    KWinWindow first = safe;
    KWinWindow menu = window(3, QString());
    first.pid = 0;
    menu.pid = 0;
    menu.isPopup = true;
    EXPECT_EQ(privateOnes(builtIn(), {first, menu}), (QList{2}));
}

TEST(KWinPrivacy, dialogAbovePrivateWindow_isPrivate)
{
    KWinWindow dialog = window(3, QStringLiteral("portal portal"), QStringLiteral("Open"));
    dialog.parent = safe.id;
    KWinWindow question = window(4, QStringLiteral("portal portal"), QStringLiteral("Replace it?"));
    question.parent = dialog.id;
    KWinWindow other = window(5, QStringLiteral("portal portal"), QStringLiteral("Open"));
    other.parent = editor.id;
    EXPECT_EQ(privateOnes(builtIn(), {question, dialog, other, editor, safe}), (QList{4, 3, 2}));
}

TEST(KWinPrivacy, dialogThatHasJustComeAboveAPrivateWindow_isPrivateWithWhatIsAboveIt)
{
    KWinWindow dialog = window(3, QStringLiteral("portal portal"));
    KWinWindow question = window(4, QStringLiteral("portal portal"));
    question.parent = dialog.id;
    const KWinWindow alone = dialog;
    dialog.parent = safe.id;
    EXPECT_EQ(privateOnes(builtIn(), {dialog, question, safe, alone}), (QList{3, 4, 2}));
}

TEST(KWinPrivacy, privateWindowThatFlies_mayBeAnywhere)
{
    KWinWindow flying = safe;
    flying.isFlying = true;
    EXPECT_TRUE(builtIn().placesIn({editor, flying}, {}).mayBeAnywhere);
    EXPECT_FALSE(builtIn().placesIn({editor, safe}, {}).mayBeAnywhere);
    KWinWindow other = editor;
    other.isFlying = true;
    EXPECT_FALSE(builtIn().placesIn({other, safe}, {}).mayBeAnywhere);
}

TEST(KWinPrivacy, windowsAboveEachOther_endNowhere)
{
    KWinWindow first = window(3, QStringLiteral("a a"));
    KWinWindow second = window(4, QStringLiteral("a a"));
    first.parent = second.id;
    second.parent = first.id;
    EXPECT_EQ(privateOnes(builtIn(), {first, second, safe}), (QList{2}));
}

TEST(KWinPrivacy, menuOfPrivateProgram_isPrivate)
{
    KWinWindow menu = window(3, QString());
    menu.pid = safe.pid;
    menu.isPopup = true;
    KWinWindow others = menu;
    others.pid = editor.pid;
    others.frame.moveLeft(4);
    EXPECT_EQ(privateOnes(builtIn(), {menu, others, editor, safe}), (QList{3, 2}));
}

TEST(KWinPrivacy, placeThatIsKnownTwice_isToldOnce)
{
    KWinWindow retitled = safe;
    retitled.title = QStringLiteral("Locked");
    EXPECT_EQ(privateOnes(builtIn(), {safe, retitled}), (QList{2}));
}

TEST(KWinPrivacy, windowThatMoves_isJudgedOnce)
{
    int asked = 0;
    KWinPrivacy privacy = builtIn();
    privacy.excludes = [&asked](const WindowIdentity &) {
        ++asked;
        return true;
    };
    QList<KWinWindow> moments;
    for (int i = 0; i < 50; ++i) {
        moments.push_back(editor);
        moments.last().frame.moveLeft(i);
    }
    EXPECT_EQ(privateOnes(privacy, moments).size(), 50);
    EXPECT_EQ(asked, 1);
}

} // namespace
