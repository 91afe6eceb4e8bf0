#include "FindingMatchers.h"
#include "HealthyFacts.h"

#include "app/doctor/Checks.h"
#include "base/Fault.h"

#include <cerrno>

using namespace ostrel;

namespace {

class FileChecks : public testing::Test
{
protected:
    static void refuse(FolderFacts &folder, int errorNumber)
    {
        folder.writability = Writability::Refused;
        folder.errorNumber = errorNumber;
    }

    DoctorFacts m_facts = healthyFacts();
};

TEST_F(FileChecks, settings_areToldByTheirSource)
{
    EXPECT_THAT(checkSettingsFile(m_facts), isOk("the defaults hold"));
    m_facts.settings.source = SettingsOnDisk::Source::PrimaryFile;
    EXPECT_THAT(checkSettingsFile(m_facts), isOk(".ostrel/settings.json can be read"));
    m_facts.settings.source = SettingsOnDisk::Source::LegacyFile;
    EXPECT_THAT(checkSettingsFile(m_facts), isOk(".moravel/settings.json can be read"));
}

TEST_F(FileChecks, settingsLeftAside_sayTheComplaintAndOpenTheFile)
{
    m_facts.settings.primaryFault = faultError(Fault::UndecodableAnswer, QStringLiteral("chunkSizeMs is no number"));
    EXPECT_THAT(checkSettingsFile(m_facts),
                isMissing("settings.json is left aside: The data could not be understood: chunkSizeMs",
                          "\"${EDITOR:-nano}\" ~/.ostrel/settings.json"));
}

TEST_F(FileChecks, settingsThatNoEditorCanOpen_areGivenToTheUserOrMovedAway)
{
    m_facts.settings.primaryFault = fileError(EACCES, QStringLiteral("settings.json"));
    EXPECT_THAT(checkSettingsFile(m_facts),
                isMissing("no permission",
                          "sudo chown \"$USER\" ~/.ostrel/settings.json && chmod u+rw ~/.ostrel/settings.json"));
    for (const int number : {EISDIR, ENXIO}) {
        m_facts.settings.primaryFault = fileError(number, QStringLiteral("settings.json"));
        EXPECT_THAT(checkSettingsFile(m_facts),
                    isMissing("left aside", "mv ~/.ostrel/settings.json ~/.ostrel/settings.json.aside"));
    }
    m_facts.settings.primaryFault.reset();
    m_facts.settings.legacyFault = fileError(EACCES, QStringLiteral("settings.json"));
    EXPECT_THAT(checkSettingsFile(m_facts),
                isMissing("no permission", "sudo chown \"$USER\" ~/.moravel/settings.json"));
}

TEST_F(FileChecks, privacyRules_areOkAlsoWithoutAFile)
{
    EXPECT_THAT(checkPrivacyRules(m_facts), isOk("there is no file, so the built-in ones hold"));
    m_facts.privacyRules = PrivacyRulesText::parse(R"({"excludedWindowClasses": ["Mine"]})");
    EXPECT_THAT(checkPrivacyRules(m_facts), isOk(".ostrel/privacy.json can be read"));
}

TEST_F(FileChecks, privacyRulesLeftAside_sayTheKeyOrTheByteAndOpenTheFile)
{
    m_facts.privacyRules = PrivacyRulesText::parse(R"({"excludedWindowClasses": "Mine"})");
    EXPECT_THAT(checkPrivacyRules(m_facts),
                isMissing("privacy.json is left aside, the built-in rules hold: The data could not be understood: "
                          "excludedWindowClasses is no list",
                          "\"${EDITOR:-nano}\" ~/.ostrel/privacy.json"));
    m_facts.privacyRules = PrivacyRulesText::parse("{\"excludedWindowClasses\": [");
    EXPECT_THAT(checkPrivacyRules(m_facts), isMissing("at byte 27", "\"${EDITOR:-nano}\" ~/.ostrel/privacy.json"));
}

TEST_F(FileChecks, privacyRulesThatNoEditorCanOpen_areGivenToTheUserOrMovedAway)
{
    m_facts.privacyRules = std::unexpected(fileError(EACCES, QStringLiteral("privacy.json")));
    EXPECT_THAT(checkPrivacyRules(m_facts), isMissing("no permission", "sudo chown \"$USER\" ~/.ostrel/privacy.json"));
    m_facts.privacyRules = std::unexpected(fileError(EISDIR, QStringLiteral("privacy.json")));
    EXPECT_THAT(checkPrivacyRules(m_facts),
                isMissing("left aside", "mv ~/.ostrel/privacy.json ~/.ostrel/privacy.json.aside"));
}

TEST_F(FileChecks, privacyRulesInPartUnusable_nameTheListAndTheEntryOnOneLine)
{
    m_facts.privacyRules = PrivacyRulesText::parse(
        R"({"excludedApplications": ["good", 7, "", null, 8], "excludedTitlePatterns": ["(\n"]})");
    const Finding finding = checkPrivacyRules(m_facts);
    EXPECT_THAT(finding, isMissing("not all of ~/.ostrel/privacy.json can be used, the other rules hold: "
                                   "entry 2 of excludedApplications",
                                   "\"${EDITOR:-nano}\" ~/.ostrel/privacy.json"));
    EXPECT_THAT(finding.detail.toStdString(), testing::EndsWith("; and 2 more"));
    m_facts.privacyRules = PrivacyRulesText::parse(R"({"excludedTitlePatterns": ["(\n"]})");
    EXPECT_THAT(checkPrivacyRules(m_facts).detail.toStdString(),
                testing::HasSubstr("\"(\\u{a}\" of excludedTitlePatterns is no regular expression"));
}

TEST_F(FileChecks, secretFile_isJudgedByOwnerAndMode)
{
    EXPECT_THAT(checkSecretFile(m_facts), isOk("there is none"));
    SecretFileFacts &file = m_facts.secretFile;
    file.exists = true;
    EXPECT_THAT(checkSecretFile(m_facts), isMissing("another user", "sudo chown \"$USER\" /data/secrets.json"));
    file.isOurs = true;
    EXPECT_THAT(checkSecretFile(m_facts), isMissing("read by others", "chmod 600 /data/secrets.json"));
    file.isClosedToOthers = true;
    EXPECT_THAT(checkSecretFile(m_facts), isOk("readable by you alone"));
}

TEST_F(FileChecks, folders_tellTheirSpaceAndWhatWasTried)
{
    EXPECT_THAT(checkJournalFolder(m_facts), isOk("/data/journal, can be written; 123.0 GB free"));
    m_facts.journalFolder.writability = Writability::Permitted;
    m_facts.journalFolder.exists = false;
    EXPECT_THAT(checkJournalFolder(m_facts), isOk("may be written (it is made when it is needed)"));
    EXPECT_THAT(checkStateFolder(m_facts), isOk("/data/observer, can be written; 123.0 GB free"));
}

TEST_F(FileChecks, journalFolderRefused_letsRecordingWaitAndNamesTheCommand)
{
    refuse(m_facts.journalFolder, EACCES);
    EXPECT_THAT(checkJournalFolder(m_facts), isMissing("What is recorded waits", "chmod u+rwx /data/journal"));
    m_facts.journalFolder.isOurs = false;
    EXPECT_THAT(checkJournalFolder(m_facts), isMissing("no permission", "sudo chown \"$USER\" /data/journal"));
    m_facts.journalFolder.exists = false;
    EXPECT_THAT(checkJournalFolder(m_facts),
                isMissing("", "sudo mkdir -p /data/journal && sudo chown \"$USER\" /data/journal"));
    refuse(m_facts.journalFolder, EROFS);
    EXPECT_THAT(checkJournalFolder(m_facts),
                isMissing("can only be read", "ostrel settings set outputDirectory ~/ostrel/journal"));
}

TEST_F(FileChecks, journalFolderNamedNowhere_isMissing)
{
    m_facts.journalFolder = {};
    EXPECT_THAT(checkJournalFolder(m_facts),
                isMissing("the settings name none", "ostrel settings set outputDirectory"));
}

TEST_F(FileChecks, littleSpace_isToldBeforeNothingIsLeft)
{
    m_facts.journalFolder.freeBytes = 12'300'000;
    m_facts.stateFolder.freeBytes = 12'300'000;
    EXPECT_THAT(checkJournalFolder(m_facts), isMissing("12.3 MB free: nearly full", "make room"));
    EXPECT_THAT(checkStateFolder(m_facts), isMissing("12.3 MB free: pictures may be lost", "make room"));
    m_facts.stateFolder.freeBytes = 0;
    EXPECT_THAT(checkStateFolder(m_facts), isBlocking("is full", "make room"));
}

TEST_F(FileChecks, stateFolderRefused_blocks)
{
    refuse(m_facts.stateFolder, EACCES);
    EXPECT_THAT(checkStateFolder(m_facts), isBlocking("cannot be written", "chmod u+rwx /data/observer"));
    refuse(m_facts.stateFolder, EROFS);
    EXPECT_THAT(checkStateFolder(m_facts), isBlocking("can only be read", "make the disk of /data/observer writable"));
}

TEST_F(FileChecks, programsFolderRefused_blocksAndIsMendedItself)
{
    refuse(m_facts.ownFolder, EACCES);
    EXPECT_THAT(checkStateFolder(m_facts), isBlocking("/data cannot be written", "chmod u+rwx /data"));
    m_facts.ownFolder.isOurs = false;
    const Finding foreign = checkStateFolder(m_facts);
    EXPECT_THAT(foreign, isBlocking("/data cannot be written: There is no permission", "sudo chown -R"));
    EXPECT_EQ(foreign.fix, QStringLiteral("sudo chown -R \"$USER\" /data"));
    refuse(m_facts.stateFolder, EACCES);
    EXPECT_EQ(checkStateFolder(m_facts), foreign) << "what it holds is mended with it";
    refuse(m_facts.ownFolder, EROFS);
    EXPECT_THAT(checkStateFolder(m_facts), isBlocking("can only be read", "make the disk of /data writable"));
}

} // namespace
