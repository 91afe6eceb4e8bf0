#pragma once

#include <QByteArray>
#include <QProcess>
#include <QSize>
#include <QStringList>

namespace ostrel {

/// An X server without a screen, for the measurements alone. Ends the program with the reason when it does not start.
class VirtualScreen
{
public:
    /// @param arguments besides the usual ones, as in {"-extension", "DAMAGE"}
    explicit VirtualScreen(QSize size, const QStringList &arguments = {});
    ~VirtualScreen();

    const QByteArray &display() const { return m_display; } ///< as in $DISPLAY
    qint64 pid() const { return m_server.processId(); }

private:
    QProcess m_server;
    QByteArray m_display;
};

} // namespace ostrel
