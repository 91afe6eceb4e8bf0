#include "PopoverFixture.h"

#include <QClipboard>
#include <QGuiApplication>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class JournalScreen : public PopoverFixture
{
protected:
    /// Many lines: more than the panel has room for, by far.
    static constexpr int many = 3000;

    void openJournal()
    {
        open();
        press("Journal");
    }
    QQuickItem *list() const { return screen().item(QStringLiteral("Journal"), QAccessible::List); }
    /// Where a line stands in the window.
    qreal heightOf(const QString &name) const { return screen().item(name)->mapToScene({}).y(); }
    static QList<QQuickItem *> textEdits(const QQuickItem &item)
    {
        QList<QQuickItem *> texts = partsOf(item);
        texts.removeIf([](const QQuickItem *part) { return !part->inherits("QQuickTextEdit"); });
        return texts;
    }
    /// The text of an entry, as it stands on the paper.
    QQuickItem *textOf(const QString &name) const
    {
        const QList<QQuickItem *> texts = textEdits(*screen().item(name));
        return texts.isEmpty() ? nullptr : texts.first();
    }

    const QString m_today = QStringLiteral("2023-11-14");
};

TEST_F(JournalScreen, emptyJournal_saysHowToBegin)
{
    openJournal();
    EXPECT_TRUE(shows("No entries yet. Start a recording to begin today's journal."));
    writeDay(m_today, entries(1));
    advance(2s);
    EXPECT_FALSE(shows("No entries yet. Start a recording to begin today's journal."));
    EXPECT_TRUE(shows("9:00 AM, Editor, Worked on page 0"));
}

TEST_F(JournalScreen, days_areTitlesWithTheirSessionsAndEntries)
{
    writeDay(m_today, "## Session a\nstart_time: 2023-11-14T13:30:00+01:00\n- [13:33] [Gmail] action: Replied\n"
                      "- [14:00] Had tea <!-- key:1 -->\n");
    writeDay(QStringLiteral("2023-11-13"), entries(1));
    openJournal();
    EXPECT_TRUE(showsButton("Tuesday 14 November"));
    EXPECT_TRUE(shows("Session · 1:30 PM"));
    EXPECT_TRUE(shows("1:33 PM, Gmail, Replied"));
    EXPECT_TRUE(shows("2:00 PM, Had tea"));
    EXPECT_TRUE(showsButton("Monday 13 November"));
    EXPECT_EQ(screen().nameless(), QStringList());
}

TEST_F(JournalScreen, aClickOnADay_foldsItForThisAndLaterLaunches)
{
    writeDay(m_today, entries(2));
    openJournal();
    click("Tuesday 14 November");
    EXPECT_FALSE(shows("9:00 AM, Editor, Worked on page 0"));
    EXPECT_EQ(m_defaults.lists[QStringLiteral("journalCollapsedDays")], QStringList(m_today));
    show();
    press("Journal");
    EXPECT_FALSE(shows("9:00 AM, Editor, Worked on page 0"));
    click("Tuesday 14 November");
    EXPECT_TRUE(shows("9:00 AM, Editor, Worked on page 0"));
}

TEST_F(JournalScreen, arrowKeysAndReturn_reachAndFoldADay)
{
    writeDay(m_today, entries(2));
    writeDay(QStringLiteral("2023-11-13"), entries(1));
    openJournal();
    for (int i = 0; i < 5; ++i)
        key(Qt::Key_Down);
    key(Qt::Key_Return);
    EXPECT_EQ(m_defaults.lists[QStringLiteral("journalCollapsedDays")], QStringList(QStringLiteral("2023-11-13")));
    key(Qt::Key_Home);
    key(Qt::Key_Space);
    EXPECT_FALSE(shows("9:00 AM, Editor, Worked on page 0"));
}

TEST_F(JournalScreen, liveEntries_keepThePlaceAndTheSelection)
{
    writeDay(m_today, entries(100));
    writeDay(QStringLiteral("2023-11-13"), entries(400, "Read"));
    openJournal();
    list()->setProperty("contentY", list()->property("contentY").toReal() + 7000);
    settle();
    const QString line = QStringLiteral("9:55 AM, Editor, Read page 55");
    const qreal height = heightOf(line);
    QQuickItem *text = textOf(line);
    ASSERT_NE(text, nullptr);
    ASSERT_TRUE(QMetaObject::invokeMethod(text, "select", Q_ARG(int, 0), Q_ARG(int, 4)));
    writeDay(m_today, entries(140));
    advance(2s);
    EXPECT_EQ(heightOf(line), height);
    EXPECT_EQ(textOf(line)->property("selectedText").toString(), QStringLiteral("Read"));
}

TEST_F(JournalScreen, atTheTop_aNewDayComesIntoView)
{
    writeDay(QStringLiteral("2023-11-13"), entries(100));
    openJournal();
    writeDay(m_today, entries(1, "Began"));
    advance(2s);
    EXPECT_GE(heightOf(QStringLiteral("Tuesday 14 November")), 40);
}

TEST_F(JournalScreen, aDragOverAnEntry_selectsItsText)
{
    writeDay(m_today, entries(2));
    openJournal();
    QQuickItem *text = textOf(QStringLiteral("9:00 AM, Editor, Worked on page 0"));
    ASSERT_NE(text, nullptr);
    const QPoint from = text->mapToScene({1, text->height() / 2}).toPoint();
    const QPoint to = text->mapToScene({text->width() - 1, text->height() / 2}).toPoint();
    QTest::mousePress(m_view.get(), Qt::LeftButton, {}, from);
    for (int x = from.x(); x <= to.x(); x += 5)
        QTest::mouseMove(m_view.get(), {x, from.y()});
    QTest::mouseMove(m_view.get(), to);
    QTest::mouseRelease(m_view.get(), Qt::LeftButton, {}, to);
    settle();
    EXPECT_EQ(text->property("selectedText").toString(), QStringLiteral("Worked on page 0"));
    key(Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), QStringLiteral("Worked on page 0"));
}

TEST_F(JournalScreen, thousandsOfEntries_onlyThoseInSightAreMade)
{
    writeDay(m_today, entries(many));
    openJournal();
    EXPECT_EQ(m_popover->journal()->count(), many + 2);
    const qsizetype made = textEdits(*list()).size();
    EXPECT_GT(made, 5);
    EXPECT_LT(made, 60);
    key(Qt::Key_End);
    EXPECT_EQ(list()->property("currentIndex").toInt(), many + 1);
}

TEST_F(JournalScreen, openInFinder_showsTheFolder)
{
    openJournal();
    m_dialogs.expectFolder();
    press("Open in Finder");
}

TEST_F(JournalScreen, left_isReadNoLonger)
{
    openJournal();
    EXPECT_TRUE(m_popover->journal()->isWatched());
    press("Back");
    EXPECT_FALSE(m_popover->journal()->isWatched());
    EXPECT_TRUE(showsButton("Start recording"));
}

TEST_F(JournalScreen, whileThePanelIsHidden_isNotRead)
{
    openJournal();
    m_view->hide();
    settle();
    EXPECT_FALSE(m_popover->journal()->isWatched());
    m_view->show();
    settle();
    EXPECT_TRUE(m_popover->journal()->isWatched());
}

} // namespace
