#include "ArchiveCommandFixture.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <sys/stat.h>

using namespace ostrel;
using testing::HasSubstr;
using testing::Not;

namespace {

const QByteArray preview = "GET /api/preview";
const QByteArray previewWithPictures = "GET /api/preview?pictures=1";

/// What an observer says of a request of two frames, the second of which is nobody's business.
QByteArray twoFrames(const char *base64 = nullptr, const char *pictureName = "1-0.jpg")
{
    QJsonObject picture{{QStringLiteral("name"), QLatin1String(pictureName)},
                        {QStringLiteral("mimeType"), QStringLiteral("image/jpeg")},
                        {QStringLiteral("bytes"), 7}};
    if (base64)
        picture.insert(QStringLiteral("base64"), QLatin1String(base64));
    const QJsonObject sent{{QStringLiteral("atMs"), qint64(1'795'250'000'000)},
                           {QStringLiteral("displayId"), QStringLiteral("1")},
                           {QStringLiteral("displayLabel"), QStringLiteral("Left\x1b[2J")},
                           {QStringLiteral("width"), 1920},
                           {QStringLiteral("height"), 1080},
                           {QStringLiteral("isSent"), true},
                           {QStringLiteral("text"), QStringLiteral("Editor")},
                           {QStringLiteral("picture"), picture}};
    QJsonObject left = sent;
    left.remove(QStringLiteral("picture"));
    left.remove(QStringLiteral("text"));
    left.insert(QStringLiteral("isSent"), false);
    left.insert(QStringLiteral("leftOut"), QStringLiteral("the privacy rules exclude it"));
    const QJsonObject recipient{{QStringLiteral("url"), QStringLiteral("https://ai.example.org/v1/chat/completions")},
                                {QStringLiteral("host"), QStringLiteral("ai.example.org")},
                                {QStringLiteral("model"), QStringLiteral("eyes")}};
    return QJsonDocument(QJsonObject{{QStringLiteral("recipient"), recipient},
                                     {QStringLiteral("instructions"), QStringLiteral("Write lines.")},
                                     {QStringLiteral("prompt"),
                                      QJsonArray{QStringLiteral("Frame 09:53:20"), QStringLiteral("(1-0.jpg)")}},
                                     {QStringLiteral("request"), QStringLiteral("{}")},
                                     {QStringLiteral("frames"), QJsonArray{sent, left}}})
        .toJson();
}

/// `ostrel preview` in this process, with an observer by script.
class PreviewCommand : public ArchiveCommandFixture
{
protected:
    CommandResult previews(const QStringList &words = {})
    {
        return run(QStringList(QStringLiteral("preview")) + words);
    }
    CommandResult writesFrames() { return previews({QStringLiteral("--frames"), folder()}); }
    QString folder() const { return QDir::homePath() + QLatin1String("/out"); }
    static mode_t modeOf(const QString &path)
    {
        struct stat info{};
        EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0);
        return info.st_mode & 07777;
    }
};

TEST_F(PreviewCommand, request_isShownWithItsRecipientAndWhatIsLeftOut)
{
    script(preview, twoFrames());
    const auto outcome = previews();
    EXPECT_EQ(outcome.status, 0);
    const std::string text = outcome.output.toStdString();
    EXPECT_THAT(text, HasSubstr("to      ai.example.org (https://ai.example.org/v1/chat/completions)\nmodel   eyes\n"));
    EXPECT_THAT(text, HasSubstr("frames  2\n"));
    EXPECT_THAT(text, HasSubstr("1920 x 1080, 1-0.jpg, 7 bytes\n"));
    EXPECT_THAT(text, HasSubstr("1920 x 1080, left out: the privacy rules exclude it\n"));
    EXPECT_THAT(text, HasSubstr("Instructions:\n  Write lines.\n\nPrompt:\n  Frame 09:53:20\n  (1-0.jpg)\n"));
    EXPECT_THAT(text, Not(HasSubstr("\x1b"))) << "a display's name drives no terminal";
}

TEST_F(PreviewCommand, longPrompt_isShownToItsEnd)
{
    QJsonObject record = QJsonDocument::fromJson(twoFrames()).object();
    record.insert(QStringLiteral("prompt"), QJsonArray{QString(5'000, u'x') + QStringLiteral("the end\x1b")});
    script(preview, QJsonDocument(record).toJson());
    EXPECT_THAT(previews().output.toStdString(), HasSubstr("xxxthe end\\u{1b}\n"));
}

TEST_F(PreviewCommand, nothingQueued_isSaid)
{
    script(preview, R"({"reason": "Nothing waits to be sent.", "prompt": [], "frames": []})");
    EXPECT_EQ(previews().output, QStringLiteral("Nothing waits to be sent.\n"));
}

TEST_F(PreviewCommand, requestThatHasToWait_saysWhatFor)
{
    QJsonObject record = QJsonDocument::fromJson(twoFrames()).object();
    record.insert(QStringLiteral("reason"), QStringLiteral("The server is down."));
    script(preview, QJsonDocument(record).toJson());
    EXPECT_THAT(previews().output.toStdString(), HasSubstr("waits   The server is down.\n"));
}

TEST_F(PreviewCommand, json_hasEveryKeyAndNoPicture)
{
    script(previewWithPictures, twoFrames("AAEC"));
    const auto outcome = previews({QStringLiteral("--json"), QStringLiteral("--frames"), folder()});
    EXPECT_THAT(outcome.output.toStdString(), Not(HasSubstr("AAEC")));
    const auto json = QJsonDocument::fromJson(outcome.output.toUtf8());
    EXPECT_TRUE(json[QStringLiteral("reason")].isNull());
    EXPECT_TRUE(json[QStringLiteral("frames")][1][QStringLiteral("picture")].isNull());
    EXPECT_EQ(json[QStringLiteral("frames")][0][QStringLiteral("picture")][QStringLiteral("bytes")], 7);
}

TEST_F(PreviewCommand, frames_areWrittenForTheUserAlone)
{
    script(previewWithPictures, twoFrames("AAEC"));
    const auto outcome = writesFrames();
    EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("1 pictures are in"));
    EXPECT_EQ(readFile(folder() + QLatin1String("/1-0.jpg")).value_or(QByteArray()), QByteArray("\0\1\2", 3));
    EXPECT_EQ(modeOf(folder()), 0700U);
    EXPECT_EQ(modeOf(folder() + QLatin1String("/1-0.jpg")), 0600U);
}

TEST_F(PreviewCommand, folderThatHoldsSomething_isLeftAlone)
{
    script(previewWithPictures, twoFrames("AAEC"));
    ASSERT_TRUE(QDir().mkpath(folder()));
    ASSERT_TRUE(writeFileAtomically(folder() + QLatin1String("/mine"), "x").has_value());
    EXPECT_EQ(writesFrames().status, 1);
    EXPECT_FALSE(QFileInfo::exists(folder() + QLatin1String("/1-0.jpg")));
}

TEST_F(PreviewCommand, nameThatLeadsElsewhere_isNotWritten)
{
    script(previewWithPictures, twoFrames("AAEC", "../1-0.jpg"));
    EXPECT_THAT(writesFrames().messages.toStdString(), HasSubstr("0 pictures are in"));
    EXPECT_FALSE(QFileInfo::exists(QDir::homePath() + QLatin1String("/1-0.jpg")));
}

TEST_F(PreviewCommand, answerThatIsNone_isAnError)
{
    script(preview, "[]");
    EXPECT_EQ(previews().status, 1);
}

} // namespace
