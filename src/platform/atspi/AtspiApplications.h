#pragma once

#include "platform/atspi/AtspiQueries.h"

#include <QHash>

namespace ostrel {

/// Which programs show a tree, and which processes they are. The bus itself tells the processes, so that a program
/// that hangs keeps nobody waiting.
///
/// What is known of a connection holds as long as the connection: its name is never given to another one. So it is kept
/// across samples, for the programs that the registry lists.
class AtspiApplications
{
public:
    AtspiApplications(AtspiBus &bus, AtspiQueries &queries) : m_bus(bus), m_queries(queries) {}

    /// The bus names of the process, asked for anew where none is known. Mostly one.
    QList<QByteArray> namesOf(qint32 processIdentifier);
    /// All that show a tree now, with their processes, read afresh.
    const QHash<QByteArray, qint32> &all();
    /// One of its connections has ended: what is known of the process is read again.
    void forget(qint32 processIdentifier);

private:
    void forgetOtherBus();
    QList<QByteArray> known(qint32 processIdentifier) const;
    void refresh();
    void readProcesses(const QList<QByteArray> &names);
    void askForWindowStates();

    AtspiBus &m_bus;
    AtspiQueries &m_queries;
    QHash<QByteArray, qint32> m_processes;
    int m_generation = -1;
    bool m_askedForWindowStates = false;
};

} // namespace ostrel
