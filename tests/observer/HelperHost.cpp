#include "base/Files.h"
#include "observer/HelperProcess.h"
#include "observer/QProcessLauncher.h"

#include <QCoreApplication>
#include <QTimer>

#include <csignal>

/// Starts the observer of a folder, waits until it runs, and ends as it was told: "leave" destroys the helper with
/// the child running, "stop" asks the child to end first, "die" is killed.
int main(int argc, char **argv)
{
    using namespace ostrel;
    QCoreApplication application(argc, argv);
    const QString root = application.arguments().value(1);
    const QString way = application.arguments().value(2);
    QProcessLauncher launcher;
    HelperProcess helper(launcher);
    if (!helper.start(root, QStringLiteral("local-token"), {}))
        return 2;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &application, [&] {
        if (readFile(root + QStringLiteral("/notes")).value_or(QByteArray()).contains("started\n"))
            QCoreApplication::quit();
    });
    poll.start(std::chrono::milliseconds(5));
    QTimer::singleShot(std::chrono::seconds(20), &application, [] { QCoreApplication::exit(3); });
    const int status = QCoreApplication::exec();
    if (way == QLatin1String("die"))
        std::raise(SIGKILL);
    if (way == QLatin1String("stop"))
        helper.stop();
    return status;
}
