#include "app/doctor/Checks.h"

namespace ostrel {

const QList<Check> &allChecks()
{
    static const QList<Check> checks = {
        {.id = "session", .label = "session", .judge = checkSession},
        {.id = "displays", .label = "displays", .judge = checkDisplays},
        {.id = "pictures", .label = "pictures", .judge = checkPictures},
        {.id = "sharedMemory", .label = "fast capture", .judge = checkSharedMemory},
        {.id = "changeTracking", .label = "change tracking", .judge = checkChangeTracking},
        {.id = "pointer", .label = "pointer", .judge = checkPointer},
        {.id = "monitors", .label = "monitors", .judge = checkMonitors},
        {.id = "frontWindow", .label = "front window", .judge = checkFrontWindow},
        {.id = "windowFacts", .label = "window facts", .judge = checkWindowFacts},
        {.id = "sessionBus", .label = "session bus", .judge = checkSessionBus},
        {.id = "accessibilityService", .label = "accessibility", .judge = checkAccessibilityService},
        {.id = "accessibilityGrant", .label = "window titles", .judge = checkAccessibilityGrant},
        {.id = "keyring", .label = "keyring", .judge = checkKeyring},
        {.id = "sleep", .label = "sleep and wake", .judge = checkSleep},
        {.id = "browserTabs", .label = "browser tabs", .judge = checkBrowserTabs},
        {.id = "observerProgram", .label = "observer", .judge = checkObserverProgram},
        {.id = "node", .label = "Node.js", .judge = checkNode},
        {.id = "settingsFile", .label = "settings file", .judge = checkSettingsFile},
        {.id = "privacy", .label = "privacy rules", .judge = checkPrivacyRules},
        {.id = "secretFile", .label = "secrets file", .judge = checkSecretFile},
        {.id = "journalFolder", .label = "journal folder", .judge = checkJournalFolder},
        {.id = "stateFolder", .label = "observer's folder", .judge = checkStateFolder},
        {.id = "port", .label = "port", .judge = checkPort},
        {.id = "recorder", .label = "recorder", .judge = checkRecorder},
    };
    return checks;
}

} // namespace ostrel
