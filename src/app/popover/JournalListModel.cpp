#include "app/popover/JournalListModel.h"

#include "base/Clock.h"
#include "model/AppModel.h"

#include <QDateTime>
#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

using Keys = QSet<JournalRow::Key>;

Keys keysOf(const QList<JournalRow> &rows)
{
    Keys keys;
    keys.reserve(rows.size());
    for (const JournalRow &row : rows)
        keys.insert(row.key);
    return keys;
}

} // namespace

JournalListModel::JournalListModel(AppModel &model, UserDefaults &defaults, Clock &clock)
    : m_model(model), m_clock(clock), m_collapsed(defaults)
{
    connect(&model, &AppModel::journalDaysChanged, this, &JournalListModel::update);
    update();
}

JournalListModel::~JournalListModel() = default;

void JournalListModel::setWatched(bool watched)
{
    if (watched == m_watched)
        return;
    m_watched = watched;
    if (watched)
        m_reading.start([this](std::stop_token stop) { return keepReading(std::move(stop)); });
    else
        m_reading.cancel();
    Q_EMIT watchedChanged();
}

Task<> JournalListModel::keepReading(std::stop_token stop)
{
    do
        m_model.refreshJournal();
    while (co_await m_clock.sleepFor(std::chrono::milliseconds(readPauseMs), stop));
}

int JournalListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : count();
}

QVariant JournalListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const JournalRow &row = m_rows[index.row()];
    switch (role) {
    case KindRole:
        return int(row.key.kind);
    case DateKeyRole:
        return row.key.dateKey;
    case DayNameRole:
        return row.dayName();
    case DayDateRole:
        return row.dayDate();
    case CollapsedRole:
        return row.collapsed;
    case TimeRole:
        return row.displayTime();
    case WorkspaceRole:
        return row.workspace();
    case TextRole:
        return row.text();
    default:
        return {};
    }
}

QHash<int, QByteArray> JournalListModel::roleNames() const
{
    return {
        {KindRole, "kind"},           {DateKeyRole, "dateKey"}, {DayNameRole, "dayName"},     {DayDateRole, "dayDate"},
        {CollapsedRole, "collapsed"}, {TimeRole, "time"},       {WorkspaceRole, "workspace"}, {TextRole, "text"}};
}

void JournalListModel::toggleDay(const QString &dateKey)
{
    QSet<QString> present;
    for (const JournalDay &day : m_model.journalDays())
        present.insert(day.dateKey);
    m_collapsed.toggle(dateKey, present);
    update();
}

void JournalListModel::revealOutputDirectory()
{
    m_model.revealOutputDirectory();
}

void JournalListModel::update()
{
    const int before = count();
    const int year = QDateTime::fromMSecsSinceEpoch(m_clock.nowMs()).date().year();
    adopt(journalRows(m_model.journalDays(), m_collapsed.dateKeys(), year));
    if (count() != before)
        Q_EMIT countChanged();
}

/// One walk over both lists. A line that has moved is taken for one that went and one that came.
void JournalListModel::adopt(const QList<JournalRow> &rows)
{
    const Keys staying = keysOf(rows);
    Keys present = keysOf(m_rows);
    m_rows.reserve(rows.size()); // growing by itself it would take up to twice as much
    qsizetype at = 0;
    while (at < rows.size()) {
        qsizetype gone = at;
        while (gone < m_rows.size() && !staying.contains(m_rows[gone].key))
            ++gone;
        dropRows(at, gone);
        qsizetype come = at;
        while (come < rows.size() && !present.contains(rows[come].key))
            ++come;
        if (come > at) {
            beginInsertRows({}, int(at), int(come) - 1);
            m_rows.insert(at, come - at, JournalRow());
            for (; at < come; ++at)
                m_rows[at] = rows[at];
            endInsertRows();
        } else if (m_rows[at].key != rows[at].key) {
            // It comes again further down; until then it is not present.
            present.remove(m_rows[at].key);
            dropRows(at, at + 1);
        } else {
            // Also where nothing has changed: the texts of the journal as it was read before can go.
            if (std::exchange(m_rows[at], rows[at]) != rows[at])
                Q_EMIT dataChanged(index(int(at)), index(int(at)));
            ++at;
        }
    }
    dropRows(at, m_rows.size());
}

void JournalListModel::dropRows(qsizetype first, qsizetype end)
{
    if (end <= first)
        return;
    beginRemoveRows({}, int(first), int(end) - 1);
    m_rows.remove(first, end - first);
    endRemoveRows();
}

} // namespace ostrel
