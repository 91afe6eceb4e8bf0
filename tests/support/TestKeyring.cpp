#include "support/TestKeyring.h"

#include <QFileInfo>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

const QString account = QStringLiteral("default");
const QString daemonProgram = QStringLiteral("gnome-keyring-daemon");

} // namespace

TestKeyring::TestKeyring(QProcessEnvironment environment, Collection collection) : m_environment(std::move(environment))
{
    start(collection);
}

void TestKeyring::start(Collection collection)
{
    const QStringList options{QStringLiteral("--foreground"), QStringLiteral("--components=secrets")};
    if (collection == Collection::Missing) {
        m_daemon = std::make_unique<TestProcess>(command(daemonProgram, options));
    } else {
        // It reads the password from its standard input. The shell becomes the daemon, so that there is one process.
        const QString script = QStringLiteral("exec \"$@\" --unlock <<END\npassword\nEND\n");
        m_daemon = std::make_unique<TestProcess>(
            command(QStringLiteral("sh"),
                    QStringList{QStringLiteral("-c"), script, QStringLiteral("sh"), daemonProgram} + options));
    }
    waitUntil(QStringLiteral("the keyring"), 10s, [this] { return isOnTheBus(); });
}

void TestKeyring::lock()
{
    const Output output = run(command(QStringLiteral("dbus-send"),
                                      {QStringLiteral("--session"), QStringLiteral("--dest=org.freedesktop.secrets"),
                                       QStringLiteral("--print-reply"), QStringLiteral("/org/freedesktop/secrets"),
                                       QStringLiteral("org.freedesktop.Secret.Service.Lock"),
                                       QStringLiteral("array:objpath:/org/freedesktop/secrets/collection/login")}));
    if (output.status != 0)
        failTest(QStringLiteral("the keyring could not be locked"));
}

void TestKeyring::unlock()
{
    // Only its user can, in a dialog, or a login.
    m_daemon.reset();
    start(Collection::Unlocked);
}

std::optional<QByteArray> TestKeyring::item(const QString &service) const
{
    const Output output =
        run(command(QStringLiteral("secret-tool"), {QStringLiteral("lookup"), QStringLiteral("service"), service,
                                                    QStringLiteral("account"), account}));
    return output.status == 0 ? std::optional(output.text) : std::nullopt;
}

void TestKeyring::store(const QString &service, const QString &printfFormat, const QStringList &moreAttributes)
{
    const QString script =
        QStringLiteral("format=$1; shift; printf \"$format\" | secret-tool store --label=Foreign \"$@\"");
    const QStringList arguments{QStringLiteral("-c"), script, QStringLiteral("sh"), printfFormat};
    const QStringList attributes{QStringLiteral("service"), service, QStringLiteral("account"), account};
    if (run(command(QStringLiteral("sh"), arguments + attributes + moreAttributes)).status != 0)
        failTest(QStringLiteral("the keyring took no item"));
}

QByteArray TestKeyring::description(const QString &service) const
{
    // The attributes go to standard error.
    const QString script = QStringLiteral("secret-tool search --all service \"$1\" 2>&1 | grep -v '^secret = '");
    return run(command(QStringLiteral("sh"), {QStringLiteral("-c"), script, QStringLiteral("sh"), service})).text;
}

TestProcess::Command TestKeyring::command(const QString &program, const QStringList &arguments) const
{
    return {.program = program,
            .arguments = arguments,
            .environment = m_environment,
            .logFile = m_logs.filePath(QFileInfo(program).fileName() + QStringLiteral(".log"))};
}

TestKeyring::Output TestKeyring::run(const TestProcess::Command &command) const
{
    TestProcess process(command);
    const int status = process.waitForExit(10s);
    return {.status = status, .text = process.readAllOutput()};
}

bool TestKeyring::isOnTheBus() const
{
    return run(command(QStringLiteral("dbus-send"),
                       {QStringLiteral("--session"), QStringLiteral("--dest=org.freedesktop.DBus"),
                        QStringLiteral("--print-reply"), QStringLiteral("/org/freedesktop/DBus"),
                        QStringLiteral("org.freedesktop.DBus.NameHasOwner"),
                        QStringLiteral("string:org.freedesktop.secrets")}))
        .text.contains("boolean true");
}

} // namespace ostrel
