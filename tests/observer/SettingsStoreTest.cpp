#include "observer/SettingsStore.h"

#include "base/Fault.h"
#include "base/FileLock.h"
#include "base/Files.h"
#include "support/FakeSecretStore.h"
#include "support/Printers.h"

#include "Fixtures.h"
#include "support/TestHome.h"

#include <QDir>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

using namespace ostrel;

namespace {

class Settings : public testing::Test
{
protected:
    void writePrimary(const QByteArray &json) { write(SettingsStore::primaryFile(), json); }
    void writeLegacy(const QByteArray &json) { write(SettingsStore::legacyFile(), json); }
    static QByteArray primary() { return readFile(SettingsStore::primaryFile()).value_or("no file"); }
    static QByteArray legacy() { return readFile(SettingsStore::legacyFile()).value_or("no file"); }
    static ObserverSettings onDisk() { return ObserverSettings::fromJson(primary()).value(); }

    TestHome m_home;
    FakeSecretStore m_secrets;
    SettingsStore m_store{m_secrets};

private:
    static void write(const QString &path, const QByteArray &json)
    {
        ASSERT_TRUE(writeFileAtomically(path, json).has_value());
    }
};

QByteArray withKey(const QByteArray &key)
{
    return R"({"byokGoogleVertexApiKey":")" + key + R"(","localPort":9001})";
}

TEST_F(Settings, fixtures_everyPairOfFilesLoadsAsWritten)
{
    const QStringList files = fixtureFolder("settings").entryList(QDir::Files);
    ASSERT_GE(files.size(), 20);
    for (const QString &file : files) {
        SCOPED_TRACE(file.toStdString());
        const TestHome home;
        const QJsonObject fixture = readFixture(fixtureFolder("settings").filePath(file));
        if (fixture[QStringLiteral("primary")].isString())
            writePrimary(fixture[QStringLiteral("primary")].toString().toUtf8());
        if (fixture[QStringLiteral("legacy")].isString())
            writeLegacy(fixture[QStringLiteral("legacy")].toString().toUtf8());
        const auto expected =
            ObserverSettings::fromJson(QJsonDocument(fixture[QStringLiteral("loaded")].toObject()).toJson());
        ASSERT_TRUE(expected.has_value());
        FakeSecretStore secrets;
        const ObserverSettings loaded = SettingsStore(secrets).load();
        EXPECT_EQ(loaded.toPrettyJson(), expected->toPrettyJson());
    }
}

TEST_F(Settings, noFile_isTheDefaultsWithStoredSecretsAndNothingIsWritten)
{
    m_secrets.put(vertexApiKeyService, QStringLiteral("stored"));
    ObserverSettings expected = ObserverSettings::defaults();
    expected.byokGoogleVertexApiKey = QStringLiteral("stored");
    EXPECT_EQ(m_store.load(), expected);
    EXPECT_TRUE(QDir(m_home.path()).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
}

TEST_F(Settings, secretInFile_isTrimmedIntoTheStoreAndTakenOutOfTheFile)
{
    writePrimary(withKey("  abc\\n"));
    EXPECT_EQ(m_store.load().byokGoogleVertexApiKey, QStringLiteral("abc"));
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("abc"));
    EXPECT_EQ(onDisk().byokGoogleVertexApiKey, QString());
    EXPECT_EQ(onDisk().localPort, 9001);
    EXPECT_FALSE(primary().contains("abc"));
}

TEST_F(Settings, secretThatTheStoreRefuses_staysInTheFileAndIsUsed)
{
    m_secrets.setFaults({.writes = true});
    writePrimary(withKey("abc"));
    EXPECT_EQ(m_store.load().byokGoogleVertexApiKey, QStringLiteral("abc"));
    EXPECT_EQ(primary(), withKey("abc")) << "not even rewritten";
    m_secrets.setFaults({});
    EXPECT_EQ(m_store.load().byokGoogleVertexApiKey, QStringLiteral("abc"));
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("abc"));
    EXPECT_FALSE(primary().contains("abc"));
}

