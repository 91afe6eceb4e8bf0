#include "app/doctor/GatherFacts.h"

#include "app/doctor/LeftBehind.h"
#include "base/Files.h"
#include "base/Paths.h"
#include "observer/NodeSearch.h"
#include "observer/RepoLocator.h"
#include "observer/SecretStore.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>

#include <sys/stat.h>
#include <unistd.h>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

/// For the X server and the bus, which are asked while the rest is looked at.
constexpr auto desktopPatience = 4s;
constexpr auto nodePatience = 2s;
constexpr auto answerPatience = 2s;

SecretFileFacts readSecretFile()
{
    SecretFileFacts facts{.path = stateDirectory() + QLatin1String("/secrets.json")};
    struct stat info{};
    facts.exists = ::stat(QFile::encodeName(facts.path).constData(), &info) == 0;
    facts.isOurs = facts.exists && info.st_uid == ::geteuid();
    facts.isClosedToOthers = facts.exists && (info.st_mode & (S_IRWXG | S_IRWXO)) == 0;
    return facts;
}

ObserverRootFacts readObserverRoot()
{
    const RepoLocator locator = RepoLocator::forThisProgram();
    const auto folder = locator.resolveRepoRoot();
    return {.folder = folder,
            .isComplete = folder && RepoLocator::isObserverRoot(*folder),
            .isFromOverride = !locator.environmentOverride.isEmpty()};
}

/// "18.19.1" of "v18.19.1"; empty where it is no version.
QString versionIn(const QString &answer)
{
    static const QRegularExpression form(QStringLiteral("\\Av(\\d+\\.\\d+\\.\\d+)"));
    return form.match(answer).captured(1);
}

PackageManager readPackageManager()
{
    return packageManagerOf(readFile(QStringLiteral("/etc/os-release")).value_or(QByteArray()));
}

} // namespace

NodeFacts readNodeFacts(const QString &root, std::chrono::milliseconds patience)
{
    const auto path = NodeSearch::find(QDir(root), QProcessEnvironment::systemEnvironment());
    if (!path)
        return {};
    NodeFacts facts{.path = *path, .version = {}};
    QProcess node;
    node.start(*path, {QStringLiteral("--version")}, QIODevice::ReadOnly);
    const bool ended = node.waitForFinished(int(patience.count()));
    if (!ended) {
        node.kill();
        node.waitForFinished(1000);
    }
    const QString answer = QString::fromLatin1(node.readAllStandardOutput()).trimmed();
    if (ended && node.exitStatus() == QProcess::NormalExit)
        facts.version = versionIn(answer);
    return facts;
}

DoctorFacts gatherFacts(const Platform &platform)
{
    const DesktopProbes &desktop = platform.desktop;
    const auto deadline = std::chrono::steady_clock::now() + desktopPatience;
    std::optional<LeftBehind<Result<ScreenFacts>>> screen;
    std::optional<LeftBehind<QList<UnavailableFact>>> unavailable;
    if (desktop.session != SessionKind::None) {
        screen.emplace(desktop.screen);
        unavailable.emplace(desktop.unavailable);
    }
    LeftBehind<BusFacts> bus(desktop.bus);
    LeftBehind<SystemBusFacts> systemBus(desktop.systemBus);

    DoctorFacts facts;
    facts.session = desktop.session;
    facts.display = desktop.display;
    facts.debuggedBrowsers = desktop.debuggedBrowsers();
    facts.secretFile = readSecretFile();
    facts.observerRoot = readObserverRoot();
    facts.node = readNodeFacts(facts.observerRoot.folder.value_or(homeDirectory()), nodePatience);
    facts.settings = readSettingsOnDisk();
    facts.privacyRules = PrivacyRulesFile::look();
    facts.journalFolder = readFolderFacts(facts.settings.settings.outputDirectory);
    facts.ownFolder = readFolderFacts(stateDirectory());
    facts.stateFolder = readFolderFacts(stateDirectory() + QLatin1String("/observer"));
    facts.recorder = RecorderLock::holder();
    facts.packages = readPackageManager();
    facts.bus = bus.answerBy(deadline);
    if (facts.bus && facts.bus->keyring.isRunning)
        facts.keyring = platform.keyring.state();
    facts.observer = askObserver(platform.secrets, facts.settings.settings, answerPatience);
    facts.systemBus = systemBus.answerBy(deadline);
    if (screen)
        facts.screen = screen->answerBy(deadline);
    if (unavailable)
        facts.unavailable = unavailable->answerBy(deadline);
    return facts;
}

} // namespace ostrel
