#include "support/PipeWireSession.h"

#include <QFileInfo>

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

} // namespace

PipeWireSession::PipeWireSession(const QProcessEnvironment &environment, const QString &logFolder)
    : m_socket(environment.value(QStringLiteral("XDG_RUNTIME_DIR")) + QStringLiteral("/pipewire-0"))
{
    m_daemon = launch(QStringLiteral("pipewire"), environment, logFolder);
    waitUntil(QStringLiteral("PipeWire"), 20s, [this] { return QFileInfo::exists(m_socket); });
    m_manager = launch(QStringLiteral("wireplumber"), environment, logFolder);
}

PipeWireSession::~PipeWireSession()
{
    m_manager.reset();
    m_daemon.reset();
}

} // namespace ostrel