TEST_F(Settings, refusedSecretInFile_beatsTheOlderOneInTheStore)
{
    m_secrets.put(vertexApiKeyService, QStringLiteral("old"));
    m_secrets.setFaults({.writes = true});
    writePrimary(withKey("new"));
    EXPECT_EQ(m_store.load().byokGoogleVertexApiKey, QStringLiteral("new"));
    EXPECT_EQ(primary(), withKey("new"));
}

TEST_F(Settings, storedSecret_beatsAnEmptyOneInTheFile)
{
    m_secrets.put(analysisApiTokenService, QStringLiteral("token"));
    writePrimary("{}");
    EXPECT_EQ(m_store.load().analysisApiToken, QStringLiteral("token"));
    EXPECT_EQ(primary(), QByteArray("{}")) << "nothing was moved, so nothing is written";
}

TEST_F(Settings, storeThatCannotBeRead_countsAsEmpty)
{
    m_secrets.put(analysisApiTokenService, QStringLiteral("token"));
    m_secrets.setFaults({.reads = true});
    writePrimary("{}");
    EXPECT_EQ(m_store.load(), ObserverSettings::defaults());
}

TEST_F(Settings, placeholderInFile_neverReachesTheStore)
{
    m_secrets.put(vertexApiKeyService, QStringLiteral("kept"));
    writePrimary(withKey(" <redacted> "));
    EXPECT_EQ(m_store.load().byokGoogleVertexApiKey, QStringLiteral("kept"));
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("kept"));
}

TEST_F(Settings, legacyFileOnly_isUsedAndStaysTheOnlyFileWithoutASecret)
{
    writeLegacy(R"({"localPort":9002,"outputDirectory":"~/Moravel/journal"})");
    const ObserverSettings settings = m_store.load();
    EXPECT_EQ(settings.localPort, 9002);
    EXPECT_EQ(settings.outputDirectory, QStringLiteral("~/ostrel/journal"));
    EXPECT_FALSE(QFileInfo::exists(SettingsStore::primaryFile()));
}

TEST_F(Settings, secretInLegacyFile_primaryFileIsMadeAndLegacyLosesNothingElse)
{
    writeLegacy("{\"unknown\": 1.50,\n \"analysisApiToken\" : \" old-token \",\"localPort\":9002, "
                "\"byokGoogleVertexApiKey\":\"\"}");
    const ObserverSettings settings = m_store.load();
    EXPECT_EQ(settings.analysisApiToken, QStringLiteral("old-token"));
    EXPECT_EQ(m_secrets.item(analysisApiTokenService), QStringLiteral("old-token"));
    EXPECT_EQ(onDisk().localPort, 9002);
    EXPECT_FALSE(primary().contains("old-token"));
    EXPECT_EQ(legacy(), QByteArray("{\"unknown\": 1.50,\n \"analysisApiToken\" : \"\",\"localPort\":9002, "
                                   "\"byokGoogleVertexApiKey\":\"\"}"));
}

TEST_F(Settings, secretTwiceInLegacyFile_isTakenOutTwice)
{
    writeLegacy(R"({"analysisApiToken":"t","analysisApiToken":"t"})");
    EXPECT_EQ(m_store.load().analysisApiToken, QStringLiteral("t"));
    EXPECT_EQ(legacy(), QByteArray(R"({"analysisApiToken":"","analysisApiToken":""})"));
}

TEST_F(Settings, secretInLegacyFileThatTheStoreRefuses_staysThere)
{
    m_secrets.setFaults({.writes = true});
    writeLegacy(R"({"analysisApiToken":"t"})");
    EXPECT_EQ(m_store.load().analysisApiToken, QStringLiteral("t"));
    EXPECT_EQ(legacy(), QByteArray(R"({"analysisApiToken":"t"})"));
    EXPECT_FALSE(QFileInfo::exists(SettingsStore::primaryFile()));
}

TEST_F(Settings, bothFilesWithTheSameSecret_bothAreScrubbed)
{
    writePrimary(withKey("abc"));
    writeLegacy(R"({"byokGoogleVertexApiKey":"abc","localPort":9002})");
    EXPECT_EQ(m_store.load().localPort, 9001);
    EXPECT_FALSE(primary().contains("abc"));
    EXPECT_EQ(legacy(), QByteArray(R"({"byokGoogleVertexApiKey":"","localPort":9002})"));
}

