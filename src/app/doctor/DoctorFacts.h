#pragma once

#include "app/ObserverQuestion.h"
#include "app/RecorderLock.h"
#include "app/doctor/DesktopFacts.h"
#include "app/doctor/FolderFacts.h"
#include "app/doctor/Packages.h"
#include "context/PrivacyRulesFile.h"
#include "observer/Keyring.h"
#include "observer/SettingsOnDisk.h"

#include <QString>
#include <optional>

namespace ostrel {

/// The interpreter that the observer would run with.
struct NodeFacts {
    QString path; ///< empty where there is none
    /// "18.19.1", as it says itself; empty where it said nothing of the kind in time.
    QString version;
};

/// Where the observer lies.
struct ObserverRootFacts {
    std::optional<QString> folder;
    bool isComplete = false;     ///< it holds something to run
    bool isFromOverride = false; ///< MORAVEL_REPO_ROOT decided
};

/// The file that stands in for a keyring.
struct SecretFileFacts {
    QString path;
    bool exists = false;
    bool isOurs = false;
    bool isClosedToOthers = false;
};

/// Everything that the checks judge, gathered beforehand: a judgement takes no time and can't fail.
struct DoctorFacts {
    SessionKind session = SessionKind::None;
    QString display;
    /// Asked where there is a session; absent where nobody answered in time.
    std::optional<Result<ScreenFacts>> screen;
    std::optional<QList<UnavailableFact>> unavailable; ///< the same
    /// Absent where the bus did not answer in time.
    std::optional<BusFacts> bus;
    std::optional<SystemBusFacts> systemBus; ///< the same
    /// Asked only where one runs: to ask would start it.
    std::optional<KeyringState> keyring;
    QList<DebuggedBrowserFacts> debuggedBrowsers;
    SecretFileFacts secretFile;
    ObserverRootFacts observerRoot;
    NodeFacts node;
    SettingsOnDisk settings;
    /// The user's privacy rules; absent where there is no file.
    std::optional<Result<PrivacyRulesText>> privacyRules;
    FolderFacts journalFolder;
    FolderFacts ownFolder;   ///< the program's: the recorder's lock, the settings, the secrets
    FolderFacts stateFolder; ///< the observer's, within it
    ObserverAnswer observer;
    std::optional<RecorderLock::Holder> recorder;
    PackageManager packages = PackageManager::Unknown;
};

} // namespace ostrel
