#pragma once

#include "app/doctor/DoctorFacts.h"

namespace ostrel {

/// A desktop on which everything works and nothing runs yet; tests break one thing of it.
inline DoctorFacts healthyFacts()
{
    const ExtensionFacts extension{.major = 1, .minor = 2, .works = true};
    const ScreenFacts screen{.displays = {{.width = 1920, .height = 1080, .pictureFault = {}},
                                          {.width = 1280, .height = 1024, .pictureFault = {}}},
                             .sharedMemory = extension,
                             .changeTracking = extension,
                             .pointer = extension,
                             .monitors = extension,
                             .windowManager =
                                 WindowManagerFacts{.name = QStringLiteral("Openbox"), .tellsActiveWindow = true}};
    const auto folder = [](const char *path) {
        return FolderFacts{.path = QString::fromLatin1(path),
                           .exists = true,
                           .tried = QString::fromLatin1(path),
                           .isOurs = true,
                           .writability = Writability::Tried,
                           .errorNumber = 0,
                           .freeBytes = 123'000'000'000};
    };
    DoctorFacts facts;
    facts.session = SessionKind::X11;
    facts.display = QStringLiteral(":0");
    facts.screen = screen;
    facts.unavailable = QList<UnavailableFact>();
    facts.bus = BusFacts{.state = BusState::Answers,
                         .accessibility = {.isRunning = true, .canBeStarted = true},
                         .isAccessibilityGranted = true,
                         .keyring = {.isRunning = true, .canBeStarted = true}};
    facts.keyring = KeyringState::Ready;
    facts.systemBus = SystemBusFacts{.state = BusState::Answers, .isLogindThere = true, .doesLogindAnswer = true};
    facts.secretFile.path = QStringLiteral("/data/secrets.json");
    facts.observerRoot = {.folder = QStringLiteral("/opt/observer"), .isComplete = true, .isFromOverride = false};
    facts.node = {.path = QStringLiteral("/usr/bin/node"), .version = QStringLiteral("18.19.1")};
    facts.settings.settings = ObserverSettings::defaults();
    facts.journalFolder = folder("/data/journal");
    facts.ownFolder = folder("/data");
    facts.stateFolder = folder("/data/observer");
    facts.observer.reach = ObserverReach::NotRunning;
    facts.observer.port = 8799;
    facts.packages = PackageManager::Apt;
    return facts;
}

} // namespace ostrel
