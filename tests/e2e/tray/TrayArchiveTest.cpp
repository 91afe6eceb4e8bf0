#include "TrayStory.h"

using namespace ostrel;

namespace {

/// With a folder as the archive's place.
class TrayArchive : public TrayStory
{
protected:
    TrayArchive()
    {
        allowAccessibility();
        const QString vault = m_ostrel.path(QStringLiteral("nas"));
        EXPECT_TRUE(QDir().mkpath(vault));
        EXPECT_TRUE(writeFileAtomically(m_ostrel.path(QStringLiteral(".ostrel/observer/archive/target.json")),
                                        R"({"kind": "folder", "lossless": true, "path": ")" + vault.toUtf8() + "\"}")
                        .has_value());
    }

    /// Turns the archive on by the wizard. @return the key that it showed
    QString enable()
    {
        panel().press("Enable");
        panel().press("Continue");
        const QString key = panel().textOf(panel().waitFor("Recovery key"));
        panel().press("Next");
        panel().press("I saved my recovery key somewhere safe");
        panel().press("Turn on archive");
        panel().waitFor("Disable");
        return key;
    }
};

TEST_F(TrayArchive, wizardToItsEnd_turnsItOnAndItsKeyOpensItAgain)
{
    open().press("Settings");
    const QString recoveryKey = enable();
    EXPECT_TRUE(recoveryKey.startsWith(QStringLiteral("ostrel-vault_"))) << recoveryKey.toStdString();
    panel().press("Disable");
    panel().waitFor("Archive uploads paused.");
    EXPECT_TRUE(panel().shows("Paused"));
    panel().press("Use key");
    panel().fill("Use recovery key", recoveryKey);
    panel().press("Use Key");
    panel().waitFor("Archive vault recovered.");
    end();
}

TEST_F(TrayArchive, exportCard_estimatesAndExportsIntoAFolder)
{
    open().press("Settings");
    enable();
    panel().press("Export footage");
    panel().waitFor("0 clips*");
    panel().press("Export");
    panel().waitFor("Done");
    panel().press("Done");
    panel().waitFor("Disable");
    end();
}

} // namespace
