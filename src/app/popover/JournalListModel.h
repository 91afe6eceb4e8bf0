#pragma once

#include "app/popover/CollapsedDays.h"
#include "app/popover/JournalRows.h"
#include "base/TaskSlot.h"

#include <QAbstractListModel>
#include <QtQmlIntegration>
#include <stop_token>

namespace ostrel {

class AppModel;
class Clock;

/// The journal screen's lines. What the observer writes while they are shown comes in as the few lines that it is, so
/// that the place in the list and a selection stay. Main thread.
class JournalListModel : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of PopoverModel")

    /// Whether somebody looks: only then the journal is read, every two seconds.
    Q_PROPERTY(bool watched READ isWatched WRITE setWatched NOTIFY watchedChanged)
    Q_PROPERTY(int count READ count NOTIFY countChanged)

public:
    enum Kind {
        Day = int(JournalRow::Kind::Day),
        Session = int(JournalRow::Kind::Session),
        Entry = int(JournalRow::Kind::Entry)
    };
    Q_ENUM(Kind)
    enum Role {
        KindRole = Qt::UserRole,
        DateKeyRole,
        DayNameRole,
        DayDateRole,
        CollapsedRole,
        TimeRole,
        WorkspaceRole,
        TextRole
    };

    static constexpr int readPauseMs = 2000;

    /// All three outlive this object.
    JournalListModel(AppModel &model, UserDefaults &defaults, Clock &clock);
    ~JournalListModel() override;

    bool isWatched() const { return m_watched; }
    void setWatched(bool watched);
    int count() const { return int(m_rows.size()); }

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// Folds or opens a day, and remembers it.
    Q_INVOKABLE void toggleDay(const QString &dateKey);
    /// Shows the journal's folder in the file manager.
    Q_INVOKABLE void revealOutputDirectory();

Q_SIGNALS:
    void watchedChanged();
    void countChanged();

private:
    Task<> keepReading(std::stop_token stop);
    void update();
    void adopt(const QList<JournalRow> &rows);
    void dropRows(qsizetype first, qsizetype end);

    AppModel &m_model;
    Clock &m_clock;
    CollapsedDays m_collapsed;
    QList<JournalRow> m_rows;
    bool m_watched = false;
    TaskSlot m_reading;
};

} // namespace ostrel
