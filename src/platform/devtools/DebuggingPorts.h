#pragma once

#include "platform/devtools/BrowserProfiles.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

#include <sys/types.h>

namespace ostrel {

/// How a browser was told to listen for debuggers.
struct DebuggingSwitches {
    quint16 port = 0;    ///< 0: it takes a free one and notes it in its profile
    QString userDataDir; ///< empty: the usual one

    bool operator==(const DebuggingSwitches &) const = default;
};

/// The switches on a browser's command line; of one that stands twice the last counts, as it does to the browser.
/// @return nothing unless the user has switched debugging on there. A browser can also be told so in its own settings,
///         but then it asks the user about each connection: we would be asking every two seconds
std::optional<DebuggingSwitches> debuggingSwitches(const QStringList &commandLine);

/// A browser that listens for debuggers.
struct DebuggedBrowser {
    qint32 process = 0;
    quint16 port = 0;
};

/// Finds the ports on which this user's browsers listen for debuggers, by what the kernel knows of their processes: a
/// port is a browser's only if the socket that listens there is open in that very process. Nothing is connected. Any
/// one thread.
class DebuggingPorts
{
public:
    /// The kernel's numbers of the sockets that would answer at a port of 127.0.0.1; none where anybody but this user
    /// listens there too.
    using ListeningSockets = std::function<QList<quint64>(quint16 port)>;

    struct Surroundings {
        ListeningSockets sockets;
        UserFolders folders;
        uid_t user = 0; ///< who "we" are
        QString proc = QStringLiteral("/proc");
    };

    explicit DebuggingPorts(Surroundings surroundings) : m_around(std::move(surroundings)) {}

    /// @param usualFolders where its profiles may lie unless its command line says otherwise
    /// @return nothing where the process is not ours, does not listen for debuggers, or has ended
    std::optional<quint16> portOf(qint32 process, const QStringList &usualFolders) const;
    /// Whether the process still is the one that listens there.
    bool listensOn(qint32 process, quint16 port) const;

    /// Those that run now, however their window systems call them. Looks at every process of this user's, which takes
    /// some milliseconds.
    QList<DebuggedBrowser> all() const;

    const UserFolders &folders() const { return m_around.folders; }

private:
    QString processFolder(qint32 process) const;
    /// Empty where the process isn't ours.
    QStringList commandLine(qint32 process) const;
    bool holdsOneOf(qint32 process, const QList<quint64> &sockets) const;

    Surroundings m_around;
};

} // namespace ostrel
