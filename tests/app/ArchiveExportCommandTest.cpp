#include "ArchiveCommandFixture.h"

#include <QDate>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>

#include <csignal>

using namespace ostrel;
using testing::HasSubstr;
using testing::Not;

namespace {

class ArchiveExportCommand : public ArchiveCommandFixture
{};

TEST_F(ArchiveExportCommand, export_sendsTheRangeAndFollowsItToTheEnd)
{
    haveVault();
    script(startExport, exporting("running"));
    when(startExport, [this] { script(getExport, exporting("done", 9, 1)); });
    const auto outcome = exports({QStringLiteral("--from"), QStringLiteral("2026-11-21"), QStringLiteral("--to"),
                                  QStringLiteral("2026-11-01"), QStringLiteral("--json")});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, QStringLiteral("Export complete: 9 clips, 1 skipped.\n"));
    EXPECT_EQ(bodyOf(startExport),
              QByteArray(R"({"destinationDirectory":"/srv/out","fromDate":"2026-11-21","toDate":"2026-11-01"})"));
    const auto json = QJsonDocument::fromJson(outcome.output.toUtf8());
    EXPECT_EQ(json[QStringLiteral("exported")], 9);
    EXPECT_EQ(json[QStringLiteral("state")], QStringLiteral("done"));
}

TEST_F(ArchiveExportCommand, exportIntoARelativeFolder_isThatOfTheTerminal)
{
    haveVault();
    script(startExport, exporting("running"));
    when(startExport, [this] { script(getExport, exporting("done", 10)); });
    EXPECT_EQ(archiveDoes({QStringLiteral("export"), QStringLiteral("--into"), QStringLiteral("here/../out")}).status,
              0);
    EXPECT_THAT(bodyOf(startExport).toStdString(),
                HasSubstr("\"destinationDirectory\":\"" + QDir::currentPath().toStdString() + "/out\""));
}

TEST_F(ArchiveExportCommand, exportThatFails_isStatus1WithTheReason)
{
    haveVault();
    script(startExport, exporting("running"));
    when(startExport, [this] {
        script(getExport, R"({"state":"failed","exported":3,"total":10,"skipped":0,"error":"The disk is full."})");
    });
    const auto outcome = exports();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages, QStringLiteral("ostrel: Export failed: The disk is full.\n"));
    EXPECT_EQ(outcome.output, QString());
}

TEST_F(ArchiveExportCommand, exportInterrupted_cancelsItOnTheObserver)
{
    haveVault();
    script(startExport, exporting("running"));
    script(cancelExport, exporting("cancelled", 3));
    when(startExport, [this] {
        script(getExport, exporting("running", 3));
        ::raise(SIGINT);
    });
    when(cancelExport, [this] { script(getExport, exporting("cancelled", 3)); });
    const auto outcome = exports();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages, QStringLiteral("ostrel: Export cancelled after 3 of 10 clips (2026-11-20).\n"));
    EXPECT_EQ(asked().count(cancelExport), 1);
}

TEST_F(ArchiveExportCommand, exportThatTheObserverForgets_isStatus1)
{
    haveVault();
    script(startExport, exporting("running"));
    const auto outcome = exports();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("knows of no export any more"));
}

TEST_F(ArchiveExportCommand, exportWhileOneRuns_isStatus1AndStartsNone)
{
    haveVault();
    script(getExport, exporting("running", 3));
    const auto outcome = exports();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("under way already: 3 of 10 clips"));
    EXPECT_FALSE(asked().contains(startExport));
}

TEST_F(ArchiveExportCommand, exportThatIsRefused_isStatus1WithItsWords)
{
    haveVault();
    refuse(startExport);
    const auto outcome = exports();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages, QStringLiteral("ostrel: The server gave an answer that could not be used.\n"));
}

TEST_F(ArchiveExportCommand, exportWithoutAVault_isStatus1)
{
    haveVault();
    script(getArchive, archive(false, ""));
    const auto outcome = exports();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages, QStringLiteral("ostrel: Archive vault not configured\n"));
    EXPECT_FALSE(asked().contains(startExport));
}

} // namespace
