#include "app/popover/JournalListModel.h"
#include "ModelFixture.h"

#include <QAbstractItemModelTester>
#include <QDir>
#include <QFile>
#include <QSignalSpy>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

/// The list over a journal of files, watched by Qt's own checker of models.
class JournalList : public ModelFixture
{
protected:
    void SetUp() override
    {
        launch();
        m_list = std::make_unique<JournalListModel>(*m_model, m_defaults, m_clock);
        m_tester = std::make_unique<QAbstractItemModelTester>(m_list.get());
        for (const auto &[name, signal] : {std::pair{QStringLiteral("inserted"), &QAbstractItemModel::rowsInserted},
                                           std::pair{QStringLiteral("removed"), &QAbstractItemModel::rowsRemoved}})
            QObject::connect(m_list.get(), signal, [this, name](const QModelIndex &, int first, int last) {
                m_changes.append(QStringLiteral("%1 %2-%3").arg(name).arg(first).arg(last));
            });
        QObject::connect(m_list.get(), &QAbstractItemModel::dataChanged, [this](const QModelIndex &at) {
            m_changes.append(QStringLiteral("changed %1").arg(at.row()));
        });
    }

    /// A day with one session and these entries, in minutes from nine o'clock on.
    void write(const QString &dateKey, const QStringList &entries)
    {
        QDir().mkpath(m_settings.outputDirectory);
        QFile file(m_settings.outputDirectory + u'/' + dateKey + QStringLiteral(".md"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("## Session s\n");
        for (const QString &entry : entries)
            file.write(QStringLiteral("- [09:00] %1\n").arg(entry).toUtf8());
        file.close();
    }
    void read()
    {
        m_changes.clear();
        m_model->refreshJournal();
        settle();
    }
    QStringList texts() const
    {
        QStringList texts;
        for (int row = 0; row < m_list->rowCount(); ++row) {
            const QModelIndex at = m_list->index(row);
            if (at.data(JournalListModel::KindRole).toInt() == JournalListModel::Entry)
                texts.append(at.data(JournalListModel::TextRole).toString());
            else if (at.data(JournalListModel::KindRole).toInt() == JournalListModel::Day)
                texts.append(at.data(JournalListModel::DateKeyRole).toString());
        }
        return texts;
    }
    static QStringList list(const char *words) { return QString::fromUtf8(words).split(u' '); }

    const QString m_key = QStringLiteral("journalCollapsedDays");
    const QString m_monday = QStringLiteral("2023-11-13");
    const QString m_tuesday = QStringLiteral("2023-11-14");
    QStringList m_changes;
    std::unique_ptr<JournalListModel> m_list;
    std::unique_ptr<QAbstractItemModelTester> m_tester;
};

TEST_F(JournalList, aNewEntry_comesInAlone)
{
    write(m_tuesday, list("a b"));
    write(m_monday, list("c"));
    read();
    ASSERT_EQ(texts(), list("2023-11-14 a b 2023-11-13 c"));
    write(m_tuesday, list("a b new"));
    read();
    EXPECT_EQ(texts(), list("2023-11-14 a b new 2023-11-13 c"));
    EXPECT_EQ(m_changes, QStringList(QStringLiteral("inserted 4-4")));
}

TEST_F(JournalList, changesInSeveralPlaces_leaveTheRestAlone)
{
    write(m_tuesday, list("a b c d"));
    write(m_monday, list("e f"));
    read();
    write(m_tuesday, list("a x c d y"));
    write(m_monday, list("f"));
    read();
    EXPECT_EQ(texts(), list("2023-11-14 a x c d y 2023-11-13 f"));
    EXPECT_EQ(m_changes, (QStringList{QStringLiteral("removed 3-3"), QStringLiteral("inserted 3-3"),
                                      QStringLiteral("inserted 6-6"), QStringLiteral("removed 9-9")}));
}

TEST_F(JournalList, movedEntries_endUpInTheirNewOrder)
{
    write(m_tuesday, list("a b c"));
    read();
    write(m_tuesday, list("c a b"));
    read();
    EXPECT_EQ(texts(), list("2023-11-14 c a b"));
}

TEST_F(JournalList, anUnchangedJournal_announcesNothing)
{
    write(m_tuesday, list("a"));
    read();
    read();
    EXPECT_EQ(m_changes, QStringList());
}

TEST_F(JournalList, folding_takesTheDaysLinesAndBringsThemBack)
{
    write(m_tuesday, list("a b"));
    write(m_monday, list("c"));
    read();
    m_changes.clear();
    m_list->toggleDay(m_tuesday);
    EXPECT_EQ(texts(), list("2023-11-14 2023-11-13 c"));
    EXPECT_EQ(m_changes, (QStringList{QStringLiteral("changed 0"), QStringLiteral("removed 1-3")}));
    m_list->toggleDay(m_tuesday);
    EXPECT_EQ(texts(), list("2023-11-14 a b 2023-11-13 c"));
}

TEST_F(JournalList, foldedDays_areRememberedSorted)
{
    write(m_tuesday, list("a"));
    write(m_monday, list("b"));
    read();
    m_list->toggleDay(m_tuesday);
    m_list->toggleDay(m_monday);
    EXPECT_EQ(m_defaults.lists[m_key], (QStringList{m_monday, m_tuesday}));
    const JournalListModel later(*m_model, m_defaults, m_clock);
    EXPECT_EQ(later.rowCount(), 2);
}

TEST_F(JournalList, folding_forgetsDaysThatDroppedOut)
{
    m_defaults.lists[m_key] = {QStringLiteral("2020-01-01"), m_monday};
    JournalListModel later(*m_model, m_defaults, m_clock);
    write(m_tuesday, list("a"));
    write(m_monday, list("b"));
    read();
    later.toggleDay(m_tuesday);
    EXPECT_EQ(m_defaults.lists[m_key], (QStringList{m_monday, m_tuesday}));
}

TEST_F(JournalList, whileWatched_isReadEveryTwoSeconds)
{
    write(m_tuesday, list("a"));
    m_list->setWatched(true);
    settle();
    EXPECT_EQ(m_list->count(), 3);
    write(m_tuesday, list("a b"));
    advance(1999ms);
    EXPECT_EQ(m_list->count(), 3);
    advance(1ms);
    EXPECT_EQ(m_list->count(), 4);
    m_list->setWatched(false);
    write(m_tuesday, list("a b c"));
    advance(10s);
    EXPECT_EQ(m_list->count(), 4);
}

} // namespace