TEST_F(Settings, bothFilesWithDifferentSecrets_theLegacyOneIsNowhereElseSoItStays)
{
    writePrimary(withKey("abc"));
    writeLegacy(withKey("other"));
    EXPECT_EQ(m_store.load().byokGoogleVertexApiKey, QStringLiteral("abc"));
    EXPECT_EQ(legacy(), withKey("other"));
}

TEST_F(Settings, secretMovedOverABrokenPrimaryFile_theBrokenOneIsKeptBeside)
{
    writePrimary(R"({"localPort":"9001"})");
    writeLegacy(R"({"analysisApiToken":"t"})");
    EXPECT_EQ(m_store.load().analysisApiToken, QStringLiteral("t"));
    EXPECT_EQ(onDisk(), ObserverSettings::defaults());
    EXPECT_EQ(readFile(SettingsStore::primaryFile() + QStringLiteral(".damaged")),
              QByteArray(R"({"localPort":"9001"})"));
}

TEST_F(Settings, folderInPlaceOfTheFile_legacyIsUsedAndSavingSaysSo)
{
    ASSERT_TRUE(QDir().mkpath(SettingsStore::primaryFile() + QStringLiteral("/inside")));
    writeLegacy(R"({"localPort":9002})");
    EXPECT_EQ(m_store.load().localPort, 9002);
    const auto saved = m_store.save(ObserverSettings::defaults());
    ASSERT_FALSE(saved.has_value());
    EXPECT_TRUE(isFault(saved.error(), Fault::IsDirectory));
    EXPECT_TRUE(QFileInfo(SettingsStore::primaryFile() + QStringLiteral("/inside")).isDir());
}

TEST_F(Settings, fileInPlaceOfTheFolder_loadIsTheDefaultsAndSavingSaysSo)
{
    ASSERT_TRUE(writeFileAtomically(m_home.path(QStringLiteral(".ostrel")), "a file").has_value());
    EXPECT_EQ(m_store.load(), ObserverSettings::defaults());
    EXPECT_FALSE(m_store.save(ObserverSettings::defaults()).has_value());
    EXPECT_EQ(readFile(m_home.path(QStringLiteral(".ostrel"))), QByteArray("a file"));
}

TEST_F(Settings, emptyOrTruncatedFile_legacyIsUsedAndTheFileStays)
{
    writeLegacy(R"({"localPort":9002})");
    for (const QByteArray &broken : {QByteArray(), QByteArray(R"({"localPort":90)")}) {
        writePrimary(broken);
        EXPECT_EQ(m_store.load().localPort, 9002);
        EXPECT_EQ(primary(), broken);
    }
}

TEST_F(Settings, save_putsSecretsIntoTheStoreAndAllElseIntoAPrivateFile)
{
    ObserverSettings settings = ObserverSettings::defaults();
    settings.byokGoogleVertexApiKey = QStringLiteral(" key\n");
    settings.analysisApiToken = QStringLiteral("token");
    settings.model = QStringLiteral("m");
    ASSERT_TRUE(m_store.save(settings).has_value());
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("key"));
    EXPECT_EQ(m_secrets.item(analysisApiTokenService), QStringLiteral("token"));
    ObserverSettings expected = settings;
    expected.byokGoogleVertexApiKey = expected.analysisApiToken = QString();
    EXPECT_EQ(primary(), expected.toPrettyJson());
    EXPECT_EQ(QFileInfo(SettingsStore::primaryFile()).permissions() & (QFile::ReadOther | QFile::ReadGroup),
              QFile::Permissions());
}

TEST_F(Settings, savePlaceholder_leavesTheStoredSecretAlone)
{
    m_secrets.put(vertexApiKeyService, QStringLiteral("kept"));
    ObserverSettings settings = ObserverSettings::defaults();
    settings.byokGoogleVertexApiKey = QStringLiteral("<redacted>");
    ASSERT_TRUE(m_store.save(settings).has_value());
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("kept"));
    EXPECT_FALSE(primary().contains("<redacted>"));
}

