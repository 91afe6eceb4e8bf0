#include "support/PipeWireSession.h"

#include <QFile>

#include <algorithm>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

std::unique_ptr<TestProcess> launch(const QString &program, const QProcessEnvironment &environment,
                                    const QString &logFolder)
{
    return std::make_unique<TestProcess>(TestProcess::Command{
        .program = program,
        .arguments = {},
        .environment = environment,
        .logFile = logFolder + QLatin1Char('/') + program + QStringLiteral(".log"),
    });
}

/// The socket's file is there a moment before anybody listens.
bool isListening(const QString &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray name = QFile::encodeName(path);
    std::copy_n(name.constData(), std::min<std::size_t>(std::size_t(name.size()), sizeof(address.sun_path) - 1),
                address.sun_path);
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool isConnected = ::connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    ::close(descriptor);
    return isConnected;
}

} // namespace

PipeWireSession::PipeWireSession(const QProcessEnvironment &environment, const QString &logFolder)
    : m_socket(environment.value(QStringLiteral("XDG_RUNTIME_DIR")) + QStringLiteral("/pipewire-0"))
{
    m_daemon = launch(QStringLiteral("pipewire"), environment, logFolder);
    waitUntil(QStringLiteral("PipeWire"), 20s, [this] { return isListening(m_socket); });
    m_manager = launch(QStringLiteral("wireplumber"), environment, logFolder);
}

PipeWireSession::~PipeWireSession()
{
    m_manager.reset();
    m_daemon.reset();
}

} // namespace ostrel
