#include "VirtualScreen.h"

namespace ostrel {

VirtualScreen::VirtualScreen(QSize size, const QStringList &arguments)
{
    constexpr int patienceMs = 10'000;
    const QString screen = QStringLiteral("%1x%2x24").arg(size.width()).arg(size.height());
    m_server.setStandardErrorFile(QProcess::nullDevice());
    const QStringList usual{
        QStringLiteral("-displayfd"), QStringLiteral("1"),   QStringLiteral("-screen"), QStringLiteral("0"), screen,
        QStringLiteral("-nolisten"),  QStringLiteral("tcp"), QStringLiteral("-noreset")};
    m_server.start(QStringLiteral("Xvfb"), usual + arguments);
    if (!m_server.waitForStarted(patienceMs) || !m_server.waitForReadyRead(patienceMs))
        qFatal("Xvfb did not start: %s", qUtf8Printable(m_server.errorString()));
    m_display = ':' + m_server.readLine().trimmed();
}

VirtualScreen::~VirtualScreen()
{
    m_server.terminate();
    if (!m_server.waitForFinished(2'000)) {
        m_server.kill();
        m_server.waitForFinished(2'000);
    }
}

} // namespace ostrel