TEST_F(Settings, saveEmptySecret_deletesTheStoredOne)
{
    m_secrets.put(vertexApiKeyService, QStringLiteral("old"));
    ASSERT_TRUE(m_store.save(ObserverSettings::defaults()).has_value());
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), std::nullopt);
}

TEST_F(Settings, saveWhileTheStoreRefuses_secretStaysInTheFile)
{
    m_secrets.setFaults({.writes = true, .removals = true});
    ObserverSettings settings = ObserverSettings::defaults();
    settings.byokGoogleVertexApiKey = QStringLiteral(" key ");
    ASSERT_TRUE(m_store.save(settings).has_value());
    EXPECT_EQ(onDisk().byokGoogleVertexApiKey, QStringLiteral("key"));
    EXPECT_EQ(m_store.load().byokGoogleVertexApiKey, QStringLiteral("key"));
}

TEST_F(Settings, savePlaceholderWhileTheSecretIsOnlyInTheFile_itStaysThereUntilTheStoreTakesIt)
{
    m_secrets.setFaults({.writes = true});
    writePrimary(withKey("abc"));
    ObserverSettings settings = ObserverSettings::defaults();
    settings.byokGoogleVertexApiKey = QStringLiteral("<redacted>");
    ASSERT_TRUE(m_store.save(settings).has_value());
    EXPECT_EQ(onDisk().byokGoogleVertexApiKey, QStringLiteral("abc"));
    m_secrets.setFaults({});
    ASSERT_TRUE(m_store.save(settings).has_value());
    EXPECT_EQ(onDisk().byokGoogleVertexApiKey, QString());
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("abc"));
}

TEST_F(Settings, homeThatCannotBeWritten_loadWorksAndSaveSaysWhy)
{
    writePrimary(R"({"localPort":9001})");
    const QByteArray home = m_home.path().toLocal8Bit();
    const QByteArray folder = home + "/.ostrel";
    ASSERT_EQ(::chmod(home.constData(), 0555), 0);
    ASSERT_EQ(::chmod(folder.constData(), 0555), 0);
    ASSERT_EQ(::chmod(QFile::encodeName(SettingsStore::primaryFile()).constData(), 0444), 0);
    const int status = inForkedChild([&] {
        if (!dropPrivileges())
            return 1;
        if (m_store.load().localPort != 9001)
            return 2;
        const auto saved = m_store.save(ObserverSettings::defaults());
        return !saved && isFault(saved.error(), Fault::PermissionDenied) ? 0 : 3;
    });
    ASSERT_EQ(::chmod(folder.constData(), 0755), 0);
    ASSERT_EQ(::chmod(home.constData(), 0755), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(primary(), QByteArray(R"({"localPort":9001})"));
}

TEST_F(Settings, fileThatCannotBeRead_legacyIsUsedAndItStays)
{
    writePrimary(R"({"localPort":9001})");
    writeLegacy(R"({"localPort":9002})");
    const auto chmod = [](const QString &path, mode_t mode) {
        return ::chmod(QFile::encodeName(path).constData(), mode);
    };
    ASSERT_EQ(chmod(m_home.path(), 0755), 0);
    ASSERT_EQ(chmod(m_home.path(QStringLiteral(".ostrel")), 0755), 0);
    ASSERT_EQ(chmod(m_home.path(QStringLiteral(".moravel")), 0755), 0);
    ASSERT_EQ(chmod(SettingsStore::legacyFile(), 0644), 0);
    ASSERT_EQ(chmod(SettingsStore::primaryFile(), 0), 0);
    const int status = inForkedChild([&] { return !dropPrivileges() ? 1 : m_store.load().localPort == 9002 ? 0 : 2; });
    EXPECT_EQ(status, 0);
    ASSERT_EQ(chmod(SettingsStore::primaryFile(), 0600), 0);
    EXPECT_EQ(primary(), QByteArray(R"({"localPort":9001})"));
}

/// From now on the kernel kills this process in the moment in which it would rename a file.
bool dieAtTheNextRename()
{
    const sock_filter kill = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS);
    std::vector<sock_filter> program = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const unsigned call : {
#ifdef SYS_rename
             unsigned(SYS_rename),
#endif
             unsigned(SYS_renameat), unsigned(SYS_renameat2)}) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        program.push_back(kill);
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog filter = {.len = static_cast<unsigned short>(program.size()), .filter = program.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST_F(Settings, killBetweenTemporaryFileAndRename_leavesTheOldFileWhole)
{
    ObserverSettings before = ObserverSettings::defaults();
    before.model = QStringLiteral("before");
    ASSERT_TRUE(m_store.save(before).has_value());
    const QByteArray bytes = primary();

    const int status = inForkedChild([&] {
        if (!dieAtTheNextRename())
            return 1;
        ObserverSettings after = before;
        after.model = QStringLiteral("after");
        return m_store.save(after) ? 2 : 3;
    });

    ASSERT_TRUE(WIFSIGNALED(status)) << "it ended with " << status;
    EXPECT_EQ(WTERMSIG(status), SIGSYS);
    EXPECT_EQ(primary(), bytes);
    EXPECT_EQ(m_store.load(), before);
    const QStringList files =
        QDir(m_home.path(QStringLiteral(".ostrel"))).entryList({QStringLiteral("settings.json.??????")}, QDir::Files);
    EXPECT_EQ(files.size(), 1) << "the temporary file proves that the kill came after it was written";
}

TEST_F(Settings, change_startsFromWhatIsThereAndLeavesSecretsAlone)
{
    writePrimary(R"({"localPort":9001})");
    m_secrets.put(vertexApiKeyService, QStringLiteral("kept"));
    const auto saved = m_store.change([](ObserverSettings &settings) -> Result<> {
        EXPECT_EQ(settings.localPort, 9001);
        EXPECT_EQ(settings.byokGoogleVertexApiKey, SettingsStore::redacted);
        EXPECT_EQ(settings.analysisApiToken, SettingsStore::redacted);
        settings.frameFps = 1;
        return {};
    });
    EXPECT_EQ(saved, SavedSettings());
    EXPECT_EQ(onDisk().frameFps, 1);
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("kept"));
}

