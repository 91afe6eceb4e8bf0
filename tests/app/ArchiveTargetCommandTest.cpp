#include "ArchiveCommandFixture.h"
#include "observer/ArchiveTarget.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>

using namespace ostrel;
using testing::HasSubstr;
using testing::Not;

namespace {

const QByteArray getTarget = "GET /api/archive/target";
const QByteArray putTarget = "PUT /api/archive/target";
const QByteArray none = R"({"kind":"none","lossless":false})";
const QByteArray nas = R"({"kind":"folder","lossless":false,"path":"/mnt/nas"})";
const QByteArray bucket =
    R"({"kind":"s3","lossless":true,"endpoint":"https://s3.example.org","region":"us-east-1","bucket":"footage",)"
    R"("prefix":"mine","pathStyle":true,"accessKeyId":"AKID","secretAccessKey":"<redacted>"})";
const QByteArray secret = "wJalrXUtnFEMI";

class ArchiveTargetCommand : public ArchiveCommandFixture
{
protected:
    CommandResult target(const char *words = "", const QByteArray &input = {})
    {
        return archiveDoes(QStringLiteral("target %1").arg(QString::fromUtf8(words)).split(u' ', Qt::SkipEmptyParts),
                           input);
    }
    /// What there is before a place is chosen.
    void have(const QByteArray &place, const char *vault = "")
    {
        script(getArchive, archive(false, vault));
        script(getTarget, place);
    }
    QJsonObject sent() const { return QJsonDocument::fromJson(bodyOf(putTarget)).object(); }
    int timesSent() const { return int(asked().count(putTarget)); }
};

const char *const s3Words = "s3 footage --endpoint https://s3.example.org --access-key AKID";

TEST_F(ArchiveTargetCommand, withoutAPlace_showsWhereItLies)
{
    script(getTarget, nas);
    const CommandResult shown = target();
    EXPECT_EQ(shown.status, ExitSuccess) << shown.messages.toStdString();
    EXPECT_EQ(shown.output, QStringLiteral("place        /mnt/nas\npictures     as video where it can be made\n"));
    script(getTarget, none);
    EXPECT_THAT(target().output.toStdString(), HasSubstr("not chosen"));
    EXPECT_EQ(asked(), QList<QByteArray>({getTarget, getTarget})) << "nothing else";
}

TEST_F(ArchiveTargetCommand, json_hasEveryFieldAndNoSecret)
{
    script(getTarget, bucket);
    const QJsonObject shown = QJsonDocument::fromJson(target("--json").output.toUtf8()).object();
    const QJsonObject expected{{QStringLiteral("kind"), QStringLiteral("s3")},
                               {QStringLiteral("lossless"), true},
                               {QStringLiteral("path"), QJsonValue::Null},
                               {QStringLiteral("endpoint"), QStringLiteral("https://s3.example.org")},
                               {QStringLiteral("region"), QStringLiteral("us-east-1")},
                               {QStringLiteral("bucket"), QStringLiteral("footage")},
                               {QStringLiteral("prefix"), QStringLiteral("mine")},
                               {QStringLiteral("pathStyle"), true},
                               {QStringLiteral("accessKeyId"), QStringLiteral("AKID")},
                               {QStringLiteral("secretAccessKey"), QStringLiteral("<redacted>")},
                               {QStringLiteral("remote"), QJsonValue::Null}};
    EXPECT_EQ(shown, expected);
}

TEST_F(ArchiveTargetCommand, observerThatKnowsNoPlaces_isStatus1AndChangesNothing)
{
    script(getArchive, archive(false, ""));
    script(getTarget, "{}", 404);
    EXPECT_EQ(target().messages, QStringLiteral("ostrel: This observer lets nobody choose where the archive lies.\n"));
    const CommandResult changed = target("folder /mnt/nas");
    EXPECT_EQ(changed.status, ExitFailed);
    EXPECT_EQ(changed.messages, target().messages);
}

TEST_F(ArchiveTargetCommand, folder_isTakenOverAsAnAbsolutePath)
{
    have(none);
    script(putTarget, nas);
    const CommandResult changed = target("folder nas");
    EXPECT_EQ(changed.status, ExitSuccess) << changed.messages.toStdString();
    EXPECT_EQ(changed.messages, QStringLiteral("The archive's place is /mnt/nas.\n")) << "as the observer told it";
    const QJsonObject expected{{QStringLiteral("kind"), QStringLiteral("folder")},
                               {QStringLiteral("lossless"), false},
                               {QStringLiteral("path"), QDir::current().absoluteFilePath(QStringLiteral("nas"))}};
    EXPECT_EQ(sent(), expected);
    target("folder ~/nas");
    EXPECT_EQ(timesSent(), 2);
}

TEST_F(ArchiveTargetCommand, bucket_takesItsSecretFromStandardInput)
{
    have(none);
    script(putTarget, bucket);
    const CommandResult changed =
        target("s3 footage --endpoint https://s3.example.org --access-key AKID --region eu-central-1 --prefix mine "
               "--path-style --lossless true",
               secret + "\n");
    EXPECT_EQ(changed.status, ExitSuccess) << changed.messages.toStdString();
    const QJsonObject expected{{QStringLiteral("kind"), QStringLiteral("s3")},
                               {QStringLiteral("lossless"), true},
                               {QStringLiteral("endpoint"), QStringLiteral("https://s3.example.org")},
                               {QStringLiteral("region"), QStringLiteral("eu-central-1")},
                               {QStringLiteral("bucket"), QStringLiteral("footage")},
                               {QStringLiteral("prefix"), QStringLiteral("mine")},
                               {QStringLiteral("pathStyle"), true},
                               {QStringLiteral("accessKeyId"), QStringLiteral("AKID")},
                               {QStringLiteral("secretAccessKey"), QString::fromLatin1(secret)}};
    EXPECT_EQ(sent(), expected);
    EXPECT_THAT((changed.output + changed.messages).toStdString(), Not(HasSubstr(secret.toStdString())));
}

TEST_F(ArchiveTargetCommand, bucket_takesItsSecretFromAFile)
{
    have(none);
    script(putTarget, bucket);
    const QString file = m_home.path(QStringLiteral("secret"));
    ASSERT_TRUE(writeFileAtomically(file, secret + "\n").has_value());
    EXPECT_EQ(target(qPrintable(QString::fromUtf8(s3Words) + QStringLiteral(" --secret-file ") + file)).status,
              ExitSuccess);
    EXPECT_EQ(sent()[QStringLiteral("secretAccessKey")].toString(), QString::fromLatin1(secret));
    EXPECT_EQ(sent()[QStringLiteral("region")].toString(), QStringLiteral("us-east-1"));
}

TEST_F(ArchiveTargetCommand, secretThatIsMissing_isStatus2AndAsksNothing)
{
    EXPECT_EQ(target(s3Words).status, ExitUsage);
    EXPECT_EQ(target(s3Words, "\n").status, ExitUsage);
    EXPECT_EQ(target(qPrintable(QString::fromUtf8(s3Words) + QStringLiteral(" --secret-file /nowhere"))).status,
              ExitUsage);
    EXPECT_EQ(asked(), QList<QByteArray>());
}

TEST_F(ArchiveTargetCommand, secretAsAnArgument_isRefusedWithTheWayAndNeverEchoed)
{
    const CommandResult refused = target(qPrintable(QString::fromUtf8(s3Words) + u' ' + QString::fromLatin1(secret)));
    EXPECT_EQ(refused.status, ExitUsage);
    EXPECT_THAT(refused.messages.toStdString(), HasSubstr("--secret-file FILE"));
    EXPECT_THAT(refused.messages.toStdString(), Not(HasSubstr(secret.toStdString())));
}

TEST_F(ArchiveTargetCommand, wrongUse_isStatus2AndAsksNothing)
{
    for (const char *words :
         {"tape /dev/st0", "folder", "folder /a /b", "folder /a --endpoint https://a.example", "--prefix a", "--yes",
          "rclone", "rclone mycloud", "s3 footage", "s3 footage --endpoint https://a.example", "folder /a --key-file a",
          "s3 Footage --endpoint https://a.example --access-key A", "folder /a --lossless maybe",
          "s3 footage --endpoint http://a.example --access-key A"}) {
        const CommandResult refused = target(words, "secret\n");
        EXPECT_EQ(refused.status, ExitUsage) << words;
        EXPECT_EQ(refused.output, QString()) << words;
    }
    EXPECT_EQ(archiveDoes({QStringLiteral("target"), QStringLiteral("folder"), QString()}).status, ExitUsage);
    EXPECT_EQ(archiveDoes({QStringLiteral("status"), QStringLiteral("--yes")}).status, ExitUsage);
    EXPECT_EQ(asked(), QList<QByteArray>());
}

TEST_F(ArchiveTargetCommand, anotherPlaceForAnArchiveInUse_isAskedAbout)
{
    have(nas, "vault-1");
    script(putTarget, R"({"kind":"rclone","lossless":false,"remote":"mycloud:footage"})");
    for (const char *answer : {"", "no\n", "y\n"}) {
        const CommandResult kept = target("rclone mycloud:footage", answer);
        EXPECT_EQ(kept.status, ExitFailed);
        EXPECT_THAT(kept.messages.toStdString(), HasSubstr("The archive's place stays as it is."));
    }
    EXPECT_EQ(timesSent(), 0);
    EXPECT_EQ(target("rclone mycloud:footage", "yes\n").status, ExitSuccess);
    EXPECT_EQ(target("rclone mycloud:footage --yes").status, ExitSuccess);
    EXPECT_EQ(timesSent(), 2);
}

TEST_F(ArchiveTargetCommand, secretAndAnswer_areTwoLinesOfStandardInput)
{
    have(nas, "vault-1");
    script(putTarget, bucket);
    EXPECT_EQ(target(s3Words, secret + "\nyes\n").status, ExitSuccess);
    EXPECT_EQ(sent()[QStringLiteral("secretAccessKey")].toString(), QString::fromLatin1(secret));
}

TEST_F(ArchiveTargetCommand, whatIsNotTold_staysAsItIs)
{
    have(bucket);
    script(putTarget, nas);
    target("folder /mnt/nas");
    EXPECT_TRUE(sent()[QStringLiteral("lossless")].toBool());
}

TEST_F(ArchiveTargetCommand, refusal_isStatus1WithTheObserversWords)
{
    have(none);
    when(putTarget, [this] {
        ObserverStatus status;
        status.lastError = QStringLiteral("There is no folder /mnt/nas.");
        script(getStatus, status.toJson());
    });
    script(putTarget, "{}", 502);
    const CommandResult refused = target("folder /mnt/nas");
    EXPECT_EQ(refused.status, ExitFailed);
    EXPECT_EQ(refused.messages, QStringLiteral("ostrel: There is no folder /mnt/nas.\n"));
}

TEST_F(ArchiveTargetCommand, placeThatTheObserverCannotMakeSenseOf_canBeReplaced)
{
    have("{}");
    script(getTarget, "{}", 409);
    script(putTarget, nas);
    EXPECT_EQ(target().status, ExitFailed);
    EXPECT_EQ(target("folder /mnt/nas").status, ExitSuccess);
}

} // namespace
