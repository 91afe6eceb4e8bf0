#pragma once

#include "app/doctor/Check.h"

namespace ostrel {

/// One function a check: facts to words. Each judges alone, so that none hides another.

Finding checkSession(const DoctorFacts &facts);
Finding checkDisplays(const DoctorFacts &facts);
Finding checkPictures(const DoctorFacts &facts);
Finding checkSharedMemory(const DoctorFacts &facts);
Finding checkChangeTracking(const DoctorFacts &facts);
Finding checkPointer(const DoctorFacts &facts);
Finding checkMonitors(const DoctorFacts &facts);
Finding checkFrontWindow(const DoctorFacts &facts);
Finding checkWindowFacts(const DoctorFacts &facts);

Finding checkSessionBus(const DoctorFacts &facts);
Finding checkAccessibilityService(const DoctorFacts &facts);
Finding checkAccessibilityGrant(const DoctorFacts &facts);
Finding checkKeyring(const DoctorFacts &facts);
Finding checkSleep(const DoctorFacts &facts);
Finding checkBrowserTabs(const DoctorFacts &facts);

Finding checkObserverProgram(const DoctorFacts &facts);
Finding checkNode(const DoctorFacts &facts);

Finding checkSettingsFile(const DoctorFacts &facts);
Finding checkPrivacyRules(const DoctorFacts &facts);
Finding checkSecretFile(const DoctorFacts &facts);
Finding checkJournalFolder(const DoctorFacts &facts);
Finding checkStateFolder(const DoctorFacts &facts);

Finding checkPort(const DoctorFacts &facts);
Finding checkRecorder(const DoctorFacts &facts);

} // namespace ostrel
