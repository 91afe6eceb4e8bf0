#pragma once

#include "platform/atspi/AtspiBus.h"

#include <QHash>
#include <QList>
#include <QString>

#include <optional>

namespace ostrel {

/// Where an accessible object is: its program's unique name on the bus, and a path within the program.
struct AtspiReference {
    QByteArray name;
    QByteArray path;

    bool operator==(const AtspiReference &) const = default;
};

/// A program's states of one object, a bit each.
class AtspiStates
{
public:
    AtspiStates() = default;
    explicit AtspiStates(quint64 bits) : m_bits(bits) {}

    bool has(int state) const { return ((m_bits >> state) & 1U) != 0; }

private:
    quint64 m_bits = 0;
};

using AtspiAttributes = QHash<QString, QString>;

/// What a control says about itself. What it doesn't say is absent, or empty.
struct AtspiControl {
    std::optional<quint32> role;
    QString name;
};

/// What tells apart controls of one role.
struct AtspiDetails {
    AtspiStates states;
    AtspiAttributes attributes;
};

/// What can be asked of accessible objects, in plain values. What programs answer is never trusted: of long lists and
/// texts only a beginning is kept, and what has another type or no sense counts as no answer.
class AtspiQueries
{
public:
    explicit AtspiQueries(AtspiBus &bus) : m_bus(bus) {}

    /// Every child of an object that is known to have few.
    AtspiBus::Outcome readChildren(const AtspiReference &object, QList<AtspiReference> &children, qsizetype maximum);
    /// Those of several at once, in their order.
    QList<QList<AtspiReference>> childrenOfEach(const QList<AtspiReference> &objects, qsizetype maximum);
    /// The first children of any object. A sheet of a spreadsheet has billions and would be asked for them one by one.
    QList<AtspiReference> firstChildren(const AtspiReference &object, qsizetype maximum);

    std::optional<quint32> role(const AtspiReference &object) { return roles({object}).first(); }
    QList<std::optional<quint32>> roles(const QList<AtspiReference> &objects);
    QList<AtspiStates> states(const QList<AtspiReference> &objects);
    QList<QString> names(const QList<AtspiReference> &objects);
    QString description(const AtspiReference &object);
    AtspiAttributes documentAttributes(const AtspiReference &object);
    AtspiControl control(const AtspiReference &object);
    AtspiDetails details(const AtspiReference &object);

    /// The references in an answer of type (a(so)); those that lead nowhere are left out.
    static QList<AtspiReference> referencesIn(GVariant *answer, qsizetype maximum);

private:
    AtspiBus &m_bus;
};

} // namespace ostrel