TEST_F(Settings, changeThatRefuses_leavesTheFileAsItWas)
{
    writePrimary(R"({"localPort":9001})");
    const Error refusal = faultError(Fault::Cancelled);
    EXPECT_EQ(m_store.change([&](ObserverSettings &) -> Result<> { return std::unexpected(refusal); }),
              std::unexpected(refusal));
    EXPECT_EQ(primary(), QByteArray(R"({"localPort":9001})"));
}

TEST_F(Settings, whileAnotherProgramChangesThem_nothingIsWrittenAndItSaysSo)
{
    SettingsStore impatient(m_secrets, std::chrono::milliseconds(20));
    writePrimary(withKey("abc"));
    FileLock other(SettingsStore::primaryFile() + QLatin1String(".lock"));
    ASSERT_EQ(other.acquire(std::chrono::milliseconds(0)), FileLock::Outcome::Acquired);

    const auto saved = impatient.save(ObserverSettings::defaults());
    ASSERT_FALSE(saved.has_value());
    EXPECT_TRUE(isFault(saved.error(), Fault::FileFailed));
    EXPECT_FALSE(impatient.change([](ObserverSettings &) -> Result<> { return {}; }).has_value());
    EXPECT_EQ(impatient.load().byokGoogleVertexApiKey, QStringLiteral("abc")) << "reading needs no turn";
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), std::nullopt) << "moving a secret does";
    EXPECT_EQ(primary(), withKey("abc"));
}

TEST_F(Settings, recordThatIsThereAlready_isNotWrittenAgain)
{
    ASSERT_TRUE(m_store.save(ObserverSettings::defaults()).has_value());
    struct stat before{}, after{};
    ASSERT_EQ(::stat(QFile::encodeName(SettingsStore::primaryFile()).constData(), &before), 0);
    ASSERT_TRUE(m_store.save(ObserverSettings::defaults()).has_value());
    ASSERT_EQ(::stat(QFile::encodeName(SettingsStore::primaryFile()).constData(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
}

} // namespace
